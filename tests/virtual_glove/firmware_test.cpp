// The glove's behaviour in a time of the test's own.
#include "tools/virtual_glove/firmware.h"

#include <gtest/gtest.h>

#include "tests/virtual_glove/host.h"

namespace tarsil::virtual_glove {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const Bytes kIdentity = {0xC1, 0x40, 0x52, 0x53, 'V', 'I', 'R', 'T', 'U', 'A', 'L', 0, 12, 'T',
                         'S',  'L',  '-',  'V',  'G', '0', '0', '0', '0', '0', '1', 1, 4,  0xBE};

// A firmware that a host has just opened, and the clock on its wall.
class Bench {
 public:
  explicit Bench(GloveConfig config = {}) : firmware_(config, account_) {
    firmware_.power_on();
    open();
  }

  Firmware& firmware() { return firmware_; }
  const Account& account() const { return account_; }
  TimePoint now() const { return now_; }

  void open() {
    ++account_.hosts_open;
    firmware_.host_opened(now_);
  }
  void close() {
    --account_.hosts_open;
    firmware_.host_closed();
  }
  void command(std::uint8_t byte) { firmware_.command(byte, now_); }
  void pass(Clock::duration time) { now_ += time; }

  // When the firmware next has something to say, from now on; negative if it never does.
  milliseconds due_in() const {
    const auto due = firmware_.next_due();
    if (!due) return milliseconds(-1);
    return std::chrono::duration_cast<milliseconds>(std::max(*due, now_) - now_);
  }

  Bytes transmit() {
    Bytes bytes;
    for (const Bytes& piece : firmware_.transmit(now_).pieces)
      bytes.insert(bytes.end(), piece.begin(), piece.end());
    return bytes;
  }

  // Everything that is due until the end of `time`, each at its moment.
  Bytes run(Clock::duration time) {
    const TimePoint end = now_ + time;
    Bytes all;
    for (auto due = firmware_.next_due(); due && *due <= end; due = firmware_.next_due()) {
      now_ = std::max(now_, *due);
      const Bytes bytes = transmit();
      all.insert(all.end(), bytes.begin(), bytes.end());
    }
    now_ = end;
    return all;
  }

 private:
  Account account_;
  Firmware firmware_;
  TimePoint now_ = TimePoint{} + std::chrono::hours(1);
};

GloveConfig at_100_hz() {
  GloveConfig config;
  config.hz = 100;
  return config;
}

TEST(Firmware, says_nothing_unasked) {
  Bench bench;
  EXPECT_EQ(bench.firmware().next_due(), std::nullopt);
  EXPECT_EQ(bench.run(seconds(10)), Bytes{});
}

TEST(Firmware, answers_a_reset_with_its_identity_at_once) {
  Bench bench;
  bench.command(0xFF);
  EXPECT_EQ(bench.due_in(), milliseconds(0));
  EXPECT_EQ(bench.transmit(), kIdentity);
  EXPECT_EQ(bench.firmware().next_due(), std::nullopt);
  EXPECT_EQ(bench.account().resets, 1U);
  EXPECT_EQ(bench.account().identities, 1U);
}

TEST(Firmware, answers_every_reset) {
  Bench bench;
  bench.command(0xFF);
  bench.command(0xFF);
  EXPECT_EQ(bench.run(seconds(1)).size(), 2 * kIdentity.size());
}

TEST(Firmware, streams_cycle_after_cycle_from_the_start_command_on) {
  GloveConfig config = at_100_hz();
  config.left = true;
  config.seed = 11;
  Bench bench(config);
  bench.command(0xA5);
  EXPECT_EQ(bench.due_in(), milliseconds(0));
  const HandMotion motion(11, 100);
  for (std::uint16_t cycle = 0; cycle < 10; ++cycle) {
    EXPECT_EQ(bench.transmit(), encode_packet(1, 1, cycle, encode_payload(hand_blocks(motion.at(cycle)))));
    EXPECT_EQ(bench.due_in(), milliseconds(10));
    bench.pass(milliseconds(10));
  }
}

TEST(Firmware, reset_ends_the_stream_and_a_start_begins_again_at_cycle_zero) {
  Bench bench(at_100_hz());
  bench.command(0xA5);
  const Bytes first = bench.transmit();
  bench.run(milliseconds(55));
  bench.command(0xFF);
  EXPECT_EQ(bench.run(seconds(1)), kIdentity);
  bench.command(0xA5);
  EXPECT_EQ(bench.transmit(), first);
}

TEST(Firmware, start_while_streaming_begins_again_at_cycle_zero) {
  Bench bench(at_100_hz());
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(milliseconds(25))), (std::vector<std::uint16_t>{0, 1, 2}));
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(milliseconds(15))), (std::vector<std::uint16_t>{0, 1}));
}

TEST(Firmware, counter_begins_where_configured_and_wraps) {
  GloveConfig config = at_100_hz();
  config.first_counter = 65534;
  Bench bench(config);
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(milliseconds(35))), (std::vector<std::uint16_t>{65534, 65535, 0, 1}));
}

TEST(Firmware, other_bytes_are_ignored_and_counted) {
  Bench bench;
  for (const std::uint8_t byte : Bytes{0x00, 0xA4, 0xFE, 0x01}) bench.command(byte);
  EXPECT_EQ(bench.firmware().next_due(), std::nullopt);
  EXPECT_EQ(bench.account().commands_ignored, 4U);
}

TEST(Firmware, stops_when_the_host_leaves) {
  Bench bench(at_100_hz());
  bench.command(0xFF);
  bench.command(0xA5);
  bench.close();
  EXPECT_EQ(bench.firmware().next_due(), std::nullopt);
  EXPECT_FALSE(bench.account().streaming);
}

