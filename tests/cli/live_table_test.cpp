// The live display as text: rows and tables to the byte, and what is drawn when.
#include "tarsil/cli/live_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <locale>
#include <string>
#include <vector>

namespace tarsil::cli {
namespace {

using detail::SteadyTime;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Verdict = LiveTable::Verdict;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

const std::string kEraseConnectLine = "\x1b[1A\x1b[2K";
const std::string kEraseTable = "\x1b[8A\x1b[J";

/// Joints from -0.4 rad on in steps of 0.1, pads from 0 on in steps of 0.01.
Frame hand(std::size_t joints, std::size_t pads) {
  Frame frame;
  frame.t = 12.5;
  for (std::size_t i = 0; i < joints; ++i) frame.q.push_back((static_cast<float>(i) - 4.0F) / 10.0F);
  for (std::size_t i = 0; i < pads; ++i) frame.touch.push_back(static_cast<float>(i) / 100.0F);
  return frame;
}

Frame repeated(Frame frame) {
  frame.stale = true;
  return frame;
}

/// Numbers with a decimal comma and grouped digits.
class CommaNumbers : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(RawHeading, names_the_columns_and_underlines_them) {
  EXPECT_EQ(raw_heading(),
            "             t      q[0]      q[1]  touch[0]\n"
            "--------------------------------------------\n");
}

TEST(RawRow, shows_time_two_joints_and_a_pad) {
  Frame frame;
  frame.t = 1700000000.12345;
  frame.q = {0.12345F, -1.5F, 9.0F};
  frame.touch = {0.75F, 0.5F};
  EXPECT_EQ(raw_row(frame), "1700000000.1235    0.1235   -1.5000    0.7500\n");
}

TEST(RawRow, leaves_angles_in_radians_and_does_not_tell_repetitions) {
  Frame frame;
  frame.t = 1.0;
  frame.q = {1.0F, 2.0F};
  frame.touch = {1.0F};
  EXPECT_EQ(raw_row(frame), "        1.0000    1.0000    2.0000    1.0000\n");
  EXPECT_EQ(raw_row(repeated(frame)), raw_row(frame));
}

TEST(RawRow, shows_0_for_what_the_frame_does_not_carry) {
  Frame frame;
  EXPECT_EQ(raw_row(frame), "        0.0000    0.0000    0.0000    0.0000\n");
  frame.q = {0.5F};
  EXPECT_EQ(raw_row(frame), "        0.0000    0.5000    0.0000    0.0000\n");
  frame.touch = {0.25F};
  EXPECT_EQ(raw_row(frame), "        0.0000    0.5000    0.0000    0.2500\n");
}

TEST(RawRow, never_cuts_a_number) {
  Frame frame;
  frame.t = 123456789012345.0;
  frame.q = {1234567.0F, -1234567.0F};
  frame.touch = {12345.0F};
  EXPECT_EQ(raw_row(frame), "123456789012345.00001234567.0000-1234567.000012345.0000\n");
}

TEST(RawRow, writes_what_is_no_number_in_words) {
  Frame frame;
  frame.q = {kNan, -kInfinity};
  frame.touch = {kInfinity};
  EXPECT_EQ(raw_row(frame), "        0.0000       nan      -inf       inf\n");
}

TEST(TableText, shows_six_pads_a_finger_for_thirty) {
  Frame frame = hand(20, 30);
  frame.t = 1700000000.1239;
  EXPECT_EQ(table_text(frame, 1),
            "── frame 1  t=1700000000.124  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4 pad5\n"
            "  ---------------------------------------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         | 0.00 0.01 0.02 0.03 0.04 0.05\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         | 0.06 0.07 0.08 0.09 0.10 0.11\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         | 0.12 0.13 0.14 0.15 0.16 0.17\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         | 0.18 0.19 0.20 0.21 0.22 0.23\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         | 0.24 0.25 0.26 0.27 0.28 0.29\n");
}

TEST(TableText, shows_no_more_than_six_pads_a_finger) {
  EXPECT_EQ(table_text(hand(20, 36), 42),
            "── frame 42  t=12.500  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4 pad5\n"
            "  ---------------------------------------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         | 0.00 0.01 0.02 0.03 0.04 0.05\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         | 0.06 0.07 0.08 0.09 0.10 0.11\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         | 0.12 0.13 0.14 0.15 0.16 0.17\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         | 0.18 0.19 0.20 0.21 0.22 0.23\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         | 0.24 0.25 0.26 0.27 0.28 0.29\n");
}

TEST(TableText, shows_five_pads_a_finger_for_twenty_nine_at_a_stride_of_six) {
  EXPECT_EQ(table_text(hand(20, 29), 42),
            "── frame 42  t=12.500  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4\n"
            "  ----------------------------------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         | 0.00 0.01 0.02 0.03 0.04\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         | 0.06 0.07 0.08 0.09 0.10\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         | 0.12 0.13 0.14 0.15 0.16\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         | 0.18 0.19 0.20 0.21 0.22\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         | 0.24 0.25 0.26 0.27 0.28\n");
}

TEST(TableText, shows_four_pads_a_finger_for_twenty_at_a_stride_of_six) {
  EXPECT_EQ(table_text(hand(20, 20), 42),
            "── frame 42  t=12.500  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3\n"
            "  -----------------------------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         | 0.00 0.01 0.02 0.03\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         | 0.06 0.07 0.08 0.09\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         | 0.12 0.13 0.14 0.15\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         | 0.18 0.19 0.00 0.00\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         | 0.00 0.00 0.00 0.00\n");
}

TEST(TableText, shows_no_pads_for_fewer_than_five) {
  EXPECT_EQ(table_text(hand(20, 4), 42),
            "── frame 42  t=12.500  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  |\n"
            "  ---------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         |\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         |\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         |\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         |\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         |\n");
}

TEST(TableText, shows_the_same_without_any_pads_as_with_four) {
  EXPECT_EQ(table_text(hand(20, 0), 42), table_text(hand(20, 4), 42));
}

TEST(TableText, shows_the_same_for_more_than_thirty_pads_as_for_thirty) {
  EXPECT_EQ(table_text(hand(20, 31), 42), table_text(hand(20, 30), 42));
}

TEST(TableText, shows_0_for_joints_that_the_frame_does_not_carry) {
  Frame frame;
  frame.q = {0.5F, 0.5F, 0.5F, 0.5F, 0.5F, 0.5F};
  frame.touch = {0.25F, 0.25F, 0.25F, 0.25F, 0.25F};
  EXPECT_EQ(table_text(frame, 7),
            "── frame 7  t=0.000  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0\n"
            "  --------------------------------------------------------\n"
            "  thumb |   28.6°   28.6°   28.6°   28.6°         | 0.25\n"
            "  index |   28.6°   28.6°    0.0°    0.0°         | 0.00\n"
            "  middl |    0.0°    0.0°    0.0°    0.0°         | 0.00\n"
            "  ring  |    0.0°    0.0°    0.0°    0.0°         | 0.00\n"
            "  pinky |    0.0°    0.0°    0.0°    0.0°         | 0.00\n");
}

TEST(TableText, shows_an_empty_frame) {
  EXPECT_EQ(table_text(Frame{}, 1),
            "── frame 1  t=0.000  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  |\n"
            "  ---------------------------------------------------\n"
            "  thumb |    0.0°    0.0°    0.0°    0.0°         |\n"
            "  index |    0.0°    0.0°    0.0°    0.0°         |\n"
            "  middl |    0.0°    0.0°    0.0°    0.0°         |\n"
            "  ring  |    0.0°    0.0°    0.0°    0.0°         |\n"
            "  pinky |    0.0°    0.0°    0.0°    0.0°         |\n");
}

TEST(TableText, ignores_joints_beyond_twenty) {
  Frame frame;
  frame.q.assign(24, 1.0F);
  EXPECT_EQ(table_text(frame, 1),
            "── frame 1  t=0.000  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  |\n"
            "  ---------------------------------------------------\n"
            "  thumb |   57.3°   57.3°   57.3°   57.3°         |\n"
            "  index |   57.3°   57.3°   57.3°   57.3°         |\n"
            "  middl |   57.3°   57.3°   57.3°   57.3°         |\n"
            "  ring  |   57.3°   57.3°   57.3°   57.3°         |\n"
            "  pinky |   57.3°   57.3°   57.3°   57.3°         |\n");
}

TEST(TableText, marks_a_repetition) {
  EXPECT_EQ(table_text(repeated(hand(20, 5)), 1000000),
            "── frame 1000000  t=12.500  stale=yes\n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0\n"
            "  --------------------------------------------------------\n"
            "  thumb |  -22.9°  -17.2°  -11.5°   -5.7°         | 0.00\n"
            "  index |    0.0°    5.7°   11.5°   17.2°         | 0.00\n"
            "  middl |   22.9°   28.6°   34.4°   40.1°         | 0.00\n"
            "  ring  |   45.8°   51.6°   57.3°   63.0°         | 0.00\n"
            "  pinky |   68.8°   74.5°   80.2°   85.9°         | 0.00\n");
}

TEST(TableText, never_cuts_a_number_and_writes_what_is_none_in_words) {
  Frame frame;
  frame.t = 123456789012.5;
  frame.q = {1000.0F, -1000.0F, 1e6F, -1e6F, kInfinity, -kInfinity, kNan, -0.0F, 0.0008F, -0.0008F};
  frame.touch.assign(30, 0.0F);
  const std::vector<float> first_pads{123.456F, -1.5F,  kInfinity, kNan,   1.0F,
                                      0.994F,   0.995F, 0.996F,    -0.001F};
  std::copy(first_pads.begin(), first_pads.end(), frame.touch.begin());
  EXPECT_EQ(table_text(frame, std::numeric_limits<std::int64_t>::max()),
            "── frame 9223372036854775807  t=123456789012.500  stale=no \n"
            "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4 pad5\n"
            "  ---------------------------------------------------------------------------------\n"
            "  thumb |57295.8°-57295.8°57295779.5°-57295779.5°         | 123.46 -1.50  inf  nan 1.00 0.99\n"
            "  index |    inf°   -inf°    nan°   -0.0°         | 1.00 1.00 -0.00 0.00 0.00 0.00\n"
            "  middl |    0.0°   -0.0°    0.0°    0.0°         | 0.00 0.00 0.00 0.00 0.00 0.00\n"
            "  ring  |    0.0°    0.0°    0.0°    0.0°         | 0.00 0.00 0.00 0.00 0.00 0.00\n"
            "  pinky |    0.0°    0.0°    0.0°    0.0°         | 0.00 0.00 0.00 0.00 0.00 0.00\n");
}

TEST(TableText, knows_no_locale) {
  const Frame frame = hand(20, 30);
  const std::string table = table_text(frame, 1234567);
  const std::string row = raw_row(frame);
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  const std::string table_with_commas = table_text(frame, 1234567);
  const std::string row_with_commas = raw_row(frame);
  std::locale::global(before);
  EXPECT_EQ(table_with_commas, table);
  EXPECT_EQ(row_with_commas, row);
  EXPECT_EQ(table.substr(0, table.find('\n')), "── frame 1234567  t=12.500  stale=no ");
}

/// A display with frames and times given to it.
class LiveTableTest : public testing::Test {
 protected:
  LiveTable::Step take(LiveTable& table, const Frame& frame, nanoseconds since_start) const {
    return table.take(frame, start_ + since_start);
  }
  [[nodiscard]] LiveTable make(std::int32_t limit) const { return LiveTable(limit, start_); }

