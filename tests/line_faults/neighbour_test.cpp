// Two programs that want the same port: the first keeps it, undisturbed, and the second is turned away in its
// own way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

const std::string kIntact = "USB integrity: OK — no dropped hardware cycles.\n";

/// Exclusive use does not bind root. Given up here, the right to pass over it is gone with the exec.
ProcessOptions as_anybody(ProcessOptions program) {
  program.in_child = [] { prctl(PR_CAPBSET_DROP, CAP_SYS_ADMIN, 0, 0, 0); };
  return program;
}

class Neighbours : public testing::Test {
 protected:
  Neighbours()
      : glove_({"--hz", "200", "--link", directory_.file("glove")}),
        first_(tool({"record", directory_.file("first.tsl"), "--port", glove_.port()})) {}

  void SetUp() override {
    ASSERT_TRUE(first_.wait_for_output("Ctrl+C to stop"));
    ProcessOptions shell;
    shell.command = {"sh", "-c", ": 3<>\"$0\"", glove_.port()};
    if (run(as_anybody(shell)).status == kSuccess) {
      GTEST_SKIP() << "this machine lets everybody open a port in exclusive use";
    }
  }

  [[nodiscard]] ProcessOptions second(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--port", glove_.port()});
    return as_anybody(tool(arguments));
  }

  /// Ends the first recording: nothing is missing in it, and the glove has never heard of anybody else.
  void expect_first_undisturbed() {
    const std::uint64_t before = frames();
    EXPECT_TRUE(eventually([&] { return frames() >= before + 20; }));
    first_.send_signal(SIGINT);
    EXPECT_EQ(first_.wait(), kSuccess);
    EXPECT_EQ(first_.error(), "");
    EXPECT_TRUE(first_.output().ends_with(kIntact));
    HandText hand({.hz = 200}, HandStyle::json);
    const Tally tally = check_frames(read_tsl(read_file(directory_.file("first.tsl"))).frames, hand);
    EXPECT_EQ(tally.dropped, 0U);
    EXPECT_EQ(tally.fresh, tally.last_seq + 1);
    const std::string account = glove_.account();
    EXPECT_EQ(account_value(account, "hosts"), 1U);
    EXPECT_EQ(account_value(account, "resets"), 1U);
    EXPECT_EQ(account_value(account, "starts"), 1U);
    EXPECT_EQ(account_value(account, "commands_ignored"), 0U);
  }

  [[nodiscard]] std::uint64_t frames() const {
    return read_tsl(read_file(directory_.file("first.tsl"))).frames.size();
  }

  TempDirectory directory_;
  GloveProgram glove_;
  Process first_;
};

TEST_F(Neighbours, second_recording_is_empty) {
  const std::string path = directory_.file("second.tsl");
  const Finished record = run(second({"record", path}));
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_EQ(record.error, "");
  EXPECT_EQ(record.output,
            "Recording to " + path + "  format: .tsl  (Ctrl+C to stop)\nSaved 0 frames  0.00 s\n" + kIntact);
  EXPECT_EQ(read_tsl(read_file(path)).frames.size(), 0U);
  expect_first_undisturbed();
}

TEST_F(Neighbours, second_stream_waits_for_its_turn) {
  Process stream(second({"stream", "--raw"}));
  ASSERT_TRUE(stream.wait_until([&] { return !rows_in(stream.output()).empty(); }));
  EXPECT_EQ(rows_in(stream.output()).front().values, "    0.0000    0.0000    0.0000");
  // When the first leaves, the port is the second's; the account is read only then.
  first_.send_signal(SIGINT);
  EXPECT_EQ(first_.wait(), kSuccess);
  EXPECT_TRUE(first_.output().ends_with(kIntact));
  EXPECT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() > 20; }));
  EXPECT_EQ(stream.error(), "");
  stream.send_signal(SIGKILL);
  static_cast<void>(stream.wait());
  HandText hand({.hz = 200}, HandStyle::json);
  EXPECT_EQ(check_frames(read_tsl(read_file(directory_.file("first.tsl"))).frames, hand).dropped, 0U);
  const std::string account = glove_.account();
  EXPECT_EQ(account_value(account, "hosts"), 2U);
  EXPECT_EQ(account_value(account, "resets"), 2U);
}

TEST_F(Neighbours, second_health_check_finds_no_frames) {
  Process health(second({"health", "--frames", "20"}));
  ASSERT_TRUE(health.wait_for_output("Collecting 20 frames for health analysis...\n"));
  // Before the first stale frame, which comes after two seconds.
  health.send_signal(SIGINT);
  EXPECT_EQ(health.wait(), kFailure);
  EXPECT_EQ(health.error(),
            "Error: no frames received from device.\n"
            "Check that the glove is powered on and the port is correct.\n");
  expect_first_undisturbed();
}

TEST_F(Neighbours, second_doctor_names_the_port_only) {
  Process doctor(second({"doctor"}));
  ASSERT_TRUE(doctor.wait_for_output("DOFs   : 20\n"));
  EXPECT_EQ(doctor.output(), "Device : TSL-glove\nSide   : right\nFw     : unknown\nDOFs   : 20\n");
  doctor.send_signal(SIGKILL);
  static_cast<void>(doctor.wait());
  expect_first_undisturbed();
}

}  // namespace
}  // namespace tarsil::test
