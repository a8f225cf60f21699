// `tarsil devices` with a /dev of the test's own.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "tests/end_to_end/device_directory.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/pty.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
const std::string kNone = "No devices found. Check USB connection and port permissions.\n";

void expect_list(const DeviceDirectory& devices, const std::string& list) {
  const Finished found = run(devices.tool({"devices"}));
  EXPECT_EQ(found.status, kSuccess);
  EXPECT_EQ(found.output, list);
  EXPECT_EQ(found.error, "");
}

TEST(Devices, are_none_without_a_port) {
  const DeviceDirectory devices;
  expect_list(devices, kNone);
}

TEST(Devices, list_the_one_glove) {
  const DeviceDirectory devices;
  const VirtualGlove glove({.link = devices.entry("ttyACM0")});
  expect_list(devices, "TSL-VG000001  right  fw 1.4  20 DOFs\n");
}

TEST(Devices, list_a_left_glove_by_what_it_says_of_itself) {
  const DeviceDirectory devices;
  const VirtualGlove glove({.link = devices.entry("ttyUSB3"),
                            .serial = "4711",
                            .left = true,
                            .firmware_major = 12,
                            .firmware_minor = 0});
  expect_list(devices, "4711  left  fw 12.0  20 DOFs\n");
}

TEST(Devices, list_three_gloves_in_the_order_of_their_ports) {
  const DeviceDirectory devices;
  const VirtualGlove third({.link = devices.entry("ttyUSB0"), .serial = "TSL-A"});
  const VirtualGlove second({.link = devices.entry("ttyACM2"), .serial = "TSL-C", .left = true});
  const VirtualGlove first({.link = devices.entry("ttyACM10"), .serial = "TSL-B"});
  expect_list(devices,
              "TSL-B  right  fw 1.4  20 DOFs\n"
              "TSL-C  left  fw 1.4  20 DOFs\n"
              "TSL-A  right  fw 1.4  20 DOFs\n");
}

TEST(Devices, pass_over_ports_without_a_glove) {
  const DeviceDirectory devices;
  const virtual_glove::Pty silent;
  write_file(devices.entry("plain"), "no terminal");
  devices.link("ttyACM0", silent.path());
  devices.link("ttyACM1", "plain");
  devices.link("ttyACM2", "nowhere");
  const VirtualGlove glove({.link = devices.entry("ttyACM3")});
  const VirtualGlove elsewhere({.link = devices.entry("ttyS0"), .serial = "TSL-ELSEWHERE"});
  expect_list(devices, "TSL-VG000001  right  fw 1.4  20 DOFs\n");
  EXPECT_EQ(elsewhere.account().hosts, 0U);
}

TEST(Devices, are_none_when_no_port_answers) {
  const DeviceDirectory devices;
  const virtual_glove::Pty silent;
  write_file(devices.entry("ttyUSB0"), "no terminal");
  devices.link("ttyACM0", silent.path());
  expect_list(devices, kNone);
}

TEST(Devices, can_be_listed_again_and_again) {
  const DeviceDirectory devices;
  VirtualGlove glove({.link = devices.entry("ttyACM0")});
  for (int time = 0; time < 5; ++time) {
    expect_list(devices, "TSL-VG000001  right  fw 1.4  20 DOFs\n");
    ASSERT_TRUE(glove.wait_until([](const auto& account) { return account.hosts_open == 0; }, kPatience));
  }
  EXPECT_EQ(glove.account().hosts, 5U);
}

TEST(Devices, are_found_among_many_ports_with_few_open_files) {
  const DeviceDirectory devices;
  write_file(devices.entry("plain"), "no terminal");
  for (int port = 0; port < 300; ++port) devices.link("ttyACM" + std::to_string(port), "plain");
  const VirtualGlove glove({.link = devices.entry("ttyUSB0")});
  ProcessOptions options = devices.tool({"devices"});
  options.in_child = [enter = options.in_child] {
    enter();
    const rlimit few{256, 256};
    setrlimit(RLIMIT_NOFILE, &few);
  };
  const Finished found = run(options);
  EXPECT_EQ(found.status, kSuccess);
  EXPECT_EQ(found.output, "TSL-VG000001  right  fw 1.4  20 DOFs\n");
}

}  // namespace
}  // namespace tarsil::test
