// Encoder of the wire protocol. All numbers of more than one byte are little-endian.
#include "tools/virtual_glove/packet.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace tarsil::virtual_glove {
namespace {

constexpr std::array<std::uint8_t, 4> kIdentityMarker = {0xC1, 0x40, 0x52, 0x53};

constexpr std::size_t kBlockHeaderSize = 13;
constexpr std::size_t kBlockTrailerSize = 6;
// Where the two bytes of the segment status word lie in a joint block's trailer.
constexpr std::size_t kTrailerStatusLow = 0;
constexpr std::size_t kTrailerStatusHigh = 3;

using Trailer = std::array<std::uint8_t, kBlockTrailerSize>;

std::uint8_t low_byte(unsigned value) {
  return static_cast<std::uint8_t>(value & 0xFFU);
}

void put_u16(Bytes& out, std::uint16_t value) {
  out.push_back(low_byte(value));
  out.push_back(low_byte(static_cast<unsigned>(value) >> 8U));
}

void put_values(Bytes& out, std::span<const std::int16_t> values) {
  for (const std::int16_t value : values) put_u16(out, static_cast<std::uint16_t>(value));
}

void put(Bytes& out, ByteView bytes) {
  std::copy(bytes.begin(), bytes.end(), std::back_inserter(out));
}

Bytes block_header(std::uint8_t kind, unsigned segment, std::size_t samples) {
  if (samples > 0xFF) throw std::length_error("a block holds at most 255 samples");
  Bytes block = {kind, low_byte(segment << 4U), static_cast<std::uint8_t>(samples)};
  block.resize(kBlockHeaderSize);
  return block;
}

}  // namespace

Bytes encode_identity(const Identity& identity) {
  if (identity.serial.size() > kLongestSerial) throw std::length_error("a serial has at most 255 bytes");
  Bytes frame(kIdentityMarker.begin(), kIdentityMarker.end());
  put(frame, identity.device);
  frame.push_back(static_cast<std::uint8_t>(identity.serial.size()));
  frame.insert(frame.end(), identity.serial.begin(), identity.serial.end());
  frame.push_back(identity.firmware_major);
  frame.push_back(identity.firmware_minor);
  unsigned check = 0;
  for (const std::uint8_t byte : frame) check ^= byte;
  frame.push_back(low_byte(check));
  return frame;
}

Bytes joint_block(unsigned segment, std::span<const JointReading> samples, std::uint16_t status) {
  Bytes block = block_header(kJointBlockKind, segment, samples.size());
  for (const JointReading& sample : samples) put_values(block, sample);
  Trailer trailer{};
  trailer[kTrailerStatusLow] = low_byte(status);
  trailer[kTrailerStatusHigh] = low_byte(static_cast<unsigned>(status) >> 8U);
  put(block, trailer);
  return block;
}

Bytes inertial_block(unsigned segment, std::span<const InertialReading> samples) {
  Bytes block = block_header(kInertialBlockKind, segment, samples.size());
  for (const InertialReading& sample : samples) put_values(block, sample);
  put(block, Trailer{});
  return block;
}

Bytes pressure_block(unsigned segment, const PressureReading& pads) {
  Bytes block = block_header(kPressureBlockKind, segment, 1);
  put_values(block, pads);
  put(block, Trailer{});
  return block;
}

Bytes other_block(std::uint8_t kind, unsigned segment, ByteView content) {
  Bytes block = block_header(kind, segment, 1);
  put(block, content);
  put(block, Trailer{});
  return block;
}

std::vector<Bytes> hand_blocks(const HandSample& sample) {
  std::vector<Bytes> blocks;
  for (unsigned finger = 0; finger < kFingers; ++finger) {
    JointReading joints;
    std::copy_n(sample.joints.begin() + finger * kJointsPerFinger, kJointsPerFinger, joints.begin());
    blocks.push_back(joint_block(finger, std::span(&joints, 1), sample.status[finger]));
  }
  for (unsigned unit = 0; unit < kFingers; ++unit) {
    blocks.push_back(inertial_block(unit, std::span(&sample.imu[unit], 1)));
  }
  for (unsigned finger = 0; finger < kFingers; ++finger) {
    PressureReading pads;
    std::copy_n(sample.pads.begin() + finger * kPadsPerFinger, kPadsPerFinger, pads.begin());
    blocks.push_back(pressure_block(finger, pads));
  }
  return blocks;
}

Bytes encode_payload(std::span<const Bytes> blocks) {
  if (blocks.size() > 0xFF) throw std::length_error("a packet holds at most 255 blocks");
  Bytes payload = {static_cast<std::uint8_t>(blocks.size())};
  for (const Bytes& block : blocks) put(payload, block);
  return payload;
}

Bytes encode_packet(std::uint8_t side_code, std::uint8_t type, std::uint16_t counter, ByteView payload) {
  if (payload.size() > kLargestPayload) throw std::length_error("a payload has at most 4096 bytes");
  Bytes packet = {kPacketMagic0, kPacketMagic1, side_code, type, 0};
  packet.reserve(kPacketHeaderSize + payload.size());
  put_u16(packet, counter);
  put_u16(packet, static_cast<std::uint16_t>(payload.size()));
  put(packet, payload);
  return packet;
}

}  // namespace tarsil::virtual_glove
