// `tarsil devices` while each of its calls fails in turn.
#include <gtest/gtest.h>

#include <string>

#include "tests/end_to_end/device_directory.h"
#include "tests/end_to_end/tool.h"
#include "tests/faults/faulty_tool.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::VirtualGlove;

const std::string kFirst = "A  right  fw 1.4  20 DOFs\n";
const std::string kSecond = "B  left  fw 1.4  20 DOFs\n";
const std::string kNone = "No devices found. Check USB connection and port permissions.\n";

class DevicesFaults : public testing::Test {
 protected:
  [[nodiscard]] FaultyRun run(const std::string& faults) {
    for (VirtualGlove* const glove : {&first_, &second_}) {
      EXPECT_TRUE(glove->wait_until([](const auto& account) { return account.hosts_open == 0; }, kPatience));
    }
    return run_with_faults(devices_.tool({"devices"}), faults);
  }
  [[nodiscard]] auto runner() {
    return [this](const std::string& faults) { return run(faults); };
  }

  DeviceDirectory devices_;
  VirtualGlove first_{{.link = devices_.entry("ttyACM0"), .serial = "A", .hz = 1000}};
  VirtualGlove second_{{.link = devices_.entry("ttyACM1"), .serial = "B", .left = true, .hz = 1000}};
};

void expect_list(const FaultyRun& run, const std::string& list) {
  expect_success(run);
  EXPECT_EQ(run.finished.output, list) << run;
}

TEST_F(DevicesFaults, of_one_port_leave_the_other) {
  for (const char* const fault : {"EACCES", "EBUSY", "EMFILE", "ENFILE", "ENOMEM", "EIO"}) {
    expect_list(run("open@/dev/ttyACM0:1:" + std::string(fault)), kSecond);
    expect_list(run("open@/dev/ttyACM1:1:" + std::string(fault)), kFirst);
  }
  for (const char* const rule :
       {"tcgetattr@/dev/ttyACM0:1:EIO", "tcsetattr@/dev/ttyACM0:1:EIO", "read@/dev/ttyACM0:1:EIO",
        "write@/dev/ttyACM0:1:EIO", "write@/dev/ttyACM0:2:EIO", "thread:1:EAGAIN"}) {
    expect_list(run(rule), kSecond);
  }
  expect_list(run("thread:1:EAGAIN:0"), kNone);
  expect_list(run("open@/dev/ttyACM0:1:EMFILE open@/dev/ttyACM1:1:EMFILE"), kNone);
}

TEST_F(DevicesFaults, that_are_none_are_survived) {
  for (const char* const faults :
       {"open@/dev/ttyACM0:1:EINTR:3:4 read@/dev/ttyACM0:1:EINTR:3:4 write@/dev/ttyACM0:1:EINTR:3:4 "
        "write@1:1:EINTR:3:4",
        "read@/dev/ttyACM0:1:ONE:0 write@1:1:ONE:0", "ioctl@/dev/ttyACM0:1:EBUSY",
        "close@/dev/ttyACM0:1:EIO"}) {
    expect_list(run(faults), kFirst + kSecond);
  }
}

TEST_F(DevicesFaults, of_the_directory_are_told) {
  const auto error = [](const std::string& what, const std::string& why) {
    return "Error: filesystem error: directory iterator cannot " + what + ": " + why + " [/dev]\n";
  };
  expect_error(run("opendir@/dev:1:EMFILE"), error("open directory", "Too many open files"));
  expect_error(run("opendir@/dev:1:ENFILE"), error("open directory", "Too many open files in system"));
  expect_error(run("opendir@/dev:1:ENOMEM"), error("open directory", "Cannot allocate memory"));
  expect_error(run("opendir@/dev:1:EACCES"), error("open directory", "Permission denied"));
  fail_each("readdir@/dev", "EIO", runner(), [&](const FaultyRun& run, std::size_t /*number*/) {
    expect_error(run, error("advance", "Input/output error"));
    EXPECT_EQ(run.finished.output, "") << run;
  });
}

TEST_F(DevicesFaults, in_the_output_are_told) {
  expect_error(run("write@1:1:ENOSPC"), "Error: cannot write to standard output: No space left on device\n");
}

TEST_F(DevicesFaults, of_memory_hide_a_glove_or_are_told) {
  for (const char* const fault : {"ENOMEM", "ENOMEM:0"}) {
    fail_each("memory", fault, runner(), [](const FaultyRun& run, std::size_t /*number*/) {
      if (run.finished.status.code == 1) {
        expect_error(run, "Error: std::bad_alloc\n");
        EXPECT_EQ(run.finished.output, "") << run;
        return;
      }
      const std::string& list = run.finished.output;
      expect_success(run);
      EXPECT_TRUE(list == kFirst + kSecond || list == kFirst || list == kSecond || list == kNone) << run;
    });
  }
}

}  // namespace
}  // namespace tarsil::test
