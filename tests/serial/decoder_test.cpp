// The decoder: bytes and times in, frames out, to the bit.
#include "tarsil/serial/decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "tests/serial/wire_bytes.h"

namespace tarsil::detail {
namespace {

using test::Bytes;
using test::inertial_block;
using test::InertialValues;
using test::join;
using test::joint_block;
using test::joint_packet;
using test::JointValues;
using test::packet;
using test::payload;
using test::pressure_block;
using ::testing::Each;
using ::testing::ElementsAre;

using std::chrono::nanoseconds;

constexpr SteadyTime kStart{std::chrono::hours(5)};
constexpr double kWall = 1700000000.25;

/// A moment `after` the start of the stream.
Moment moment(nanoseconds after) {
  return {kStart + after, kWall + std::chrono::duration<double>(after).count()};
}

/// A decoder with the frames that it has made.
class Stream {
 public:
  /// Feeds one read at `after` the start.
  void feed(const Bytes& bytes, nanoseconds after = {}) { decoder.feed(bytes, moment(after), frames); }
  bool check_silence(nanoseconds after) { return decoder.check_silence(moment(after), frames); }

  std::vector<std::uint64_t> numbers() const {
    std::vector<std::uint64_t> all;
    for (const Frame& frame : frames) all.push_back(frame.seq);
    return all;
  }

  Decoder decoder{kStart};
  std::vector<Frame> frames;
};

/// The numbers of the frames that packets with these counters make.
std::vector<std::uint64_t> numbers_for(const std::vector<int>& counters, std::uint64_t dropped) {
  Stream stream;
  for (const int counter : counters) stream.feed(joint_packet(counter));
  EXPECT_EQ(stream.decoder.dropped_cycles(), dropped);
  return stream.numbers();
}

bool same_values(const Frame& a, const Frame& b) {
  const auto same_imu = [](const ImuSample& x, const ImuSample& y) {
    return x.acc == y.acc && x.gyro == y.gyro;
  };
  return a.q == b.q && a.touch == b.touch &&
         std::equal(a.imu.begin(), a.imu.end(), b.imu.begin(), b.imu.end(), same_imu) && a.stale == b.stale &&
         a.seq == b.seq && a.status_lo == b.status_lo && a.status_hi == b.status_hi;
}

bool same_values(const std::vector<Frame>& a, const std::vector<Frame>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Frame& x, const Frame& y) { return same_values(x, y); });
}

std::uint32_t bits(float value) {
  return std::bit_cast<std::uint32_t>(value);
}