  const SteadyTime start_{seconds(1000)};
  const Frame frame_ = hand(20, 30);
};

TEST_F(LiveTableTest, draws_the_first_frame_at_once_over_the_connect_line) {
  LiveTable table = make(0);
  const auto step = take(table, frame_, nanoseconds(0));
  EXPECT_EQ(step.verdict, Verdict::go_on);
  EXPECT_EQ(step.screen, kEraseConnectLine + table_text(frame_, 1));
}

TEST_F(LiveTableTest, draws_later_tables_over_the_one_before) {
  LiveTable table = make(0);
  take(table, frame_, seconds(0));
  EXPECT_EQ(take(table, frame_, seconds(1)).screen, kEraseTable + table_text(frame_, 2));
  EXPECT_EQ(take(table, frame_, seconds(2)).screen, kEraseTable + table_text(frame_, 3));
}

TEST_F(LiveTableTest, waits_a_fifteenth_of_a_second_between_tables) {
  LiveTable table = make(0);
  take(table, frame_, nanoseconds(0));
  EXPECT_EQ(take(table, frame_, nanoseconds(1)).screen, "");
  EXPECT_EQ(take(table, frame_, nanoseconds(66'666'666)).screen, "");
  EXPECT_EQ(take(table, frame_, nanoseconds(66'666'667)).screen, kEraseTable + table_text(frame_, 4));
}

TEST_F(LiveTableTest, counts_the_wait_from_the_last_table_and_not_from_the_last_frame) {
  LiveTable table = make(0);
  take(table, frame_, milliseconds(0));
  EXPECT_EQ(take(table, frame_, milliseconds(40)).screen, "");
  EXPECT_EQ(take(table, frame_, milliseconds(80)).screen, kEraseTable + table_text(frame_, 3));
  EXPECT_EQ(take(table, frame_, milliseconds(120)).screen, "");
  EXPECT_EQ(take(table, frame_, milliseconds(146)).screen, "");
  EXPECT_EQ(take(table, frame_, milliseconds(147)).screen, kEraseTable + table_text(frame_, 6));
}

TEST_F(LiveTableTest, draws_every_seventh_frame_at_100_hz) {
  LiveTable table = make(0);
  std::vector<int> drawn;
  for (int i = 1; i <= 100; ++i) {
    if (!take(table, frame_, milliseconds(10 * i)).screen.empty()) drawn.push_back(i);
  }
  EXPECT_EQ(drawn, (std::vector<int>{1, 8, 15, 22, 29, 36, 43, 50, 57, 64, 71, 78, 85, 92, 99}));
}

TEST_F(LiveTableTest, skips_five_repetitions_at_the_start_and_gives_up_at_the_sixth) {
  LiveTable table = make(0);
  for (int i = 1; i <= 5; ++i) {
    const auto step = take(table, repeated(frame_), seconds(i));
    EXPECT_EQ(step.verdict, Verdict::go_on) << i;
    EXPECT_EQ(step.screen, "") << i;
  }
  const auto step = take(table, repeated(frame_), seconds(6));
  EXPECT_EQ(step.verdict, Verdict::no_data);
  EXPECT_EQ(step.screen, "");
}

TEST_F(LiveTableTest, does_not_count_the_repetitions_that_it_skips) {
  LiveTable table = make(0);
  for (int i = 1; i <= 5; ++i) take(table, repeated(frame_), seconds(i));
  EXPECT_EQ(take(table, frame_, seconds(6)).screen, kEraseConnectLine + table_text(frame_, 1));
}

TEST_F(LiveTableTest, does_not_count_skipped_repetitions_towards_the_limit) {
  LiveTable table = make(2);
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(take(table, repeated(frame_), seconds(i)).verdict, Verdict::go_on) << i;
  }
  EXPECT_EQ(take(table, frame_, seconds(6)).verdict, Verdict::go_on);
  EXPECT_EQ(take(table, frame_, seconds(7)).verdict, Verdict::done);
}

TEST_F(LiveTableTest, draws_repetitions_once_a_fresh_frame_was_counted) {
  LiveTable table = make(0);
  take(table, frame_, seconds(0));
  for (int i = 1; i <= 10; ++i) {
    const auto step = take(table, repeated(frame_), seconds(i));
    EXPECT_EQ(step.verdict, Verdict::go_on) << i;
    EXPECT_EQ(step.screen, kEraseTable + table_text(repeated(frame_), i + 1)) << i;
    EXPECT_NE(step.screen.find("  stale=yes\n"), std::string::npos) << i;
  }
}

TEST_F(LiveTableTest, draws_nothing_for_a_limit_of_1) {
  LiveTable table = make(1);
  const auto step = take(table, frame_, seconds(0));
  EXPECT_EQ(step.verdict, Verdict::done);
  EXPECT_EQ(step.screen, "");
}

TEST_F(LiveTableTest, draws_all_but_the_last_frame_of_a_limit) {
  LiveTable table = make(3);
  EXPECT_EQ(take(table, frame_, seconds(0)).screen, kEraseConnectLine + table_text(frame_, 1));
  EXPECT_EQ(take(table, frame_, seconds(1)).screen, kEraseTable + table_text(frame_, 2));
  const auto last = take(table, frame_, seconds(2));
  EXPECT_EQ(last.verdict, Verdict::done);
  EXPECT_EQ(last.screen, "");
}

TEST_F(LiveTableTest, counts_frames_that_it_does_not_draw_towards_the_limit) {
  LiveTable table = make(3);
  EXPECT_EQ(take(table, frame_, milliseconds(0)).verdict, Verdict::go_on);
  EXPECT_EQ(take(table, frame_, milliseconds(1)).verdict, Verdict::go_on);
  EXPECT_EQ(take(table, frame_, milliseconds(2)).verdict, Verdict::done);
}

TEST_F(LiveTableTest, goes_on_without_end_for_a_limit_of_0_or_less) {
  for (const std::int32_t limit : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    LiveTable table = make(limit);
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(take(table, frame_, milliseconds(i)).verdict, Verdict::go_on) << limit;
    }
  }
}

TEST_F(LiveTableTest, shows_frames_of_changing_lengths) {
  LiveTable table = make(0);
  EXPECT_EQ(take(table, frame_, seconds(0)).screen, kEraseConnectLine + table_text(frame_, 1));
  EXPECT_EQ(take(table, Frame{}, seconds(1)).screen, kEraseTable + table_text(Frame{}, 2));
}

}  // namespace
}  // namespace tarsil::cli
