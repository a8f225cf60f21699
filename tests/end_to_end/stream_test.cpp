// `tarsil stream` on gloves that come, go, come back, and talk nonsense in between.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using std::chrono::steady_clock;
using virtual_glove::FaultKind;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};

/// For what has to be quick, on a machine that may not be.
constexpr std::chrono::seconds kPromptly{10};

const std::string kConnectLine = "Connecting to TSL-VG000001...\n";

double now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Rows of one connection: they skip cycles, for only the newest are kept, but never go back.
void expect_cycles_in_order(const std::vector<Row>& rows, HandText& hand) {
  std::uint64_t cycle = 0;
  double t = 0;
  for (const Row& row : rows) {
    const std::optional<std::uint64_t> found = hand.find(row.values, cycle);
    ASSERT_TRUE(found) << "behind cycle " << cycle << ": " << row.values;
    cycle = *found;
    EXPECT_GE(row.t, t);
    t = row.t;
  }
}

/// Rows or tables of several connections, each of which begins with cycle 0.
template <typename Shown>
void expect_cycles(const std::vector<Shown>& shown, HandText& hand, std::string Shown::*text) {
  for (const Shown& one : shown) ASSERT_TRUE(hand.find(one.*text)) << one.*text;
}

bool is_frozen(const std::vector<Row>& rows, double seconds) {
  return rows.size() > 1 && rows.back().values == rows[rows.size() - 2].values &&
         rows.back().t - rows[rows.size() - 2].t > seconds;
}

std::size_t files_of(const Process& process) {
  const auto directory = "/proc/" + std::to_string(process.pid()) + "/fd";
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

TEST(StreamRows, carry_the_values_that_the_glove_sent) {
  GloveProgram glove({"--hz", "200"});
  const double before = now();
  const Finished stream = run_tool({"stream", "--raw", "--count", "60", "--port", glove.port()});
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  const std::vector<Row> rows = rows_in(stream.output);
  ASSERT_EQ(rows.size(), 60U);
  EXPECT_GE(rows.front().t, before - 0.001);
  EXPECT_LE(rows.back().t, now() + 0.001);
  HandText hand({.hz = 200}, HandStyle::row);
  expect_cycles_in_order(rows, hand);
  const std::string account = glove.account();
  EXPECT_EQ(account_value(account, "resets"), 1U);
  EXPECT_EQ(account_value(account, "starts"), 1U);
  EXPECT_EQ(account_value(account, "commands_ignored"), 0U);
}

TEST(StreamRows, are_whole_behind_everything_that_a_line_can_add) {
  const GloveConfig config{.hz = 300,
                           .faults = {{.kind = FaultKind::garbage, .rate = 0.2},
                                      {.kind = FaultKind::splits, .rate = 0.2},
                                      {.kind = FaultKind::unknown_types, .rate = 0.2},
                                      {.kind = FaultKind::unknown_blocks, .rate = 0.2},
                                      {.kind = FaultKind::lost_cycles, .rate = 0.05}}};
  const VirtualGlove glove(config);
  const Finished stream = run_tool({"stream", "--raw", "--count", "200", "--port", glove.port()});
  EXPECT_EQ(stream.status, kSuccess);
  const std::vector<Row> rows = rows_in(stream.output);
  EXPECT_EQ(rows.size(), 200U);
  HandText hand(config, HandStyle::row);
  expect_cycles_in_order(rows, hand);
}

TEST(StreamRows, go_on_when_packets_are_damaged) {
  const VirtualGlove glove({.hz = 300,
                            .faults = {{.kind = FaultKind::lost_bytes, .rate = 0.2},
                                       {.kind = FaultKind::flipped_bits, .rate = 0.2},
                                       {.kind = FaultKind::truncated_blocks, .rate = 0.2}}});
  const Finished stream = run_tool({"stream", "--raw", "--count", "200", "--port", glove.port()});
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  const auto lines = std::count(stream.output.begin(), stream.output.end(), '\n');
  EXPECT_EQ(lines, 202);
}

TEST(StreamRows, arrive_before_the_program_ends) {
  const VirtualGlove glove({.hz = 20});
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  EXPECT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 2; }));
}