/// The first packet: right hand, cycle 5, joints of the thumb. The second: cycle 6, joints of the pinky, unit
/// of the index finger, pads of the ring finger.
const Bytes kTwoPackets{
    0x01, 0x02, 0x00, 0x01, 0xEE, 0x05, 0x00, 0x1C, 0x00,                          // header, 28 bytes follow
    0x01,                                                                          // one block
    0x10, 0x0E, 0x01, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,  // thumb, one sample
    0x28, 0x23, 0x6C, 0xEE, 0x01, 0x00, 0x00, 0x80,                                // 90, -45, 0.01, -327.68
    0x0B, 0xEE, 0xEE, 0x21, 0xEE, 0xEE,                                            // status 0x210B
    0x01, 0x02, 0x00, 0x01, 0xEE, 0x06, 0x00, 0x5A, 0x00,                          // header, 90 bytes follow
    0x03,                                                                          // three blocks
    0x10, 0x4E, 0x01, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,  // pinky, one sample
    0xFF, 0x7F, 0xFF, 0xFF, 0x1B, 0x00, 0x00, 0x00,                                // 327.67, -0.01, 0.27, 0
    0x07, 0xEE, 0xEE, 0x1F, 0xEE, 0xEE,                                            // status 0x1F07
    0x20, 0x1E, 0x01, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,  // index, one sample
    0x64, 0x00, 0x9C, 0xFF, 0x05, 0x00, 0x00, 0x80, 0xFF, 0x7F, 0x00, 0x00,        // accelerometer, gyroscope
    0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,                                            //
    0x30, 0x3E, 0x00, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,  // ring
    0x64, 0x00, 0x32, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0x07, 0x00,        // six pads
    0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

TEST(Decoder, makes_a_frame_of_a_packet) {
  Stream stream;
  stream.feed(Bytes(kTwoPackets.begin(), kTwoPackets.begin() + 37), nanoseconds(1'500'000'000));
  ASSERT_EQ(stream.frames.size(), 1U);
  const Frame& frame = stream.frames[0];
  EXPECT_EQ(frame.t, 1700000001.75);
  EXPECT_FALSE(frame.stale);
  EXPECT_EQ(frame.seq, 0U);
  ASSERT_EQ(frame.q.size(), 20U);
  EXPECT_EQ(bits(frame.q[0]), 0x3FC90FDBU);
  EXPECT_EQ(bits(frame.q[1]), 0xBF490FDBU);
  EXPECT_EQ(bits(frame.q[2]), 0x393702D3U);
  EXPECT_EQ(bits(frame.q[3]), 0xC0B702D3U);
  EXPECT_THAT(std::vector<float>(frame.q.begin() + 4, frame.q.end()), Each(0.0F));
  ASSERT_EQ(frame.touch.size(), 30U);
  EXPECT_THAT(frame.touch, Each(0.0F));
  ASSERT_EQ(frame.imu.size(), 5U);
  for (const ImuSample& unit : frame.imu) {
    EXPECT_THAT(unit.acc, Each(0.0F));
    EXPECT_THAT(unit.gyro, Each(0.0F));
  }
  EXPECT_THAT(frame.status_lo, ElementsAre(0x0B, 0x0F, 0x0F, 0x0F, 0x0F));
  EXPECT_THAT(frame.status_hi, ElementsAre(0x21, 0, 0, 0, 0));
  EXPECT_EQ(stream.decoder.side(), 1);
  EXPECT_EQ(stream.decoder.buffered(), 0U);
}

TEST(Decoder, adds_to_what_it_knows) {
  Stream stream;
  stream.feed(kTwoPackets);
  ASSERT_EQ(stream.frames.size(), 2U);
  const Frame& frame = stream.frames[1];
  EXPECT_EQ(frame.seq, 1U);
  EXPECT_EQ(bits(frame.q[0]), 0x3FC90FDBU);
  EXPECT_EQ(bits(frame.q[16]), 0x40B70166U);
  EXPECT_EQ(bits(frame.q[17]), 0xB93702D3U);
  EXPECT_EQ(bits(frame.q[18]), 0x3B9A6A63U);
  EXPECT_EQ(bits(frame.q[19]), 0x00000000U);
  EXPECT_THAT(frame.imu[1].acc, ElementsAre(1.0F, -1.0F, 0.05F));
  EXPECT_THAT(frame.imu[1].gyro, ElementsAre(-327.68F, 327.67F, 0.0F));
  EXPECT_THAT(frame.imu[0].acc, Each(0.0F));
  EXPECT_THAT(std::vector<float>(frame.touch.begin() + 18, frame.touch.begin() + 24),
              ElementsAre(1.0F, 0.5F, 0.01F, 0.0F, -0.01F, 0.07F));
  EXPECT_EQ(std::count(frame.touch.begin(), frame.touch.end(), 0.0F), 25);
  EXPECT_THAT(frame.status_lo, ElementsAre(0x0B, 0x0F, 0x0F, 0x0F, 0x07));
  EXPECT_THAT(frame.status_hi, ElementsAre(0x21, 0, 0, 0, 0x1F));
}

TEST(Decoder, converts_in_single_precision_at_every_step) {
  // Values that come out differently when a step is done in double precision, or the factors are merged.
  Stream stream;
  stream.feed(
      packet(0, payload({joint_block(0, {{27, 54, 85, 4001}}), inertial_block(0, {{5, 9, 10, 15, 18, 12345}}),
                         pressure_block(0, {5, 9, 10, 15, 18, 12345})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  const Frame& frame = stream.frames[0];
  EXPECT_EQ(bits(frame.q[0]), 0x3B9A6A63U);
  EXPECT_EQ(bits(frame.q[1]), 0x3C1A6A63U);
  EXPECT_EQ(bits(frame.q[2]), 0x3C730FC1U);
  EXPECT_EQ(bits(frame.q[3]), 0x3F32C432U);
  const std::vector<std::uint32_t> expected{0x3D4CCCCDU, 0x3DB851ECU, 0x3DCCCCCDU,
                                            0x3E19999AU, 0x3E3851ECU, 0x42F6E666U};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(bits(frame.imu[0].acc[i]), expected[i]);
    EXPECT_EQ(bits(frame.imu[0].gyro[i]), expected[i + 3]);
  }
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(bits(frame.touch[i]), expected[i]);
}

TEST(Decoder, makes_the_same_frames_wherever_the_stream_is_split) {
  Stream whole;
  whole.feed(kTwoPackets);
  for (std::size_t split = 0; split <= kTwoPackets.size(); ++split) {
    SCOPED_TRACE(split);
    const auto middle = kTwoPackets.begin() + static_cast<std::ptrdiff_t>(split);
    Stream halves;
    halves.feed(Bytes(kTwoPackets.begin(), middle));
    EXPECT_EQ(halves.frames.size(), split == kTwoPackets.size() ? 2U : (split >= 37 ? 1U : 0U));
    halves.feed(Bytes(middle, kTwoPackets.end()));
    EXPECT_TRUE(same_values(halves.frames, whole.frames));
  }
}

TEST(Decoder, gives_the_frames_of_one_read_its_time) {
  Stream stream;
  stream.feed(Bytes(kTwoPackets.begin(), kTwoPackets.begin() + 36), nanoseconds(250'000'000));
  stream.feed(Bytes(kTwoPackets.begin() + 36, kTwoPackets.end()), nanoseconds(500'000'000));
  ASSERT_EQ(stream.frames.size(), 2U);
  EXPECT_EQ(stream.frames[0].t, 1700000000.75);
  EXPECT_EQ(stream.frames[1].t, 1700000000.75);
}

// Packets in the stream.

TEST(Decoder, skips_garbage_between_packets) {
  for (const Bytes& garbage :
       {Bytes{0x00}, Bytes{0x01}, Bytes{0x01, 0x01}, Bytes{0x02, 0x01}, Bytes(5000, 0x01), Bytes(5000, 0x02),
        Bytes{0x01, 0x03, 0x01}, Bytes{0xC1, 0x40, 0x52, 0x53}}) {
    SCOPED_TRACE(garbage.size());
    Stream stream;
    stream.feed(join({garbage, joint_packet(1), garbage, joint_packet(2), garbage}));
    EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
    EXPECT_LT(stream.decoder.buffered(), 9U);
  }
}

TEST(Decoder, waits_for_nine_bytes_before_it_looks) {
  Stream stream;
  stream.feed(Bytes(8, 0x00));
  EXPECT_EQ(stream.decoder.buffered(), 8U);
  stream.feed(Bytes(1, 0x00));
  EXPECT_EQ(stream.decoder.buffered(), 8U);
  stream.feed(joint_packet(0));
  EXPECT_EQ(stream.frames.size(), 1U);
  EXPECT_EQ(stream.decoder.buffered(), 0U);
}

TEST(Decoder, keeps_an_incomplete_packet) {
  const Bytes bytes = joint_packet(0);
  Stream stream;
  stream.feed(join({Bytes(100, 0x00), Bytes(bytes.begin(), bytes.end() - 1)}));
  EXPECT_EQ(stream.decoder.buffered(), bytes.size() - 1);
  EXPECT_TRUE(stream.frames.empty());
  stream.feed(Bytes{bytes.back()});
  EXPECT_EQ(stream.decoder.buffered(), 0U);
  EXPECT_EQ(stream.frames.size(), 1U);
}

TEST(Decoder, accepts_a_payload_of_4096_bytes) {
  Bytes content = payload({joint_block(0, {{1, 2, 3, 4}})});
  content.resize(4096, test::kIgnored);
  Stream stream;
  stream.feed(join({packet(0, content), joint_packet(1)}));
  EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
}

TEST(Decoder, takes_the_magic_of_a_longer_packet_for_a_coincidence) {
  // The header of a packet with 4097 bytes, then a packet inside what would be its payload.
  const Bytes header{0x01, 0x02, 0x01, 0x01, 0xEE, 0x09, 0x00, 0x01, 0x10};
  Stream stream;
  stream.feed(join({header, joint_packet(3), joint_packet(4)}));
  EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
  EXPECT_EQ(stream.decoder.side(), 1);
}

TEST(Decoder, resumes_one_byte_behind_a_false_magic) {
  // A real packet right behind the false magic; its counter, 8192, stands where the false length is read.
  Stream stream;
  stream.feed(join({{0x01, 0x02}, joint_packet(8192), joint_packet(8193)}));
  EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
}

TEST(Decoder, does_not_grow_without_bound_on_noise) {
  std::mt19937 random(11);
  Stream stream;
  for (int read = 0; read < 300; ++read) {
    Bytes noise(4096);
    for (std::uint8_t& byte : noise) byte = static_cast<std::uint8_t>(random());
    stream.feed(noise);
    ASSERT_LE(stream.decoder.buffered(), 16384U);
  }
}

TEST(Decoder, makes_the_same_of_a_faulty_stream_however_it_is_cut) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    const auto value = [&] { return static_cast<int>(below(65536)) - 32768; };
    const auto any_block = [&]() -> Bytes {
      const int segment = static_cast<int>(below(7));
      std::vector<JointValues> joints(below(3), JointValues{value(), value(), value(), value()});
      switch (below(4)) {
        case 0:
          return inertial_block(segment,
                                std::vector<InertialValues>(below(3), InertialValues{value(), value()}));
        case 1:
          return pressure_block(segment, {value(), value(), value(), value(), value(), value()});
        default:
          return joint_block(segment, joints, static_cast<std::uint8_t>(random()),
                             static_cast<std::uint8_t>(random()));
      }
    };
    Bytes bytes;
    int counter = static_cast<int>(below(65536));
    for (int k = 0; k < 200; ++k) {
      std::vector<Bytes> blocks;
      for (std::size_t count = below(6); count > 0; --count) blocks.push_back(any_block());
      counter = (counter + static_cast<int>(below(3))) % 65536;
      const auto type = static_cast<std::uint8_t>(below(10) == 0 ? below(256) : 1);
      const int claimed = static_cast<int>(below(8) == 0 ? below(256) : blocks.size());
      Bytes next = packet(counter, payload(claimed, blocks), static_cast<std::uint8_t>(below(2)), type);
      switch (below(8)) {
        case 0:
          next[below(next.size())] = static_cast<std::uint8_t>(random());
          break;
        case 1:
          next.erase(next.begin() + static_cast<std::ptrdiff_t>(below(next.size())));
          break;
        case 2: {
          const std::array<std::uint8_t, 4> alphabet{0x01, 0x02, 0x00, 0x10};
          Bytes noise(below(60));
          for (std::uint8_t& byte : noise) byte = alphabet[below(4)];
          next = join({noise, next});
          break;
        }
        default:
          break;
      }
      bytes = join({bytes, next});
    }

    Stream whole;
    whole.feed(bytes);
    ASSERT_GT(whole.frames.size(), 20U);
    const auto check = [&](const Stream& other) {
      EXPECT_TRUE(same_values(other.frames, whole.frames));
      EXPECT_EQ(other.decoder.dropped_cycles(), whole.decoder.dropped_cycles());
      EXPECT_EQ(other.decoder.side(), whole.decoder.side());
      EXPECT_EQ(other.decoder.buffered(), whole.decoder.buffered());
    };

    Stream by_bytes;
    for (const std::uint8_t byte : bytes) by_bytes.feed(Bytes{byte});
    check(by_bytes);

    for (const std::size_t most : {20U, 500U, 4096U}) {
      Stream by_reads;
      for (auto at = bytes.begin(); at != bytes.end();) {
        const auto left = static_cast<std::size_t>(bytes.end() - at);
        const auto next = at + static_cast<std::ptrdiff_t>(std::min(left, 1 + below(most)));
        by_reads.feed(Bytes(at, next));
        at = next;
      }
      check(by_reads);
    }
  }
}

// Side.

TEST(Decoder, knows_no_side_before_the_first_packet) {
  Stream stream;
  EXPECT_EQ(stream.decoder.side(), std::nullopt);
  stream.feed(Bytes(100, 0x01));
  EXPECT_EQ(stream.decoder.side(), std::nullopt);
}

TEST(Decoder, takes_side_code_0_for_the_right_hand_and_any_other_for_the_left) {
  for (int code = 0; code < 256; ++code) {
    Stream stream;
    stream.feed(joint_packet(0, 0, static_cast<std::uint8_t>(code)));
    EXPECT_EQ(stream.decoder.side(), code == 0 ? 1 : 0) << code;
  }
}

TEST(Decoder, keeps_the_side_of_the_first_packet) {
  Stream stream;
  stream.feed(join({joint_packet(0, 0, 0x01), joint_packet(1, 0, 0x00)}));
  EXPECT_EQ(stream.decoder.side(), 0);
  Stream other;
  other.feed(join({joint_packet(0, 0, 0x00), joint_packet(1, 0, 0x01)}));
  EXPECT_EQ(other.decoder.side(), 1);
}

TEST(Decoder, takes_the_side_of_a_first_packet_that_it_skips) {
  for (const Bytes& first : {packet(0, {}, 0x02, 7), packet(0, Bytes(10, 0x01), 0x02, 0),
                             packet(0, {}, 0x02, 1), packet(0, {0x00}, 0x02, 1)}) {
    Stream stream;
    stream.feed(first);
    EXPECT_TRUE(stream.frames.empty());
    EXPECT_EQ(stream.decoder.side(), 0);
    stream.feed(joint_packet(1, 0, 0x00));
    EXPECT_EQ(stream.decoder.side(), 0);
  }
}

// Types and payloads.

TEST(Decoder, skips_packets_of_other_types_whole) {
  // Their payload holds a whole packet, which must not be found.
  for (const int type : {0, 2, 16, 255}) {
    SCOPED_TRACE(type);
    Stream stream;
    stream.feed(
        join({packet(9, joint_packet(50), 0, static_cast<std::uint8_t>(type)), joint_packet(1),
              packet(20, payload({joint_block(0, {{7, 7, 7, 7}})}), 0, static_cast<std::uint8_t>(type)),
              joint_packet(2)}));
    EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
    EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
  }
}

TEST(Decoder, makes_nothing_of_payloads_without_blocks) {
  for (const Bytes& content : {Bytes{}, Bytes{0x01}, Bytes{0x01, 0x10, 0x00}, Bytes{0x00, 0x10, 0x00, 0x01},
                               payload(0, {joint_block(0, {{1, 2, 3, 4}})})}) {
    SCOPED_TRACE(content.size());
    Stream stream;
    stream.feed(joint_packet(1, 500));
    stream.feed(packet(5, content));
    EXPECT_EQ(stream.decoder.buffered(), 0U);
    stream.feed(joint_packet(2, 500));
    EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
    EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
    EXPECT_EQ(stream.frames.back().q, stream.frames.front().q);
  }
}

TEST(Decoder, reads_no_more_blocks_than_the_payload_announces) {
  Stream stream;
  stream.feed(packet(0, payload(1, {joint_block(0, {{100, 0, 0, 0}}), joint_block(1, {{100, 0, 0, 0}})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  EXPECT_EQ(bits(stream.frames[0].q[0]), 0x3C8EFA35U);
  EXPECT_EQ(stream.frames[0].q[4], 0.0F);
}

TEST(Decoder, reads_all_blocks_when_more_are_announced) {
  Stream stream;
  stream.feed(packet(0, payload(255, {joint_block(0, {{100, 0, 0, 0}}), joint_block(1, {{100, 0, 0, 0}})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  EXPECT_EQ(bits(stream.frames[0].q[0]), 0x3C8EFA35U);
  EXPECT_EQ(bits(stream.frames[0].q[4]), 0x3C8EFA35U);
}

TEST(Decoder, needs_three_bytes_to_look_at_a_block) {
  // A rest of one or two bytes ends the walk whatever it holds.
  for (const Bytes& rest : {Bytes{0x10}, Bytes{0x10, 0x10}, Bytes{0x10, 0x10, 0x00}}) {
    Stream stream;
    stream.feed(packet(0, payload(2, {joint_block(0, {{100, 0, 0, 0}}), rest})));
    ASSERT_EQ(stream.frames.size(), 1U);
    EXPECT_EQ(bits(stream.frames[0].q[0]), 0x3C8EFA35U);
  }
}

TEST(Decoder, keeps_the_blocks_before_one_of_unknown_kind) {
  for (const int kind : {0x00, 0x01, 0x0F, 0x11, 0x1F, 0x40, 0xFF}) {
    SCOPED_TRACE(kind);
    Bytes unknown = joint_block(1, {{100, 0, 0, 0}});
    unknown[0] = static_cast<std::uint8_t>(kind);
    Stream stream;
    stream.feed(
        packet(0, payload({joint_block(0, {{100, 0, 0, 0}}), unknown, joint_block(2, {{100, 0, 0, 0}})})));
    ASSERT_EQ(stream.frames.size(), 1U);
    EXPECT_EQ(bits(stream.frames[0].q[0]), 0x3C8EFA35U);
    EXPECT_EQ(stream.frames[0].q[4], 0.0F);
    EXPECT_EQ(stream.frames[0].q[8], 0.0F);
  }
}

TEST(Decoder, makes_no_frame_when_the_joint_block_comes_behind_an_unknown_one) {
  Bytes unknown = joint_block(1, {{100, 0, 0, 0}});
  unknown[0] = 0x40;
  Stream stream;
  stream.feed(joint_packet(0));
  stream.feed(packet(1, payload({unknown, joint_block(0, {{100, 0, 0, 0}})})));
  EXPECT_THAT(stream.numbers(), ElementsAre(0));
}

TEST(Decoder, keeps_the_blocks_before_a_truncated_one) {
  const std::vector<Bytes> lasts{joint_block(1, {{100, 0, 0, 0}, {200, 0, 0, 0}}),
                                 inertial_block(1, {{100, 100, 100, 100, 100, 100}}),
                                 pressure_block(1, {100, 100, 100, 100, 100, 100})};
  for (const Bytes& last : lasts) {
    for (std::size_t size = 0; size <= last.size(); ++size) {
      SCOPED_TRACE(size);
      const Bytes cut(last.begin(), last.begin() + static_cast<std::ptrdiff_t>(size));
      Stream stream;
      stream.feed(
          join({packet(0, payload(2, {joint_block(0, {{100, 0, 0, 0}}), cut})), joint_packet(1, 100)}));
      ASSERT_THAT(stream.numbers(), ElementsAre(0, 1));
      const Frame& frame = stream.frames[0];
      EXPECT_EQ(bits(frame.q[0]), 0x3C8EFA35U);
      const bool taken = frame.q[4] != 0.0F || frame.touch[6] != 0.0F || frame.imu[1].acc[0] != 0.0F;
      EXPECT_EQ(taken, size == last.size());
    }
  }
}

TEST(Decoder, makes_no_frame_of_a_truncated_joint_block) {
  const Bytes whole = joint_block(0, {{100, 0, 0, 0}});
  Stream stream;
  stream.feed(joint_packet(0, 300));
  for (std::size_t size = 3; size < whole.size(); ++size) {
    stream.feed(
        packet(static_cast<int>(size),
               payload(1, {Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))})));
  }
  EXPECT_THAT(stream.numbers(), ElementsAre(0));
}

TEST(Decoder, uses_the_last_of_several_samples) {
  Stream stream;
  stream.feed(packet(
      0, payload({joint_block(2, {{1, 2, 3, 4}, {5, 6, 7, 8}, {100, -100, 9000, 0}}, 0x12, 0x34),
                  inertial_block(3, {{9, 9, 9, 9, 9, 9}, {100, 200, 300, 400, 500, 600}}),
                  pressure_block(4, {100, 200, 300, 400, 500, 600}, 9), joint_block(0, {{100, 0, 0, 0}})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  const Frame& frame = stream.frames[0];
  EXPECT_EQ(bits(frame.q[8]), 0x3C8EFA35U);
  EXPECT_EQ(bits(frame.q[9]), 0xBC8EFA35U);
  EXPECT_EQ(bits(frame.q[10]), 0x3FC90FDBU);
  EXPECT_EQ(frame.q[11], 0.0F);
  EXPECT_EQ(frame.status_lo[2], 0x12);
  EXPECT_EQ(frame.status_hi[2], 0x34);
  EXPECT_THAT(frame.imu[3].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(frame.imu[3].gyro, ElementsAre(4.0F, 5.0F, 6.0F));
  // A pressure block holds one set of values, whatever its sample count says: the next block is found.
  EXPECT_EQ(bits(frame.q[0]), 0x3C8EFA35U);
}

TEST(Decoder, reads_255_samples) {
  std::vector<JointValues> samples(255, JointValues{1, 1, 1, 1});
  samples.back() = {100, 100, 100, 100};
  Stream stream;
  stream.feed(packet(0, payload({joint_block(1, samples), joint_block(2, {{100, 0, 0, 0}})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  EXPECT_EQ(bits(stream.frames[0].q[4]), 0x3C8EFA35U);
  EXPECT_EQ(bits(stream.frames[0].q[8]), 0x3C8EFA35U);
}

TEST(Decoder, lets_the_last_block_of_a_segment_win) {
  Stream stream;
  stream.feed(packet(
      0, payload({joint_block(0, {{1, 1, 1, 1}}, 0x01, 0x02), inertial_block(0, {{1}}),
                  joint_block(0, {{100, 100, 100, 100}}, 0x03, 0x04),
                  inertial_block(0, {{100, 200, 300, 400, 500, 600}}), pressure_block(0, {1, 1, 1, 1, 1, 1}),
                  pressure_block(0, {10, 20, 30, 40, 50, 60})})));
  ASSERT_EQ(stream.frames.size(), 1U);
  const Frame& frame = stream.frames[0];
  EXPECT_EQ(bits(frame.q[3]), 0x3C8EFA35U);
  EXPECT_EQ(frame.status_lo[0], 0x03);
  EXPECT_EQ(frame.status_hi[0], 0x04);
  EXPECT_THAT(frame.imu[0].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_EQ(frame.touch[5], 0.6F);
}

TEST(Decoder, makes_the_same_frame_whatever_the_order_of_kinds) {
  std::vector<Bytes> blocks{joint_block(0, {{100, 200, 300, 400}}), joint_block(4, {{-1, -2, -3, -4}}),
                            inertial_block(2, {{10, 20, 30, 40, 50, 60}}),
                            pressure_block(3, {1, 2, 3, 4, 5, 6})};
  std::sort(blocks.begin(), blocks.end());
  Stream sorted;
  sorted.feed(packet(0, payload(blocks)));
  ASSERT_EQ(sorted.frames.size(), 1U);
  while (std::next_permutation(blocks.begin(), blocks.end())) {
    Stream stream;
    stream.feed(packet(0, payload(blocks)));
    EXPECT_TRUE(same_values(stream.frames, sorted.frames));
  }
}

TEST(Decoder, gives_every_segment_its_place) {
  std::vector<Bytes> blocks;
  for (int segment = 0; segment < 5; ++segment) {
    const int base = 1000 * segment;
    blocks.push_back(joint_block(segment, {{base, base + 100, base + 200, base + 300}},
                                 static_cast<std::uint8_t>(segment),
                                 static_cast<std::uint8_t>(segment + 16)));
    blocks.push_back(inertial_block(segment, {{base, base + 1, base + 2, base + 3, base + 4, base + 5}}));
    blocks.push_back(pressure_block(segment, {base, base + 1, base + 2, base + 3, base + 4, base + 5}));
  }
  Stream stream;
  stream.feed(packet(0, payload(blocks)));
  ASSERT_EQ(stream.frames.size(), 1U);
  const Frame& frame = stream.frames[0];
  for (std::size_t segment = 0; segment < 5; ++segment) {
    const auto base = static_cast<float>(1000 * segment);
    for (std::size_t k = 0; k < 4; ++k) {
      EXPECT_EQ(frame.q[4 * segment + k], (base + 100.0F * static_cast<float>(k)) / 100.0F * 0.017453292F);
    }
    for (std::size_t k = 0; k < 6; ++k) {
      EXPECT_EQ(frame.touch[6 * segment + k], (base + static_cast<float>(k)) / 100.0F);
    }
    for (std::size_t k = 0; k < 3; ++k) {
      EXPECT_EQ(frame.imu[segment].acc[k], (base + static_cast<float>(k)) / 100.0F);
      EXPECT_EQ(frame.imu[segment].gyro[k], (base + static_cast<float>(k + 3)) / 100.0F);
    }
  }
  EXPECT_THAT(frame.status_lo, ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(frame.status_hi, ElementsAre(16, 17, 18, 19, 20));
}

TEST(Decoder, ignores_segments_beyond_the_fingers) {
  for (int segment = 5; segment < 16; ++segment) {
    SCOPED_TRACE(segment);
    Stream stream;
    stream.feed(packet(0, payload({joint_block(segment, {{100, 100, 100, 100}}, 0x55, 0x66),
                                   inertial_block(segment, {{100, 100, 100, 100, 100, 100}}),
                                   pressure_block(segment, {100, 100, 100, 100, 100, 100})})));
    // It is joint data all the same.
    ASSERT_EQ(stream.frames.size(), 1U);
    const Frame& frame = stream.frames[0];
    EXPECT_THAT(frame.q, Each(0.0F));
    EXPECT_THAT(frame.touch, Each(0.0F));
    for (const ImuSample& unit : frame.imu) EXPECT_THAT(unit.acc, Each(0.0F));
    EXPECT_THAT(frame.status_lo, Each(0x0F));
    EXPECT_THAT(frame.status_hi, Each(0x00));
  }
}

TEST(Decoder, changes_nothing_for_blocks_without_samples) {
  Stream stream;
  stream.feed(packet(0, payload({joint_block(0, {{100, 100, 100, 100}}, 0x01, 0x02),
                                 inertial_block(0, {{100, 100, 100, 100, 100, 100}})})));
  stream.feed(packet(1, payload({joint_block(0, {}, 0x0C, 0x0D), inertial_block(0, {}),
                                 pressure_block(0, {100, 0, 0, 0, 0, 0}, 0)})));
  ASSERT_THAT(stream.numbers(), ElementsAre(0, 1));
  const Frame& frame = stream.frames[1];
  EXPECT_EQ(bits(frame.q[0]), 0x3C8EFA35U);
  EXPECT_EQ(frame.status_lo[0], 0x01);
  EXPECT_EQ(frame.status_hi[0], 0x02);
  EXPECT_THAT(frame.imu[0].acc, Each(1.0F));
  // The count of a pressure block means nothing.
  EXPECT_EQ(frame.touch[0], 1.0F);
}

TEST(Decoder, carries_status_bytes_unchanged) {
  for (int status = 0; status < 256; ++status) {
    Stream stream;
    stream.feed(packet(0, payload({joint_block(4, {{0, 0, 0, 0}}, static_cast<std::uint8_t>(status),
                                               static_cast<std::uint8_t>(255 - status))})));
    ASSERT_EQ(stream.frames.size(), 1U);
    EXPECT_EQ(stream.frames[0].status_lo[4], status);
    EXPECT_EQ(stream.frames[0].status_hi[4], 255 - status);
  }
}

// Which packets make frames.

TEST(Decoder, makes_no_frame_before_there_is_joint_data) {
  Stream stream;
  for (int counter = 10; counter < 20; ++counter) {
    stream.feed(packet(counter, payload({inertial_block(0, {{100}}), pressure_block(0, {counter})})));
    stream.feed(packet(counter, payload({joint_block(0, {})})));
  }
  EXPECT_TRUE(stream.frames.empty());
  stream.feed(joint_packet(40));
  EXPECT_THAT(stream.numbers(), ElementsAre(0));
  EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
  EXPECT_EQ(stream.frames[0].touch[0], 0.19F);
}

TEST(Decoder, counts_a_joint_block_without_samples_once_there_is_joint_data) {
  Stream stream;
  stream.feed(joint_packet(1));
  stream.feed(packet(2, payload({joint_block(0, {})})));
  EXPECT_THAT(stream.numbers(), ElementsAre(0, 1));
}

TEST(Decoder, makes_no_frame_of_packets_without_joints) {
  Stream stream;
  stream.feed(joint_packet(1));
  stream.feed(packet(2, payload({pressure_block(0, {100, 0, 0, 0, 0, 0})})));
  stream.feed(packet(3, payload({inertial_block(0, {{300, 0, 0, 0, 0, 0}})})));
  EXPECT_THAT(stream.numbers(), ElementsAre(0));
  EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
  // Their values are in the next frame; their counters have not moved the count.
  stream.feed(joint_packet(2));
  ASSERT_THAT(stream.numbers(), ElementsAre(0, 1));
  EXPECT_EQ(stream.frames[1].touch[0], 1.0F);
  EXPECT_EQ(stream.frames[1].imu[0].acc[0], 3.0F);
  EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
}

TEST(Decoder, makes_one_frame_of_several_packets_of_one_cycle) {
  Stream stream;
  stream.feed(joint_packet(1, 100));
  stream.feed(joint_packet(1, 200));
  stream.feed(packet(1, payload({pressure_block(0, {700, 0, 0, 0, 0, 0})})));
  ASSERT_THAT(stream.numbers(), ElementsAre(0));
  EXPECT_EQ(bits(stream.frames[0].q[0]), 0x3C8EFA35U);
  // What the others brought is in the next frame.
  stream.feed(packet(2, payload({joint_block(1, {{0, 0, 0, 0}})})));
  ASSERT_THAT(stream.numbers(), ElementsAre(0, 1));
  EXPECT_EQ(stream.frames[1].q[0], 2.0F * 0.017453292F);
  EXPECT_EQ(stream.frames[1].touch[0], 7.0F);
}

// The counter.

TEST(Decoder, numbers_consecutive_cycles) {
  EXPECT_THAT(numbers_for({7, 8, 9, 10}, 0), ElementsAre(0, 1, 2, 3));
}

TEST(Decoder, numbers_from_zero_wherever_the_counter_stands) {
  EXPECT_THAT(numbers_for({0}, 0), ElementsAre(0));
  EXPECT_THAT(numbers_for({1}, 0), ElementsAre(0));
  EXPECT_THAT(numbers_for({65534}, 0), ElementsAre(0));
}

TEST(Decoder, counts_cycles_skipped_by_the_counter) {
  EXPECT_THAT(numbers_for({5, 8}, 2), ElementsAre(0, 3));
  EXPECT_THAT(numbers_for({5, 8, 9, 11}, 3), ElementsAre(0, 3, 4, 6));
}

TEST(Decoder, goes_on_counting_where_the_counter_wraps) {
  EXPECT_THAT(numbers_for({65534, 65535, 0, 1}, 0), ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(numbers_for({65533, 1}, 3), ElementsAre(0, 4));
}

TEST(Decoder, takes_a_jump_backwards_for_a_long_one_forwards) {
  EXPECT_THAT(numbers_for({10, 9}, 65534), ElementsAre(0, 65535));
  EXPECT_THAT(numbers_for({10, 9, 10}, 65534), ElementsAre(0, 65535, 65536));
}

TEST(Decoder, ignores_repeated_counters) {
  EXPECT_THAT(numbers_for({10, 10, 10, 11, 11, 10}, 65534), ElementsAre(0, 1, 65536));
}

TEST(Decoder, takes_a_first_counter_of_65535_for_a_repetition) {
  EXPECT_THAT(numbers_for({65535}, 0), ElementsAre());
  EXPECT_THAT(numbers_for({65535, 65535, 0, 1}, 0), ElementsAre(0, 1));
  EXPECT_THAT(numbers_for({65535, 20, 21}, 0), ElementsAre(0, 1));
}

TEST(Decoder, numbers_beyond_the_counters_range) {
  Stream stream;
  for (int cycle = 0; cycle < 70'000; ++cycle) stream.feed(joint_packet(cycle % 65536));
  EXPECT_EQ(stream.frames.size(), 70'000U);
  EXPECT_EQ(stream.frames.back().seq, 69'999U);
  EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
}

TEST(Decoder, sums_drops_beyond_the_counters_range) {
  Stream stream;
  for (int cycle = 0; cycle < 100; ++cycle) stream.feed(joint_packet((100 - cycle) % 65536));
  EXPECT_EQ(stream.frames.back().seq, 99U * 65535U);
  EXPECT_EQ(stream.decoder.dropped_cycles(), 99U * 65534U);
}

// Silence.

TEST(Decoder, is_not_silent_before_there_is_joint_data) {
  Stream stream;
  EXPECT_TRUE(stream.check_silence(std::chrono::hours(1)));
  stream.feed(packet(1, payload({pressure_block(0, {1, 1, 1, 1, 1, 1})})), std::chrono::hours(1));
  EXPECT_TRUE(stream.check_silence(std::chrono::hours(2)));
  EXPECT_TRUE(stream.frames.empty());
}

TEST(Decoder, repeats_the_last_frame_after_61_ms_of_silence) {
  Stream stream;
  stream.feed(join({joint_packet(4), joint_packet(6, 100)}));
  EXPECT_TRUE(stream.check_silence(nanoseconds(60'999'999)));
  EXPECT_EQ(stream.frames.size(), 2U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(61'000'000)));
  ASSERT_EQ(stream.frames.size(), 3U);
  const Frame& stale = stream.frames[2];
  EXPECT_TRUE(stale.stale);
  EXPECT_EQ(stale.seq, 2U);
  EXPECT_EQ(stale.t, moment(nanoseconds(61'000'000)).wall);
  EXPECT_EQ(bits(stale.q[0]), 0x3C8EFA35U);
  EXPECT_EQ(stream.decoder.dropped_cycles(), 1U);
}

TEST(Decoder, carries_every_channel_in_a_repetition) {
  Stream stream;
  stream.feed(kTwoPackets);
  ASSERT_TRUE(stream.check_silence(nanoseconds(61'000'000)));
  ASSERT_EQ(stream.frames.size(), 3U);
  Frame stale = stream.frames[2];
  EXPECT_TRUE(stale.stale);
  stale.stale = false;
  EXPECT_TRUE(same_values(stale, stream.frames[1]));
}

TEST(Decoder, brings_what_has_come_since_in_a_repetition) {
  Stream stream;
  stream.feed(joint_packet(4));
  stream.feed(packet(5, payload({pressure_block(0, {100, 0, 0, 0, 0, 0})})), nanoseconds(1));
  ASSERT_TRUE(stream.check_silence(nanoseconds(61'000'000)));
  ASSERT_EQ(stream.frames.size(), 2U);
  EXPECT_TRUE(stream.frames[1].stale);
  EXPECT_EQ(stream.frames[1].touch[0], 1.0F);
}

TEST(Decoder, repeats_every_61_ms) {
  Stream stream;
  stream.feed(joint_packet(0));
  EXPECT_TRUE(stream.check_silence(nanoseconds(100'000'000)));
  EXPECT_EQ(stream.frames.size(), 2U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(160'999'999)));
  EXPECT_EQ(stream.frames.size(), 2U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(161'000'000)));
  EXPECT_EQ(stream.frames.size(), 3U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(161'000'000)));
  EXPECT_EQ(stream.frames.size(), 3U);
}

TEST(Decoder, is_silent_for_good_after_1501_ms) {
  Stream stream;
  stream.feed(joint_packet(0), nanoseconds(7));
  EXPECT_TRUE(stream.check_silence(nanoseconds(1'501'000'006)));
  EXPECT_EQ(stream.frames.size(), 2U);
  EXPECT_FALSE(stream.check_silence(nanoseconds(1'501'000'007)));
  // The end brings no further repetition.
  EXPECT_EQ(stream.frames.size(), 2U);
}

TEST(Decoder, stays_with_the_stream_until_1501_ms_are_full) {
  Stream stream;
  stream.feed(joint_packet(0));
  EXPECT_TRUE(stream.check_silence(nanoseconds(1'500'000'000)));
  EXPECT_TRUE(stream.check_silence(nanoseconds(1'500'999'999)));
  EXPECT_FALSE(stream.check_silence(nanoseconds(1'501'000'000)));
}

TEST(Decoder, ends_the_stream_although_it_repeats_frames) {
  Stream stream;
  stream.feed(joint_packet(0));
  int checks = 0;
  while (stream.check_silence((checks + 1) * nanoseconds(61'000'000))) ++checks;
  // 24 times 61 ms are 1464 ms, 25 times are 1525 ms.
  EXPECT_EQ(checks, 24);
  EXPECT_EQ(stream.frames.size(), 25U);
}

TEST(Decoder, starts_anew_with_every_new_cycle) {
  Stream stream;
  stream.feed(joint_packet(0));
  stream.feed(joint_packet(1), nanoseconds(1'400'000'000));
  EXPECT_TRUE(stream.check_silence(nanoseconds(1'460'999'999)));
  EXPECT_EQ(stream.frames.size(), 2U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(2'900'999'999)));
  EXPECT_FALSE(stream.check_silence(nanoseconds(2'901'000'000)));
}

TEST(Decoder, goes_on_after_repetitions) {
  Stream stream;
  stream.feed(joint_packet(10));
  EXPECT_TRUE(stream.check_silence(nanoseconds(61'000'000)));
  stream.feed(joint_packet(11), nanoseconds(62'000'000));
  EXPECT_THAT(stream.numbers(), ElementsAre(0, 0, 1));
  EXPECT_FALSE(stream.frames[2].stale);
  EXPECT_EQ(stream.decoder.dropped_cycles(), 0U);
  EXPECT_TRUE(stream.check_silence(nanoseconds(122'999'999)));
  EXPECT_EQ(stream.frames.size(), 3U);
}

TEST(Decoder, does_not_take_packets_without_a_new_cycle_for_data) {
  Stream stream;
  stream.feed(joint_packet(3));
  stream.feed(joint_packet(3), nanoseconds(1'400'000'000));
  stream.feed(packet(4, payload({inertial_block(0, {{1}})})), nanoseconds(1'450'000'000));
  stream.feed(Bytes(100, 0x00), nanoseconds(1'480'000'000));
  EXPECT_TRUE(stream.check_silence(nanoseconds(1'500'999'999)));
  EXPECT_FALSE(stream.check_silence(nanoseconds(1'501'000'000)));
}

}  // namespace
}  // namespace tarsil::detail
