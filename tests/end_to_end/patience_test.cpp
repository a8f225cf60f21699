// How long the tool waits for a glove that is not there or says nothing, and what it says then.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/pty.h"

namespace tarsil::test {
namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// Clocks of different kinds need not agree to the millisecond.
constexpr auto kTolerance = 50ms;

const std::string kNoData = "\nNo data received. Check that the glove is powered on.\n";

TEST(Patience, of_the_table_is_six_waits_of_two_seconds_for_a_port_that_does_not_exist) {
  const TempDirectory directory;
  const auto begin = steady_clock::now();
  const Finished stream = run_tool({"stream", "--port", directory.file("nothing")}, 60s);
  EXPECT_GE(steady_clock::now() - begin, 12s - kTolerance);
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.output, "Connecting to TSL-nothing...\n");
  EXPECT_EQ(stream.error, kNoData);
}

TEST(Patience, of_the_table_on_a_silent_port_begins_after_the_wait_for_a_first_frame) {
  const virtual_glove::Pty silent;
  const auto begin = steady_clock::now();
  const Finished stream = run_tool({"stream", "--port", silent.path()}, 60s);
  EXPECT_GE(steady_clock::now() - begin, 17s - kTolerance);
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.output, "Connecting to ...\n");
  EXPECT_EQ(stream.error, kNoData);
}

TEST(Patience, of_rows_has_no_end_but_the_count) {
  const TempDirectory directory;
  const auto begin = steady_clock::now();
  const Finished stream =
      run_tool({"stream", "--raw", "--count", "7", "--port", directory.file("nothing")}, 60s);
  EXPECT_GE(steady_clock::now() - begin, 14s - kTolerance);
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  const auto rows = rows_in(stream.output);
  ASSERT_EQ(rows.size(), 7U);
  for (const Row& row : rows) EXPECT_EQ(row.values, "    0.0000    0.0000    0.0000");
}

TEST(Patience, of_a_recording_is_five_seconds_on_a_silent_port) {
  const TempDirectory directory;
  const virtual_glove::Pty silent;
  const auto begin = steady_clock::now();
  const Finished record = run_tool({"record", directory.file("take.tsl"), "--port", silent.path()}, 60s);
  EXPECT_GE(steady_clock::now() - begin, 5s - kTolerance);
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(record.output, "");
  EXPECT_EQ(record.error, "Error: No data received from " + silent.path() +
                              " within timeout. Check that the Tarsil glove is powered and sending data.\n");
  EXPECT_FALSE(std::filesystem::exists(directory.file("take.tsl")));
}

}  // namespace
}  // namespace tarsil::test
