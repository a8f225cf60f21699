// The command doctor as a person runs it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/end_to_end_health/health_tool.h"
#include "tests/health/http_server.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// A serial port at whose other end nothing ever happens.
class SilentPort {
 public:
  SilentPort() : other_end_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (::grantpt(other_end_.get()) != 0 || ::unlockpt(other_end_.get()) != 0) {
      throw std::runtime_error("cannot make a pseudo-terminal");
    }
  }

  [[nodiscard]] std::string path() const { return ::ptsname(other_end_.get()); }

 private:
  Descriptor other_end_;
};

constexpr const char* kMockOutput =
    "Device : MOCK-0001\n"
    "Side   : right\n"
    "Fw     : mock-0.1.0\n"
    "DOFs   : 20\n"
    "\n"
    "✓ Kinematics stream OK  (100 Hz, 0 stale frames)\n"
    "✓ Touch stream OK\n"
    "✓ IMU stream OK\n";

TEST(Doctor, takes_half_a_second_for_the_mock) {
  const auto started = std::chrono::steady_clock::now();
  const Finished done = run_tool({"doctor", "--mock"});
  EXPECT_GE(std::chrono::steady_clock::now() - started, 400ms);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.output, kMockOutput);
  EXPECT_EQ(done.error, "");
}

TEST(Doctor, shows_the_same_rate_for_a_slow_mock) {
  const auto started = std::chrono::steady_clock::now();
  const Finished done = run_tool({"doctor", "--mock", "--hz", "10"});
  EXPECT_GE(std::chrono::steady_clock::now() - started, 4800ms);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.output, kMockOutput);
}

TEST(Doctor, bad_rate_is_an_error_before_anything_is_printed) {
  const Finished done = run_tool({"doctor", "--mock", "--hz", "abc"});
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(done.output, "");
  EXPECT_THAT(done.error, StartsWith("Error: "));
  EXPECT_THAT(done.error, HasSubstr("stof"));
}

TEST(Doctor, does_not_stop_for_a_signal) {
  Process tool(test::tool({"doctor", "--mock"}));
  ASSERT_TRUE(tool.wait_for_output("DOFs   : 20\n"));
  tool.send_signal(SIGINT);
  tool.send_signal(SIGTERM);
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_EQ(tool.output(), kMockOutput);
}

/// What doctor prints for a virtual glove. A busy machine may starve the glove, and doctor rightly shows that
/// as stale or missing frames; so a glove that did not do as expected is given further chances.
Finished doctor_on_glove(const std::vector<std::string>& glove_arguments, const std::string& expected) {
  constexpr int kChances = 5;
  Finished done;
  for (int chance = 0; chance < kChances && done.output != expected; ++chance) {
    const LinkedGlove glove(glove_arguments);
    done = run_tool({"doctor", "--port", glove.port()}, 4 * kPatience);
  }
  return done;
}

TEST(Doctor, shows_a_glove) {
  const std::string expected =
      "Device : TSL-R-000815\n"
      "Side   : right\n"
      "Fw     : 2.11\n"
      "DOFs   : 20\n"
      "\n"
      "✓ Kinematics stream OK  (100 Hz, 0 stale frames)\n"
      "✓ Touch stream OK\n"
      "✓ IMU stream OK\n";
  const Finished done = doctor_on_glove({"--serial", "TSL-R-000815", "--firmware", "2.11"}, expected);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.output, expected);
  EXPECT_EQ(done.error, "");
}

TEST(Doctor, shows_a_left_glove) {
  const GloveProgram glove({"--side", "left"});
  EXPECT_THAT(run_tool({"doctor", "--port", glove.port()}).output,
              StartsWith("Device : TSL-VG000001\nSide   : left\nFw     : 1.4\nDOFs   : 20\n\n"));
}

TEST(Doctor, glove_that_falls_silent_shows_stale_frames) {
  const std::string expected =
      "Device : TSL-VG000001\n"
      "Side   : right\n"
      "Fw     : 1.4\n"
      "DOFs   : 20\n"
      "\n"
      "✓ Kinematics stream OK  (100 Hz, 10 stale frames)\n"
      "✓ Touch stream OK\n"
      "✓ IMU stream OK\n";
  const Finished done = doctor_on_glove({"--hz", "50", "--frames", "40"}, expected);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.output, expected);
  EXPECT_EQ(done.error, "");
}

TEST(Doctor, glove_that_dies_early_is_still_asked_for_fifty_frames) {
  // The last of them come one every two seconds.
  const LinkedGlove glove({"--hz", "50", "--frames", "30"});
  const Finished done = run_tool({"doctor", "--port", glove.port()}, 6 * kPatience);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  // Twenty, and one more for each that a busy machine loses.
  EXPECT_THAT(done.output, ContainsRegex("✓ Kinematics stream OK  \\(100 Hz, [23][0-9] stale frames\\)\n"));
}

TEST(Doctor, port_that_is_not_there_gives_its_name_to_the_glove) {
  const TempDirectory directory;
  Process tool(test::tool({"doctor", "--port", directory.file("nothing")}));
  ASSERT_TRUE(tool.wait_for_output("DOFs   : 20\n"));
  EXPECT_EQ(tool.output(), "Device : TSL-nothing\nSide   : right\nFw     : unknown\nDOFs   : 20\n");
  // It now counts stale frames, one every two seconds: more than a minute until it has its fifty.
  EXPECT_FALSE(tool.wait_for_output("stream OK", 3s));
  EXPECT_EQ(tool.error(), "");
}

TEST(Doctor, port_that_never_answers_is_a_glove_without_a_name) {
  const SilentPort port;
  Process tool(test::tool({"doctor", "--port", port.path()}));
  ASSERT_TRUE(tool.wait_for_output("DOFs   : 0\n"));
  EXPECT_EQ(tool.output(), "Device : \nSide   : right\nFw     : \nDOFs   : 0\n");
  EXPECT_FALSE(tool.wait_for_output("stream OK", 3s));
  EXPECT_EQ(tool.error(), "");
}

}  // namespace

}  // namespace tarsil::test
