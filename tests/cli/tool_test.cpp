// The built program, run as a person or a script would: statuses, both streams, signals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/tool.h"
#include "tarsil/core/device.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::cli {
namespace {

using std::chrono::milliseconds;
using test::ExitStatus;
using test::Finished;
using test::Process;
using test::ProcessOptions;
using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using virtual_glove::VirtualGlove;
using Clock = std::chrono::steady_clock;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

const std::string kUsage(usage());
const std::string kConnecting = "Connecting to MOCK-0001...\n";
const std::string kRawHeading =
    "             t      q[0]      q[1]  touch[0]\n"
    "--------------------------------------------\n";

// What the mock shows, as extended regular expressions. Present-day times are one column wider than theirs.
const std::string kValue = "( {4}| {3}-)[0-9]\\.[0-9]{4}";
const std::string kRow = "[0-9]{10}\\.[0-9]{4}" + kValue + kValue + kValue + "\n";
const std::string kFingerValues = " \\|([ 0-9.-]{7}°){4} {9}\\|( [01]\\.[0-9]{2}){6}\n";
const std::string kEraseConnectLine = "\x1b\\[1A\x1b\\[2K";
const std::string kEraseTable = "\x1b\\[8A\x1b\\[J";

/// A whole table whose number matches `number`.
std::string table_pattern(const std::string& number) {
  return "── frame " + number +
         "  t=[0-9]{10}\\.[0-9]{3}  stale=no \n"
         "  finger  \\|    MCPa    MCPf     PIP     DIP  \\(deg\\)  \\| pad0 pad1 pad2 pad3 pad4 pad5\n"
         "  -{81}\n"
         "  thumb" +
         kFingerValues + "  index" + kFingerValues + "  middl" + kFingerValues + "  ring " + kFingerValues +
         "  pinky" + kFingerValues;
}

/// The tool with arguments; a broken pipe ends it as it would from a shell, whatever runs this test.
ProcessOptions tool_options(std::vector<std::string> arguments) {
  ProcessOptions options;
  arguments.insert(arguments.begin(), TARSIL_TOOL);
  options.command = std::move(arguments);
  options.in_child = [] { signal(SIGPIPE, SIG_DFL); };
  return options;
}

Finished run_tool(std::vector<std::string> arguments) {
  return test::run(tool_options(std::move(arguments)));
}

std::ptrdiff_t lines(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

/// Standard output as a socket that keeps the writes apart.
class WriteRecorder {
 public:
  WriteRecorder() {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_.data()) != 0) {
      throw std::runtime_error("cannot make a socket");
    }
  }
  WriteRecorder(const WriteRecorder&) = delete;
  WriteRecorder& operator=(const WriteRecorder&) = delete;
  ~WriteRecorder() {
    for (const int end : ends_) ::close(end);
  }

  /// Starts the tool with its standard output here.
  [[nodiscard]] ProcessOptions attach(ProcessOptions options) const {
    options.in_child = [end = ends_[1]] {
      signal(SIGPIPE, SIG_DFL);
      dup2(end, STDOUT_FILENO);
    };
    return options;
  }
  /// What one write of the tool's put out.
  [[nodiscard]] std::string next_write() const {
    pollfd polled{ends_[0], POLLIN, 0};
    const auto limit = std::chrono::duration_cast<milliseconds>(test::kPatience);
    if (poll(&polled, 1, static_cast<int>(limit.count())) != 1) throw std::runtime_error("nothing written");
    std::array<char, 65536> bytes;
    const ssize_t count = recv(ends_[0], bytes.data(), bytes.size(), 0);
    if (count < 0) throw std::runtime_error("cannot receive");
    return {bytes.data(), static_cast<std::size_t>(count)};
  }

 private:
  std::array<int, 2> ends_{};
};

TEST(Tool, prints_the_usage_without_a_command) {
  const Finished tool = run_tool({});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(tool.output, kUsage);
  EXPECT_EQ(tool.error, "");
}

