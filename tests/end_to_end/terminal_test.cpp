// Words of gloves, recordings and users: on a terminal, which they must not drive, and everywhere else, where
// every byte counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::StartsWith;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// Runs the tool to its end with both its streams on a terminal.
ExitStatus run_on(const Terminal& terminal, const std::vector<std::string>& arguments) {
  ProcessOptions options = tool(arguments);
  options.output_path = options.error_path = terminal.path();
  return run(options).status;
}

class TerminalText : public testing::Test {
 protected:
  void expect_on_terminal(const std::vector<std::string>& arguments, ExitStatus status,
                          const std::string& shown) {
    Terminal terminal;
    EXPECT_EQ(run_on(terminal, arguments), status);
    EXPECT_TRUE(terminal.wait_for_end(shown));
    EXPECT_EQ(terminal.shown(), shown);
  }

  TempDirectory directory_;
};

TEST_F(TerminalText, marker_of_a_recording_does_not_drive_the_terminal) {
  const std::string path = directory_.file("take.tsl");
  const auto played = [&path](const std::string& name) {
    return "Replaying " + path +
           " — 1 frames  0.00 s  speed x0.00\n"
           "\n"
           "1 marker(s) in recording:\n"
           "  t=2.500  " +
           name +
           "\n"
           "\n"
           "t=2.0000  q[0]=0.5000\n"
           "\n"
           "Replayed 1 frames.\n";
  };
  const std::string name = "\x1b[2Jgrün \x9b\x31\x6d\xC2\x85\x7F";
  write_file(path, R"({"type":"frame","seq":0,"t":2.0,"q":[0.5],"touch":[],"imu":[],"stale":false})"
                   "\n"
                   R"({"type":"marker","t":2.5,"name":")" +
                       name +
                       R"(","data":{}})"
                       "\n");
  expect_on_terminal({"replay", path, "--speed", "0"}, kSuccess,
                     played("\\x1b[2Jgrün \\x9b1m\\xc2\\x85\\x7f"));
  const Finished piped = run_tool({"replay", path, "--speed", "0"});
  EXPECT_EQ(piped.status, kSuccess);
  EXPECT_EQ(piped.output, played(name));
}

TEST_F(TerminalText, serial_of_a_glove_does_not_drive_the_terminal) {
  const virtual_glove::GloveConfig config{.serial = "TSL-\x1b]0;mine\x07", .hz = 1000};
  const VirtualGlove shown_glove(config);
  Terminal terminal;
  EXPECT_EQ(run_on(terminal, {"doctor", "--port", shown_glove.port()}), kSuccess);
  EXPECT_TRUE(terminal.wait_for_end("✓ IMU stream OK\n"));
  EXPECT_THAT(terminal.shown(), StartsWith("Device : TSL-\\x1b]0;mine\\x07\nSide   : right\n"));
  const VirtualGlove piped_glove(config);
  EXPECT_THAT(run_tool({"doctor", "--port", piped_glove.port()}).output,
              StartsWith("Device : TSL-\x1b]0;mine\x07\nSide   : right\n"));
}

TEST_F(TerminalText, errors_do_not_drive_the_terminal) {
  const std::string path = directory_.file("\x1b[31m.tsl");
  const std::string message = "Error: Replayer: cannot open: ";
  expect_on_terminal({"replay", path}, kFailure, message + directory_.file("\\x1b[31m.tsl") + "\n");
  EXPECT_EQ(run_tool({"replay", path}).error, message + path + "\n");
  expect_on_terminal({"--h\x1b[1m"}, kFailure, [] {
    const std::string usage = run_tool({"--help"}).output;
    return "Unknown command: --h\\x1b[1m\n\n" + usage;
  }());
}

TEST_F(TerminalText, each_stream_goes_by_where_it_leads) {
  Terminal terminal;
  ProcessOptions options = tool({"\x1b[1m"});
  options.output_path = terminal.path();
  EXPECT_EQ(run(options).error, "Unknown command: \x1b[1m\n\n");
}

TEST_F(TerminalText, live_table_moves_the_cursor) {
  Terminal terminal;
  EXPECT_EQ(run_on(terminal, {"stream", "--mock", "--hz", "20", "--count", "10"}), kSuccess);
  EXPECT_TRUE(terminal.wait_for_end("\n"));
  EXPECT_TRUE(
      eventually([&] { return tables_in(terminal.shown(), "Connecting to MOCK-0001...\n").size() >= 2; }));
}

}  // namespace
}  // namespace tarsil::test