TEST(StreamRows, do_not_end_with_an_interrupt) {
  const VirtualGlove glove({.hz = 100});
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 2; }));
  stream.send_signal(SIGINT);
  stream.send_signal(SIGTERM);
  const std::size_t so_far = rows_in(stream.output()).size();
  EXPECT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= so_far + 20; }));
  stream.send_signal(SIGKILL);
  EXPECT_EQ(stream.wait(), (ExitStatus{-1, SIGKILL}));
}

TEST(StreamRows, end_the_usual_way_when_their_reader_leaves) {
  const VirtualGlove glove({.hz = 100});
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_for_output("-\n"));
  stream.close_output();
  EXPECT_EQ(stream.wait(), (ExitStatus{-1, SIGPIPE}));
}

TEST(StreamRows, repeat_while_the_glove_is_away_and_go_on_when_it_is_back) {
  const TempDirectory directory;
  const GloveConfig config{.link = directory.file("glove"), .hz = 50};
  VirtualGlove glove(config);
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 10; }));
  const std::size_t files = files_of(stream);

  glove.unplug();
  // At first the port's reader repeats the last frame many times a second; then it gives up, and there is one
  // every two seconds.
  ASSERT_TRUE(stream.wait_until([&] { return is_frozen(rows_in(stream.output()), 1.5); }));
  const std::vector<Row> before = rows_in(stream.output());
  const auto same = std::count_if(before.begin(), before.end(),
                                  [&](const Row& row) { return row.values == before.back().values; });
  EXPECT_GE(same, 5);

  glove.plug();
  ASSERT_TRUE(
      stream.wait_until([&] { return rows_in(stream.output()).back().values != before.back().values; }));
  EXPECT_EQ(files_of(stream), files);
  HandText hand(config, HandStyle::row);
  expect_cycles(rows_in(stream.output()), hand, &Row::values);
  EXPECT_EQ(stream.error(), "");
}

TEST(StreamRows, repeat_the_last_frame_of_a_glove_that_has_died) {
  const GloveProgram glove({"--hz", "100", "--fault", "hang@0.3"});
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_until([&] { return is_frozen(rows_in(stream.output()), 1.5); }));
  HandText hand({.hz = 100}, HandStyle::row);
  expect_cycles_in_order(rows_in(stream.output()), hand);
  EXPECT_EQ(stream.error(), "");
}

TEST(StreamRows, are_zeros_until_a_late_glove_appears) {
  const TempDirectory directory;
  const std::string port = directory.file("glove");
  Process stream(tool({"stream", "--raw", "--port", port}));
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() == 1; }));
  EXPECT_EQ(rows_in(stream.output()).front().values, "    0.0000    0.0000    0.0000");
  const VirtualGlove glove({.link = port, .hz = 100});
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 30; }));
  HandText hand({.hz = 100}, HandStyle::row);
  std::vector<Row> rows = rows_in(stream.output());
  std::erase_if(rows, [&](const Row& row) { return row.values == rows_in(stream.output()).front().values; });
  expect_cycles_in_order(rows, hand);
}

TEST(StreamRows, need_few_open_files_however_often_the_glove_is_replugged) {
  const TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove"), .hz = 50});
  ProcessOptions options = tool({"stream", "--raw", "--port", glove.port()});
  options.in_child = [] {
    const rlimit few{256, 256};
    setrlimit(RLIMIT_NOFILE, &few);
  };
  Process stream(options);
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 5; }));
  const std::size_t files = files_of(stream);
  EXPECT_LT(files, 16U);
  for (std::uint64_t connection = 2; connection <= 4; ++connection) {
    glove.unplug();
    glove.plug();
    ASSERT_TRUE(glove.wait_until(
        [&](const auto& account) { return account.starts == connection && account.packets > 0; }, kPatience));
    const std::size_t rows = rows_in(stream.output()).size();
    ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= rows + 5; }));
    EXPECT_EQ(files_of(stream), files);
  }
}