TEST(Tool, prints_the_usage_when_asked_for_help) {
  for (const std::string option : {"--help", "-h"}) {
    for (const auto& arguments :
         {std::vector{option}, std::vector<std::string>{option, "stream", "--mock"}}) {
      const Finished tool = run_tool(arguments);
      EXPECT_EQ(tool.status, kSuccess) << option;
      EXPECT_EQ(tool.output, kUsage) << option;
      EXPECT_EQ(tool.error, "") << option;
    }
  }
}

TEST(Tool, does_not_know_other_commands) {
  for (const std::string command : {"help", "", "Stream", "stream ", "strea", "--version", "-H", "--mock"}) {
    const Finished tool = run_tool({command});
    EXPECT_EQ(tool.status, kFailure) << command;
    EXPECT_EQ(tool.output, kUsage) << command;
    EXPECT_EQ(tool.error, "Unknown command: " + command + "\n\n");
  }
}

TEST(Tool, takes_only_the_first_argument_for_the_command) {
  const Finished tool = run_tool({"--mock", "stream"});
  EXPECT_EQ(tool.status, kFailure);
  EXPECT_EQ(tool.error, "Unknown command: --mock\n\n");
}

TEST(Tool, lists_what_discovery_finds) {
  const Finished tool = run_tool({"devices"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(tool.output, format_device_list(Device::discover()));
  EXPECT_EQ(tool.error, "");
}

TEST(ToolStream, prints_as_many_rows_as_asked_for) {
  const Finished tool = run_tool({"stream", "--mock", "--raw", "--count", "3"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output, StartsWith(kRawHeading));
  EXPECT_THAT(tool.output.substr(kRawHeading.size()), MatchesRegex("(" + kRow + "){3}"));
  EXPECT_EQ(tool.error, "");
}

TEST(ToolStream, prints_one_row_for_a_count_of_1) {
  const Finished tool = run_tool({"stream", "--raw", "--mock", "--count", "1"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(lines(tool.output), 3);
}

/// A value never begins with a dash: the count is the flag's 1.
TEST(ToolStream, takes_a_negative_count_for_a_flag) {
  const Finished tool = run_tool({"stream", "--mock", "--raw", "--count", "-5"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(lines(tool.output), 3);
}

TEST(ToolStream, reads_a_count_as_far_as_it_is_a_number) {
  const Finished tool = run_tool({"stream", "--mock", "--raw", "--count", " 2x", "--hz", "50.5Hz"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(lines(tool.output), 4);
}

TEST(ToolStream, prints_rows_without_end_for_a_count_of_0) {
  Process tool(tool_options({"stream", "--mock", "--raw", "--count", "0", "--hz", "1000"}));
  EXPECT_TRUE(tool.wait_until([&] { return lines(tool.output()) > 100; }));
}

TEST(ToolStream, draws_nothing_in_the_table_for_a_count_of_1) {
  const Finished tool = run_tool({"stream", "--mock", "--count", "1"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(tool.output, kConnecting);
  EXPECT_EQ(tool.error, "");
}

TEST(ToolStream, draws_one_table_for_a_count_of_2) {
  const Finished tool = run_tool({"stream", "--mock", "--count", "2"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output, MatchesRegex(kConnecting + kEraseConnectLine + table_pattern("1")));
  EXPECT_EQ(tool.error, "");
}

TEST(ToolStream, draws_at_most_all_frames_but_the_last) {
  const Finished tool = run_tool({"stream", "--mock", "--count", "3", "--hz", "8"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output, MatchesRegex(kConnecting + kEraseConnectLine + table_pattern("1") + "(" +
                                        kEraseTable + table_pattern("2") + ")?"));
}

TEST(ToolStream, redraws_tables_in_place_while_frames_come) {
  const Finished tool = run_tool({"stream", "--mock", "--count", "100"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output, MatchesRegex(kConnecting + kEraseConnectLine + table_pattern("1") + "(" +
                                        kEraseTable + table_pattern("[0-9]{1,2}") + ")+"));
}

TEST(ToolStream, puts_every_table_out_in_one_write) {
  const WriteRecorder recorder;
  Process tool(recorder.attach(tool_options({"stream", "--mock"})));
  EXPECT_EQ(recorder.next_write(), kConnecting);
  EXPECT_THAT(recorder.next_write(), MatchesRegex(kEraseConnectLine + table_pattern("1")));
  for (int i = 0; i < 5; ++i) {
    EXPECT_THAT(recorder.next_write(), MatchesRegex(kEraseTable + table_pattern("[0-9]+")));
  }
}

TEST(ToolStream, puts_every_row_out_in_one_write_as_soon_as_it_is_complete) {
  const WriteRecorder recorder;
  Process tool(recorder.attach(tool_options({"stream", "--mock", "--raw", "--hz", "20"})));
  std::string heading = recorder.next_write();
  while (lines(heading) < 2) heading += recorder.next_write();
  EXPECT_EQ(heading, kRawHeading);
  for (int i = 0; i < 5; ++i) EXPECT_THAT(recorder.next_write(), MatchesRegex(kRow));
}

TEST(ToolStream, feeds_a_pipe_while_the_source_runs) {
  Process tool(tool_options({"stream", "--mock", "--raw", "--hz", "5"}));
  EXPECT_TRUE(tool.wait_for_output(kRawHeading));
  EXPECT_TRUE(tool.wait_until([&] { return lines(tool.output()) >= 4; }));
}

TEST(ToolStream, never_leaves_a_pipe_with_half_a_table) {
  Process tool(tool_options({"stream", "--mock", "--count", "60"}));
  std::vector<std::ptrdiff_t> line_counts;
  tool.wait_until([&] {
    const std::string& output = tool.output();
    if (!output.empty()) {
      EXPECT_EQ(output.back(), '\n');
      line_counts.push_back(lines(output));
    }
    return false;
  });
  EXPECT_EQ(tool.wait(), kSuccess);
  ASSERT_FALSE(line_counts.empty());
  for (const auto count : line_counts) EXPECT_EQ(count % 8, 1) << count;
}

TEST(ToolStream, heads_rows_before_the_first_frame_comes) {
  Process tool(tool_options({"stream", "--mock", "--raw", "--hz", "0.01"}));
  EXPECT_TRUE(tool.wait_for_output(kRawHeading));
  EXPECT_EQ(tool.output(), kRawHeading);
}

TEST(ToolStream, ends_well_when_interrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Process tool(tool_options({"stream", "--mock"}));
    ASSERT_TRUE(tool.wait_for_output("frame 1 "));
    tool.send_signal(signal);
    EXPECT_EQ(tool.wait(), kSuccess) << signal;
    EXPECT_EQ(tool.error(), "") << signal;
    EXPECT_EQ(lines(tool.output()) % 8, 1) << signal;
  }
}

TEST(ToolStream, ends_after_the_current_read_however_often_it_is_interrupted) {
  const auto begin = Clock::now();
  Process tool(tool_options({"stream", "--mock", "--hz", "0.2"}));
  ASSERT_TRUE(tool.wait_for_output(kConnecting));
  for (const int signal : {SIGINT, SIGINT, SIGTERM}) tool.send_signal(signal);
  EXPECT_EQ(tool.wait(), kSuccess);
  EXPECT_GE(Clock::now() - begin, milliseconds(5000));
  EXPECT_EQ(tool.output(), kConnecting);
  EXPECT_EQ(tool.error(), "");
}

TEST(ToolStream, prints_all_rows_although_it_is_interrupted) {
  Process tool(tool_options({"stream", "--mock", "--raw", "--count", "20", "--hz", "20"}));
  ASSERT_TRUE(tool.wait_until([&] { return lines(tool.output()) >= 3; }));
  for (const int signal : {SIGINT, SIGTERM, SIGINT}) tool.send_signal(signal);
  EXPECT_EQ(tool.wait(), kSuccess);
  EXPECT_EQ(lines(tool.output()), 22);
  EXPECT_EQ(tool.error(), "");
}

TEST(ToolStream, is_ended_by_a_broken_pipe) {
  for (const std::string mode : {"--raw", "--count"}) {
    Process tool(tool_options({"stream", "--mock", mode, "1000000"}));
    ASSERT_TRUE(tool.wait_until([&] { return lines(tool.output()) >= 3; }));
    tool.close_output();
    EXPECT_EQ(tool.wait(), (ExitStatus{-1, SIGPIPE})) << mode;
  }
}

TEST(ToolStream, says_so_when_no_data_comes) {
  const test::TempDirectory directory;
  const Finished tool = run_tool({"stream", "--port", directory.file("ttyACM7")});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(tool.output, "Connecting to TSL-ttyACM7...\n");
  EXPECT_EQ(tool.error, "\nNo data received. Check that the glove is powered on.\n");
}

TEST(ToolStream, prints_rows_of_zeros_while_no_data_comes) {
  const test::TempDirectory directory;
  const Finished tool = run_tool({"stream", "--port", directory.file("ttyACM7"), "--raw", "--count", "1"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output, StartsWith(kRawHeading));
  EXPECT_THAT(tool.output.substr(kRawHeading.size()),
              MatchesRegex("[0-9]{10}\\.[0-9]{4}    0\\.0000    0\\.0000    0\\.0000\n"));
  EXPECT_EQ(tool.error, "");
}

TEST(ToolStream, is_interrupted_while_no_data_comes) {
  const test::TempDirectory directory;
  Process tool(tool_options({"stream", "--port", directory.file("ttyACM7")}));
  ASSERT_TRUE(tool.wait_for_output("Connecting to TSL-ttyACM7...\n"));
  tool.send_signal(SIGINT);
  EXPECT_EQ(tool.wait(), kSuccess);
  EXPECT_EQ(tool.error(), "");
}

TEST(ToolStream, ignores_the_port_when_the_mock_is_asked_for) {
  const Finished tool = run_tool({"stream", "--port", "/nowhere", "--mock", "--count", "1"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(tool.output, kConnecting);
}

TEST(ToolStream, refuses_a_rate_that_is_no_number) {
  for (const std::string rate : {"abc", "", "1e50"}) {
    const Finished tool = run_tool({"stream", "--mock", "--hz", rate});
    EXPECT_EQ(tool.status, kFailure) << rate;
    EXPECT_EQ(tool.output, "") << rate;
    EXPECT_THAT(tool.error, MatchesRegex("Error: .*stof.*\n")) << rate;
    EXPECT_EQ(lines(tool.error), 1) << rate;
  }
}

TEST(ToolStream, refuses_a_rate_at_which_nothing_can_be_paced) {
  for (const std::string rate : {"0", "inf", "nan"}) {
    for (const auto& mode : {std::vector<std::string>{}, std::vector<std::string>{"--raw"}}) {
      std::vector<std::string> arguments{"stream", "--mock", "--hz", rate};
      arguments.insert(arguments.end(), mode.begin(), mode.end());
      const Finished tool = run_tool(arguments);
      EXPECT_EQ(tool.status, kFailure) << rate;
      EXPECT_EQ(tool.output, "") << rate;
      EXPECT_EQ(tool.error, "Error: MockSource: hz must be a positive finite number, got " + rate + "\n");
    }
  }
}

TEST(ToolStream, takes_a_negative_rate_for_a_flag) {
  const Finished tool = run_tool({"stream", "--mock", "--raw", "--count", "1", "--hz", "-5"});
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(lines(tool.output), 3);
}

TEST(ToolStream, refuses_a_count_that_is_no_number) {
  for (const std::string count : {"abc", "", "99999999999"}) {
    const Finished tool = run_tool({"stream", "--mock", "--count", count});
    EXPECT_EQ(tool.status, kFailure) << count;
    EXPECT_EQ(tool.output, "") << count;
    EXPECT_THAT(tool.error, MatchesRegex("Error: .*stoi.*\n")) << count;
    EXPECT_EQ(lines(tool.error), 1) << count;
  }
}

TEST(ToolStream, looks_the_same_in_every_locale) {
  ProcessOptions options = tool_options({"stream", "--mock", "--raw", "--count", "2"});
  for (const std::string name : {"LC_ALL", "LC_NUMERIC", "LANG"}) options.environment[name] = "de_DE.UTF-8";
  const Finished tool = test::run(options);
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_THAT(tool.output.substr(kRawHeading.size()), MatchesRegex("(" + kRow + "){2}"));
}

TEST(ToolOutput, fails_with_a_message_when_the_disk_is_full) {
  for (const auto& arguments : {std::vector<std::string>{},
                                {"--help"},
                                {"devices"},
                                {"stream", "--mock"},
                                {"stream", "--mock", "--count", "1"},
                                {"stream", "--mock", "--raw", "--count", "2"}}) {
    ProcessOptions options = tool_options(arguments);
    options.output_path = "/dev/full";
    const Finished tool = test::run(options);
    EXPECT_EQ(tool.status, kFailure);
    EXPECT_EQ(tool.error, "Error: cannot write to standard output: No space left on device\n");
  }
}

TEST(ToolOutput, still_names_an_unknown_command_when_the_disk_is_full) {
  ProcessOptions options = tool_options({"help"});
  options.output_path = "/dev/full";
  const Finished tool = test::run(options);
  EXPECT_EQ(tool.status, kFailure);
  EXPECT_THAT(tool.error, StartsWith("Unknown command: help\n\n"));
  EXPECT_THAT(tool.error, HasSubstr("Error: cannot write to standard output: No space left on device\n"));
}

TEST(ToolOutput, fails_with_a_message_when_standard_output_is_closed) {
  for (const auto& arguments :
       {std::vector<std::string>{}, {"devices"}, {"stream", "--mock"}, {"stream", "--mock", "--raw"}}) {
    ProcessOptions options = tool_options(arguments);
    options.in_child = [] { ::close(STDOUT_FILENO); };
    const Finished tool = test::run(options);
    EXPECT_EQ(tool.status, kFailure);
    EXPECT_EQ(tool.error, "Error: cannot write to standard output: Bad file descriptor\n");
  }
}

/// The port must not get the number of the closed stream, or the text would go to the glove.
TEST(ToolOutput, never_goes_to_the_glove_when_standard_output_is_closed) {
  const VirtualGlove glove;
  ProcessOptions options = tool_options({"stream", "--port", glove.port(), "--raw", "--count", "3"});
  options.in_child = [] { ::close(STDOUT_FILENO); };
  const Finished tool = test::run(options);
  EXPECT_EQ(tool.status, kFailure);
  EXPECT_EQ(tool.error, "Error: cannot write to standard output: Bad file descriptor\n");
  // Nothing but the commands to reset and to start.
  EXPECT_THAT(glove.commands(), Each(AnyOf(0xFF, 0xA5)));
}

TEST(ToolOutput, does_without_standard_error) {
  ProcessOptions options = tool_options({"help"});
  options.in_child = [] { ::close(STDERR_FILENO); };
  const Finished tool = test::run(options);
  EXPECT_EQ(tool.status, kFailure);
  EXPECT_EQ(tool.output, kUsage);
}

TEST(ToolOutput, does_without_standard_input) {
  ProcessOptions options = tool_options({"stream", "--mock", "--raw", "--count", "1"});
  options.in_child = [] { ::close(STDIN_FILENO); };
  const Finished tool = test::run(options);
  EXPECT_EQ(tool.status, kSuccess);
  EXPECT_EQ(lines(tool.output), 3);
}

}  // namespace
}  // namespace tarsil::cli
