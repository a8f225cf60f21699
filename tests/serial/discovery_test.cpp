// Finding every glove that sends data, and opening one by what it says about itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/core/device.h"
#include "tarsil/core/errors.h"
#include "tarsil/serial/port_scan.h"
#include "tests/serial/scripted_glove.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil {
namespace {

using detail::discover_in;
using test::ScriptedGlove;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

using Clock = std::chrono::steady_clock;

constexpr const char* kNoMatch =
    "No Tarsil device found matching the requested serial/side. Use Device::discover() to list connected "
    "devices.";

/// Time for which discovery waits for a first frame.
constexpr std::chrono::seconds kWait{1};

std::unique_ptr<VirtualGlove> glove_at(const std::string& link, const std::string& serial,
                                       bool left = false) {
  GloveConfig config;
  config.link = link;
  config.serial = serial;
  config.left = left;
  config.firmware_major = 3;
  config.firmware_minor = 14;
  return std::make_unique<VirtualGlove>(config);
}

std::vector<std::string> serials(const std::vector<DeviceInfo>& gloves) {
  std::vector<std::string> all;
  for (const DeviceInfo& glove : gloves) all.push_back(glove.serial);
  return all;
}

TEST(Discovery, finds_nothing_where_there_is_no_port) {
  const test::TempDirectory devices;
  test::write_file(devices.path() / "ttyS0", "");
  EXPECT_THAT(discover_in(devices.path()), IsEmpty());
}

TEST(Discovery, cannot_do_without_a_device_directory) {
  const test::TempDirectory devices;
  EXPECT_THROW(static_cast<void>(discover_in(devices.path() / "missing")), std::filesystem::filesystem_error);
}

TEST(Discovery, tells_what_a_glove_says_about_itself) {
  const test::TempDirectory devices;
  const auto glove = glove_at(devices.file("ttyACM0"), "TSL-RIGHT");
  const auto found = discover_in(devices.path());
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].serial, "TSL-RIGHT");
  EXPECT_EQ(found[0].side, 1);
  EXPECT_EQ(found[0].firmware, "3.14");
  EXPECT_EQ(found[0].n_dofs, 20);
  EXPECT_EQ(found[0].n_pads, 30);
  EXPECT_EQ(found[0].n_imu, 5);
}

TEST(Discovery, lists_gloves_in_the_order_of_their_ports) {
  const test::TempDirectory devices;
  const auto usb = glove_at(devices.file("ttyUSB0"), "A", true);
  const auto ten = glove_at(devices.file("ttyACM10"), "C");
  const auto two = glove_at(devices.file("ttyACM2"), "B", true);
  const auto found = discover_in(devices.path());
  EXPECT_THAT(serials(found), ElementsAre("C", "B", "A"));
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].side, 1);
  EXPECT_EQ(found[1].side, 0);
  EXPECT_EQ(found[2].side, 0);
}

TEST(Discovery, lets_go_of_every_glove) {
  const test::TempDirectory devices;
  const auto first = glove_at(devices.file("ttyACM0"), "A");
  const auto second = glove_at(devices.file("ttyACM1"), "B");
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  EXPECT_THAT(serials(discover_in(devices.path())), ElementsAre("A", "B"));
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(test::eventually([&] { return test::running_threads() <= threads; }));
  for (VirtualGlove* glove : {first.get(), second.get()}) {
    EXPECT_TRUE(glove->wait_until(
        [](const virtual_glove::Account& account) { return account.hosts == 1 && account.hosts_open == 0; },
        test::kPatience));
    EXPECT_THAT(glove->commands(), ElementsAre(0xFF, 0xA5));
  }
  // So they can be found again.
  EXPECT_THAT(serials(discover_in(devices.path())), ElementsAre("A", "B"));
}

TEST(Discovery, skips_silent_ports_after_a_second) {
  const test::TempDirectory devices;
  const ScriptedGlove silent;
  std::filesystem::create_symlink(silent.port(), devices.path() / "ttyACM0");
  const auto glove = glove_at(devices.file("ttyACM1"), "B");
  const auto begin = Clock::now();
  EXPECT_THAT(serials(discover_in(devices.path())), ElementsAre("B"));
  EXPECT_GE(Clock::now() - begin, kWait);
}

TEST(Discovery, skips_a_glove_that_identifies_itself_and_sends_nothing) {
  const test::TempDirectory devices;
  const ScriptedGlove mute;
  // The identity lies ready; no data ever follows.
  mute.send(test::identity_frame("TSL-MUTE"));
  std::filesystem::create_symlink(mute.port(), devices.path() / "ttyACM0");
  EXPECT_THAT(discover_in(devices.path()), IsEmpty());
}

TEST(Discovery, skips_what_is_no_terminal) {
  const test::TempDirectory devices;
  test::write_file(devices.path() / "ttyACM0", "bytes");
  ASSERT_EQ(::mkfifo(devices.file("ttyACM1").c_str(), 0600), 0);
  std::filesystem::create_directory(devices.path() / "ttyACM2");
  std::filesystem::create_symlink("/nowhere/at/all", devices.path() / "ttyACM3");
  std::filesystem::create_symlink("/dev/null", devices.path() / "ttyACM4");
  const auto glove = glove_at(devices.file("ttyUSB0"), "B");
  EXPECT_THAT(serials(discover_in(devices.path())), ElementsAre("B"));
}

TEST(Discovery, skips_a_port_that_vanishes_before_a_frame) {
  const test::TempDirectory devices;
  ScriptedGlove vanishing;
  std::filesystem::create_symlink(vanishing.port(), devices.path() / "ttyACM0");
  const auto glove = glove_at(devices.file("ttyACM1"), "B");
  auto discovering = std::async(std::launch::async, [&] { return discover_in(devices.path()); });
  ASSERT_TRUE(test::eventually([&] { return !vanishing.heard().empty(); }));
  vanishing.unplug();
  EXPECT_THAT(serials(discovering.get()), ElementsAre("B"));
}

TEST(Discovery, finds_only_what_plays_by_the_rules_among_many) {
  const test::TempDirectory devices;
  const ScriptedGlove silent;
  std::filesystem::create_symlink(silent.port(), devices.path() / "ttyACM1");
  test::write_file(devices.path() / "ttyUSB0", "");
  const auto first = glove_at(devices.file("ttyACM0"), "A");
  const auto last = glove_at(devices.file("ttyUSB1"), "D", true);
  EXPECT_THAT(serials(discover_in(devices.path())), ElementsAre("A", "D"));
}

TEST(DeviceOpen, finds_no_glove_that_cannot_exist) {
  const auto text_of = [](std::optional<std::string> serial,
                          std::optional<std::int32_t> side) -> std::string {
    try {
      Device::open(std::move(serial), side);
    } catch (const DeviceNotFoundError& error) {
      return error.what();
    }
    return {};
  };
  EXPECT_EQ(text_of("no-such-serial", std::nullopt), kNoMatch);
  EXPECT_EQ(text_of(std::nullopt, 7), kNoMatch);
  EXPECT_EQ(text_of("no-such-serial", 1), kNoMatch);
}

}  // namespace
}  // namespace tarsil