TEST(StreamTable, shows_what_the_glove_sent) {
  GloveProgram glove({"--hz", "200"});
  const auto begin = steady_clock::now();
  const Finished stream = run_tool({"stream", "--count", "200", "--port", glove.port()});
  const std::chrono::duration<double> took = steady_clock::now() - begin;
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  const std::vector<Table> tables = tables_in(stream.output, kConnectLine);
  ASSERT_GE(tables.size(), 2U);
  EXPECT_LE(static_cast<double>(tables.size()), took.count() * 15 + 2);
  EXPECT_EQ(tables.front().frame, 1);
  EXPECT_LT(tables.back().frame, 200);
  HandText hand({.hz = 200}, HandStyle::fingers);
  std::uint64_t cycle = 0;
  for (const Table& table : tables) {
    const auto found = hand.find(table.fingers, cycle);
    ASSERT_TRUE(found) << "behind cycle " << cycle << ":\n" << table.fingers;
    cycle = *found;
    // What is not drawn is counted, and what is dropped on the way is not.
    EXPECT_LE(table.frame, static_cast<std::int64_t>(cycle) + 1 + (table.stale ? 20 : 0));
  }
}

TEST(StreamTable, draws_nothing_with_a_limit_of_one_frame) {
  const VirtualGlove glove;
  const Finished stream = run_tool({"stream", "--count", "1", "--port", glove.port()});
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.output, kConnectLine);
}

class StreamTableEnd : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Signals, StreamTableEnd, testing::Values(SIGINT, SIGTERM));

TEST_P(StreamTableEnd, comes_well_and_soon_after_a_signal) {
  GloveProgram glove({"--hz", "200"});
  Process stream(tool({"stream", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_for_output("pinky"));
  stream.send_signal(GetParam());
  EXPECT_EQ(stream.wait(kPromptly), kSuccess);
  EXPECT_EQ(stream.error(), "");
}

TEST_P(StreamTableEnd, comes_well_and_soon_also_while_the_glove_is_away) {
  const TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove")});
  Process stream(tool({"stream", "--port", glove.port()}));
  ASSERT_TRUE(stream.wait_for_output("pinky"));
  glove.unplug();
  ASSERT_TRUE(stream.wait_for_output("stale=yes"));
  stream.send_signal(GetParam());
  EXPECT_EQ(stream.wait(kPromptly), kSuccess);
}

TEST_P(StreamTableEnd, comes_well_and_soon_also_before_there_was_a_glove) {
  const TempDirectory directory;
  Process stream(tool({"stream", "--port", directory.file("nothing")}));
  ASSERT_TRUE(stream.wait_for_output("...\n"));
  stream.send_signal(GetParam());
  EXPECT_EQ(stream.wait(kPromptly), kSuccess);
  EXPECT_EQ(stream.output(), "Connecting to TSL-nothing...\n");
  EXPECT_EQ(stream.error(), "");
}

TEST(StreamTable, says_stale_while_the_glove_is_away_and_no_longer_when_it_is_back) {
  const TempDirectory directory;
  const GloveConfig config{.link = directory.file("glove"), .hz = 100};
  VirtualGlove glove(config);
  Process stream(tool({"stream", "--port", glove.port()}));
  const auto tables = [&] { return tables_in(stream.output(), kConnectLine); };
  ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= 3; }));
  glove.unplug();
  ASSERT_TRUE(stream.wait_until([&] { return tables().back().stale; }));
  const Table frozen = tables().back();
  glove.plug();
  ASSERT_TRUE(
      stream.wait_until([&] { return !tables().back().stale && tables().back().fingers != frozen.fingers; }));
  HandText hand(config, HandStyle::fingers);
  expect_cycles(tables(), hand, &Table::fingers);
  EXPECT_GT(tables().back().frame, frozen.frame);
}

TEST(StreamTable, begins_when_a_late_glove_appears) {
  const TempDirectory directory;
  const std::string port = directory.file("late");
  Process stream(tool({"stream", "--port", port}));
  ASSERT_TRUE(stream.wait_for_output("Connecting to TSL-late...\n"));
  const VirtualGlove glove({.link = port, .hz = 100});
  const auto tables = [&] { return tables_in(stream.output(), "Connecting to TSL-late...\n"); };
  ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= 3; }));
  EXPECT_EQ(tables().front().frame, 1);
  EXPECT_FALSE(tables().front().stale);
}

}  // namespace
}  // namespace tarsil::test