TEST(Firmware, announces_itself_every_200_ms_while_a_host_listens_until_started) {
  GloveConfig config = at_100_hz();
  config.announce = true;
  Bench bench(config);
  EXPECT_EQ(bench.due_in(), milliseconds(150));
  EXPECT_EQ(bench.run(milliseconds(999)).size(), 5 * kIdentity.size());
  bench.close();
  EXPECT_EQ(bench.run(seconds(5)), Bytes{});
  bench.open();
  EXPECT_EQ(bench.run(milliseconds(151)), kIdentity);
  bench.command(0xA5);
  EXPECT_EQ(packets_in(bench.run(milliseconds(995))).size(), 100U);
  EXPECT_EQ(bench.account().identities, 6U);
}

TEST(Firmware, sends_late_cycles_back_to_back) {
  Bench bench(at_100_hz());
  bench.command(0xA5);
  bench.transmit();
  bench.pass(milliseconds(500));
  for (int owed = 0; owed < 50; ++owed) {
    EXPECT_EQ(bench.due_in(), milliseconds(0)) << owed;
    bench.transmit();
  }
  EXPECT_EQ(bench.due_in(), milliseconds(10));
}

TEST(Firmware, writes_off_a_lag_of_more_than_a_second_without_losing_a_cycle) {
  Bench bench(at_100_hz());
  bench.command(0xA5);
  bench.transmit();
  bench.pass(seconds(2));
  EXPECT_EQ(counters_in(bench.transmit()), std::vector<std::uint16_t>{1});
  EXPECT_EQ(bench.due_in(), milliseconds(10));
  EXPECT_EQ(bench.account().cycles, 2U);
}

TEST(Firmware, falls_silent_after_the_last_frame_but_still_answers) {
  GloveConfig config = at_100_hz();
  config.frames = 5;
  Bench bench(config);
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(milliseconds(25))), (std::vector<std::uint16_t>{0, 1, 2}));
  EXPECT_FALSE(bench.account().exhausted);
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(seconds(1))), (std::vector<std::uint16_t>{0, 1}));
  EXPECT_TRUE(bench.account().exhausted);
  bench.command(0xFF);
  bench.command(0xA5);
  EXPECT_EQ(bench.run(seconds(1)), kIdentity);
  EXPECT_EQ(bench.account().cycles, 5U);
}

TEST(Firmware, lost_cycles_advance_the_counter_and_the_account) {
  GloveConfig config = at_100_hz();
  config.faults = {{FaultKind::lost_cycles, 0.2}};
  Bench bench(config);
  bench.command(0xA5);
  const std::vector<std::uint16_t> counters = counters_in(bench.run(milliseconds(9995)));
  EXPECT_EQ(bench.account().cycles, 1000U);
  EXPECT_GT(bench.account().cycles_lost, 100U);
  EXPECT_EQ(counters.size() + bench.account().cycles_lost, 1000U);
  EXPECT_GE(counters.back(), 990);
  EXPECT_LE(bench.account().faults[0], bench.account().cycles_lost);
}

TEST(Firmware, silence_pauses_sampling_and_the_counter) {
  GloveConfig config = at_100_hz();
  config.faults = {{FaultKind::silence, 0, 0.05, 2}};
  Bench bench(config);
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(milliseconds(60))), (std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(bench.due_in(), milliseconds(1990));
  EXPECT_EQ(bench.run(milliseconds(1989)), Bytes{});
  EXPECT_EQ(counters_in(bench.run(milliseconds(25))), (std::vector<std::uint16_t>{6, 7, 8}));
}

TEST(Firmware, commands_in_a_silence_are_answered_when_it_is_over) {
  GloveConfig config = at_100_hz();
  config.faults = {{FaultKind::silence, 0, 0, 2}};
  Bench bench(config);
  bench.command(0xA5);
  bench.transmit();
  bench.command(0xFF);
  EXPECT_EQ(bench.due_in(), milliseconds(2000));
  EXPECT_EQ(bench.run(seconds(3)), kIdentity);
}

TEST(Firmware, silence_outlasts_the_host) {
  GloveConfig config = at_100_hz();
  config.faults = {{FaultKind::silence, 0, 0, 2}};
  Bench bench(config);
  bench.command(0xA5);
  bench.transmit();
  bench.command(0xA5);
  bench.close();
  bench.open();
  bench.command(0xFF);
  EXPECT_EQ(bench.due_in(), milliseconds(2000));
  EXPECT_EQ(bench.run(seconds(3)), kIdentity);
  EXPECT_EQ(bench.account().starts, 1U);
}

TEST(Firmware, hung_glove_answers_nothing_until_it_gets_power_again) {
  GloveConfig config = at_100_hz();
  config.faults = {{FaultKind::hang, 0, 0.03}};
  Bench bench(config);
  bench.command(0xA5);
  EXPECT_EQ(counters_in(bench.run(seconds(1))), (std::vector<std::uint16_t>{0, 1, 2, 3}));
  EXPECT_TRUE(bench.account().hung);
  bench.command(0xFF);
  bench.close();
  bench.open();
  bench.command(0xFF);
  EXPECT_EQ(bench.run(seconds(10)), Bytes{});
  bench.firmware().power_on();
  bench.command(0xFF);
  bench.command(0xA5);
  EXPECT_EQ(packets_in(bench.run(milliseconds(95))).size(), 10U);
  EXPECT_FALSE(bench.account().hung);
}

}  // namespace
}  // namespace tarsil::virtual_glove
