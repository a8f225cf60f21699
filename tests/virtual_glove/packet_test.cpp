// The glove's bytes, literally.
#include "tools/virtual_glove/packet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace tarsil::virtual_glove {
namespace {

using testing::ElementsAre;

TEST(Packet, identity_carries_marker_device_serial_firmware_and_check_byte) {
  const Identity identity{"TSL-7", 1, 12, {1, 2, 3, 4, 5, 6, 7, 8}};
  EXPECT_EQ(encode_identity(identity),
            (Bytes{0xC1, 0x40, 0x52, 0x53, 1, 2, 3, 4, 5, 6, 7, 8, 5, 'T', 'S', 'L', '-', '7', 1, 12, 0xD1}));
}

TEST(Packet, identity_with_an_empty_serial_has_sixteen_bytes) {
  EXPECT_EQ(encode_identity({"", 0, 255, {}}),
            (Bytes{0xC1, 0x40, 0x52, 0x53, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 0x7F}));
}

TEST(Packet, identity_holds_255_bytes_of_serial_and_refuses_more) {
  EXPECT_EQ(encode_identity({std::string(255, 'x'), 1, 0, {}}).size(), 271U);
  EXPECT_THROW(encode_identity({std::string(256, 'x'), 1, 0, {}}), std::length_error);
}

TEST(Packet, joint_block_carries_its_samples_and_the_status_word_in_its_trailer) {
  const std::array<JointReading, 1> samples = {{{1234, -1500, 9000, -1}}};
  EXPECT_EQ(joint_block(3, samples, 0xAB0F),
            (Bytes{0x10, 0x30, 1,    0,    0,    0,    0,    0,    0, 0, 0,    0, 0, 0xD2,
                   0x04, 0x24, 0xFA, 0x28, 0x23, 0xFF, 0xFF, 0x0F, 0, 0, 0xAB, 0, 0}));
}

TEST(Packet, inertial_block_carries_six_values_per_sample) {
  const std::array<InertialReading, 2> samples = {{{1, 2, 3, 4, 5, 6}, {-1, -2, -3, -4, -5, -6}}};
  const Bytes block = inertial_block(4, samples);
  ASSERT_EQ(block.size(), 43U);
  EXPECT_EQ(Bytes(block.begin(), block.begin() + 3), (Bytes{0x20, 0x40, 2}));
  EXPECT_EQ(Bytes(block.begin() + 13, block.begin() + 37),
            (Bytes{1,    0,    2,    0,    3,    0,    4,    0,    5,    0,    6,    0,
                   0xFF, 0xFF, 0xFE, 0xFF, 0xFD, 0xFF, 0xFC, 0xFF, 0xFB, 0xFF, 0xFA, 0xFF}));
}

TEST(Packet, pressure_block_carries_six_pads) {
  const Bytes block = pressure_block(0, {0, 10, 20, 30, 40, 100});
  ASSERT_EQ(block.size(), 31U);
  EXPECT_EQ(Bytes(block.begin(), block.begin() + 2), (Bytes{0x30, 0x00}));
  EXPECT_EQ(Bytes(block.begin() + 13, block.begin() + 25), (Bytes{0, 0, 10, 0, 20, 0, 30, 0, 40, 0, 100, 0}));
}

TEST(Packet, header_names_side_type_counter_and_length_little_endian) {
  EXPECT_EQ(encode_packet(kLeftSideCode, 7, 0xBEEF, Bytes{0xAA, 0xBB}),
            (Bytes{0x01, 0x02, 1, 7, 0, 0xEF, 0xBE, 2, 0, 0xAA, 0xBB}));
  EXPECT_EQ(encode_packet(kRightSideCode, 1, 1, {}), (Bytes{0x01, 0x02, 0, 1, 0, 1, 0, 0, 0}));
}

TEST(Packet, payload_begins_with_the_number_of_blocks) {
  EXPECT_EQ(encode_payload(std::vector<Bytes>{{0x40, 1}, {0x41}}), (Bytes{2, 0x40, 1, 0x41}));
  EXPECT_EQ(encode_payload({}), (Bytes{0}));
}

TEST(Packet, payload_of_more_than_4096_bytes_is_refused) {
  EXPECT_EQ(encode_packet(0, 1, 0, Bytes(4096)).size(), 4105U);
  EXPECT_THROW(encode_packet(0, 1, 0, Bytes(4097)), std::length_error);
}

TEST(Packet, block_of_more_than_255_samples_is_refused) {
  EXPECT_THROW(joint_block(0, std::vector<JointReading>(256), 0), std::length_error);
}

TEST(Packet, hand_sample_fills_fifteen_blocks_in_455_bytes) {
  HandSample sample;
  for (std::size_t joint = 0; joint < 20; ++joint)
    sample.joints[joint] = static_cast<std::int16_t>(100 + joint);
  sample.pads[29] = 0x0102;
  sample.imu[4] = {1, 2, 3, 4, 5, -6};
  sample.status[4] = 0x240F;
  const std::vector<Bytes> blocks = hand_blocks(sample);
  ASSERT_EQ(blocks.size(), 15U);
  std::vector<int> heads;
  for (const Bytes& block : blocks) heads.push_back(block[0] * 256 + block[1]);
  EXPECT_THAT(heads, ElementsAre(0x1000, 0x1010, 0x1020, 0x1030, 0x1040, 0x2000, 0x2010, 0x2020, 0x2030,
                                 0x2040, 0x3000, 0x3010, 0x3020, 0x3030, 0x3040));
  const Bytes packet = encode_packet(0, kSensorPacketType, 0, encode_payload(blocks));
  ASSERT_EQ(packet.size(), 455U);
  // The last joint block, the last inertial one and the last pad, where they lie in the packet.
  EXPECT_EQ(Bytes(packet.begin() + 131, packet.begin() + 145),
            (Bytes{116, 0, 117, 0, 118, 0, 119, 0, 0x0F, 0, 0, 0x24, 0, 0}));
  EXPECT_EQ(Bytes(packet.begin() + 282, packet.begin() + 294),
            (Bytes{1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 0xFA, 0xFF}));
  EXPECT_EQ(Bytes(packet.begin() + 447, packet.begin() + 449), (Bytes{0x02, 0x01}));
}

}  // namespace
}  // namespace tarsil::virtual_glove
