// Which entries of a device directory are ports, and which port has the glove.
#include "tarsil/serial/ports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <termios.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/core/errors.h"
#include "tarsil/serial/port_scan.h"
#include "tarsil/serial/serial_source.h"
#include "tests/serial/child.h"
#include "tests/serial/scripted_glove.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil {
namespace {

using detail::auto_detect_port_in;
using detail::list_ports_in;
using test::Bytes;
using test::ScriptedGlove;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kNoPort =
    "No serial port found. Make sure the Tarsil glove is connected via USB.\n"
    "If auto-detection fails, pass the port explicitly:\n"
    "  SerialSource({.port = \"/dev/ttyUSB0\"})   // Linux\n"
    "  SerialSource({.port = \"COM3\"})             // Windows";

constexpr const char* kNoGlove =
    "No Tarsil glove detected on any serial port. Make sure it is connected and powered, or pass the port "
    "explicitly, e.g. SerialSource({.port = \"/dev/ttyACM0\"}) / SerialSource({.port = \"COM3\"}).";

using Clock = std::chrono::steady_clock;

/// What a probe of one silent port takes at least.
constexpr std::chrono::nanoseconds kProbe{999'999'999};

/// A directory with ports in it.
class DeviceDirectory {
 public:
  /// Lists `target` under `name`; returns the path.
  std::string link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, directory_.path() / name);
    return file(name);
  }
  std::string file(const std::string& name) const { return directory_.file(name); }
  const std::filesystem::path& path() const { return directory_.path(); }

 private:
  test::TempDirectory directory_;
};

/// The text of the DeviceNotFoundError that `action` raises; empty if it raises none.
std::string not_found_text(const std::function<void()>& action) {
  try {
    action();
  } catch (const DeviceNotFoundError& error) {
    return error.what();
  }
  return {};
}

std::string detection_error(const std::filesystem::path& directory) {
  return not_found_text([&] { static_cast<void>(auto_detect_port_in(directory)); });
}

std::vector<std::string> names(const std::vector<std::string>& paths) {
  std::vector<std::string> all;
  for (const std::string& path : paths) all.push_back(std::filesystem::path(path).filename());
  return all;
}

TEST(Ports, are_told_by_their_names) {
  const DeviceDirectory devices;
  for (const char* name : {"ttyS0", "ttyUSB", "ttyACM7", "ttyUSB1"}) test::write_file(devices.file(name), "");
  EXPECT_THAT(list_ports_in(devices.path()),
              ElementsAre(devices.file("ttyACM7"), devices.file("ttyUSB"), devices.file("ttyUSB1")));
}

TEST(Ports, have_names_that_begin_with_the_kind_in_this_case) {
  const DeviceDirectory devices;
  for (const char* name : {"tty", "ttyusb0", "TTYUSB0", "ttyUS", "attyUSB0", "ttyAMA0", "ttyAC", "xttyACM0",
                           ".ttyACM0", "ttyACM", "ttyUSBx", "ttyACM-glove"}) {
    test::write_file(devices.file(name), "");
  }
  EXPECT_THAT(names(list_ports_in(devices.path())), ElementsAre("ttyACM", "ttyACM-glove", "ttyUSBx"));
}

TEST(Ports, are_sorted_byte_by_byte) {
  const DeviceDirectory devices;
  for (const char* name : {"ttyUSB0", "ttyACM2", "ttyUSB10", "ttyACM10", "ttyACM1", "ttyACM0", "ttyACM",
                           "ttyACM\xC3\xA9", "ttyACMz", "ttyACM "}) {
    test::write_file(devices.file(name), "");
  }
  EXPECT_THAT(names(list_ports_in(devices.path())),
              ElementsAre("ttyACM", "ttyACM ", "ttyACM0", "ttyACM1", "ttyACM10", "ttyACM2", "ttyACMz",
                          "ttyACM\xC3\xA9", "ttyUSB0", "ttyUSB10"));
}

TEST(Ports, are_listed_whatever_they_are) {
  const DeviceDirectory devices;
  std::filesystem::create_directory(devices.path() / "ttyUSB5");
  devices.link("ttyUSB6", "/nowhere/at/all");
  // Only entries of the directory itself count.
  test::write_file(devices.path() / "ttyUSB5" / "ttyUSB7", "");
  EXPECT_THAT(names(list_ports_in(devices.path())), ElementsAre("ttyUSB5", "ttyUSB6"));
}

TEST(Ports, may_be_none) {
  const DeviceDirectory devices;
  EXPECT_THAT(list_ports_in(devices.path()), IsEmpty());
  test::write_file(devices.file("ttyS0"), "");
  EXPECT_THAT(list_ports_in(devices.path()), IsEmpty());
}

TEST(Ports, of_the_system_carry_its_directory) {
  for (const std::string& port : list_ports()) EXPECT_THAT(port, ::testing::StartsWith("/dev/tty"));
}

TEST(Ports, cannot_be_listed_without_a_directory) {
  const DeviceDirectory devices;
  EXPECT_THROW(static_cast<void>(list_ports_in(devices.path() / "missing")),
               std::filesystem::filesystem_error);
  test::write_file(devices.file("file"), "");
  EXPECT_THROW(static_cast<void>(list_ports_in(devices.path() / "file")), std::filesystem::filesystem_error);
  EXPECT_THROW(static_cast<void>(auto_detect_port_in(devices.path() / "missing")),
               std::filesystem::filesystem_error);
}

TEST(Ports, cannot_be_listed_in_a_directory_that_must_not_be_read) {
  const DeviceDirectory devices;
  const auto directory = devices.path() / "closed";
  std::filesystem::create_directory(directory);
  ASSERT_EQ(::chmod(directory.c_str(), 0), 0);
  const int status = test::Child([&](const auto&) {
                       test::become_ordinary_user();
                       try {
                         return list_ports_in(directory).empty() ? 1 : 2;
                       } catch (const std::filesystem::filesystem_error&) {
                         return 0;
                       }
                     }).wait();
  EXPECT_EQ(status, 0);
}

TEST(AutoDetection, says_that_there_is_no_port) {
  const DeviceDirectory devices;
  test::write_file(devices.file("ttyS0"), "");
  EXPECT_EQ(detection_error(devices.path()), kNoPort);
}

TEST(AutoDetection, finds_the_port_on_which_a_glove_announces_itself) {
  const DeviceDirectory devices;
  const ScriptedGlove silent;
  const ScriptedGlove announcing;
  const ScriptedGlove later;
  devices.link("ttyACM0", silent.port());
  devices.link("ttyACM1", announcing.port());
  devices.link("ttyUSB0", later.port());
  announcing.send({0xC1});
  later.send({0xC1});
  const auto begin = Clock::now();
  EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyACM1"));
  EXPECT_GE(Clock::now() - begin, kProbe);
  // The ports behind the one that was found are left alone.
  EXPECT_FALSE(later.exclusive());
}

TEST(AutoDetection, finds_a_virtual_glove_that_announces_itself) {
  const DeviceDirectory devices;
  const ScriptedGlove silent;
  devices.link("ttyACM0", silent.port());
  virtual_glove::GloveConfig config;
  config.link = devices.file("ttyACM1");
  config.announce = true;
  const virtual_glove::VirtualGlove glove(config);
  EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyACM1"));
  EXPECT_THAT(glove.commands(), IsEmpty());
}

TEST(AutoDetection, waits_for_the_byte_behind_others) {
  const DeviceDirectory devices;
  const ScriptedGlove other;
  const ScriptedGlove glove;
  devices.link("ttyACM0", other.port());
  devices.link("ttyACM1", glove.port());
  other.send(Bytes(500, 0x40));
  glove.send({0x00, 0x40, 0x52, 0xFF, 0xA5, 0x01, 0x02, 0xC1, 0x40});
  EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyACM1"));
}

TEST(AutoDetection, hears_a_glove_that_speaks_up_later) {
  const DeviceDirectory devices;
  const ScriptedGlove glove;
  const ScriptedGlove silent;
  devices.link("ttyACM0", glove.port());
  devices.link("ttyACM1", silent.port());
  auto detecting = std::async(std::launch::async, [&] { return auto_detect_port_in(devices.path()); });
  ASSERT_TRUE(test::eventually([&] { return glove.exclusive(); }));
  glove.send({0xC1});
  EXPECT_EQ(detecting.get(), devices.file("ttyACM0"));
}

TEST(AutoDetection, listens_at_2000000_bit_per_second_without_writing) {
  const DeviceDirectory devices;
  ScriptedGlove glove;
  ScriptedGlove other;
  devices.link("ttyACM0", glove.port());
  devices.link("ttyACM1", other.port());
  EXPECT_EQ(detection_error(devices.path()), kNoGlove);
  for (ScriptedGlove* probed : {&glove, &other}) {
    const termios line = probed->settings();
    EXPECT_EQ(line.c_iflag, 0U);
    EXPECT_EQ(line.c_oflag, 0U);
    EXPECT_EQ(line.c_lflag, 0U);
    EXPECT_EQ(line.c_cflag, 0x8B0U | B2000000);
    EXPECT_EQ(cfgetispeed(&line), static_cast<speed_t>(B2000000));
    EXPECT_EQ(line.c_cc[VTIME], 1);
    EXPECT_EQ(line.c_cc[VMIN], 0);
    EXPECT_TRUE(probed->exclusive());
    EXPECT_THAT(probed->heard(), IsEmpty());
  }
}

TEST(AutoDetection, takes_a_second_for_each_silent_port) {
  const DeviceDirectory devices;
  const ScriptedGlove first;
  const ScriptedGlove second;
  devices.link("ttyACM0", first.port());
  devices.link("ttyUSB0", second.port());
  const std::size_t descriptors = test::open_descriptors();
  const auto begin = Clock::now();
  EXPECT_EQ(detection_error(devices.path()), kNoGlove);
  EXPECT_GE(Clock::now() - begin, 2 * kProbe);
  EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST(AutoDetection, trusts_a_single_port) {
  const DeviceDirectory devices;
  const ScriptedGlove silent;
  devices.link("ttyUSB3", silent.port());
  const auto begin = Clock::now();
  EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyUSB3"));
  EXPECT_GE(Clock::now() - begin, kProbe);
}

TEST(AutoDetection, trusts_a_single_port_that_is_none) {
  for (const bool dangling : {false, true}) {
    const DeviceDirectory devices;
    if (dangling) {
      devices.link("ttyACM0", "/nowhere/at/all");
    } else {
      test::write_file(devices.file("ttyACM0"), "\xC1");
    }
    EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyACM0"));
  }
}

TEST(AutoDetection, skips_what_is_no_terminal) {
  const DeviceDirectory devices;
  const ScriptedGlove glove;
  test::write_file(devices.file("ttyACM0"), "\xC1");
  ASSERT_EQ(::mkfifo(devices.file("ttyACM1").c_str(), 0600), 0);
  std::filesystem::create_directory(devices.path() / "ttyACM2");
  devices.link("ttyACM3", "/nowhere/at/all");
  devices.link("ttyACM4", "/dev/null");
  devices.link("ttyACM5", glove.port());
  glove.send({0xC1});
  const std::size_t descriptors = test::open_descriptors();
  EXPECT_EQ(auto_detect_port_in(devices.path()), devices.file("ttyACM5"));
  EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST(AutoDetection, says_that_no_port_has_a_glove) {
  const DeviceDirectory devices;
  test::write_file(devices.file("ttyACM0"), "\xC1");
  test::write_file(devices.file("ttyACM1"), "\xC1");
  EXPECT_EQ(detection_error(devices.path()), kNoGlove);
}

TEST(AutoDetection, skips_a_port_in_use) {
  const DeviceDirectory devices;
  const ScriptedGlove busy;
  const ScriptedGlove free;
  for (const ScriptedGlove* glove : {&busy, &free}) {
    ASSERT_EQ(::chmod(glove->port().c_str(), 0666), 0);
    glove->send({0xC1});
  }
  ASSERT_EQ(::chmod(devices.path().c_str(), 0755), 0);
  devices.link("ttyACM0", busy.port());
  devices.link("ttyACM1", free.port());
  ASSERT_EQ(::ioctl(busy.slave(), TIOCEXCL), 0);
  const int status = test::Child([&](const auto&) {
                       test::become_ordinary_user();
                       return auto_detect_port_in(devices.path()) == devices.file("ttyACM1") ? 0 : 1;
                     }).wait();
  EXPECT_EQ(status, 0);
}

TEST(AutoDetection, does_not_spin_on_a_port_that_hangs_up) {
  const DeviceDirectory devices;
  ScriptedGlove vanishing;
  const ScriptedGlove glove;
  devices.link("ttyACM0", vanishing.port());
  devices.link("ttyACM1", glove.port());
  glove.send({0xC1});
  const double cpu = test::cpu_seconds();
  const auto begin = Clock::now();
  auto detecting = std::async(std::launch::async, [&] { return auto_detect_port_in(devices.path()); });
  ASSERT_TRUE(test::eventually([&] { return vanishing.exclusive(); }));
  vanishing.unplug();
  EXPECT_EQ(detecting.get(), devices.file("ttyACM1"));
  // Hearing nothing any more is no reason to give up early.
  EXPECT_GE(Clock::now() - begin, kProbe);
  EXPECT_LT(test::cpu_seconds() - cpu, 0.6);
}

TEST(AutoDetection, is_what_a_source_without_a_port_begins_with) {
  // Where ports exist, other tests must not touch them.
  if (!list_ports().empty()) return;
  EXPECT_EQ(not_found_text([] { static_cast<void>(auto_detect_port()); }), kNoPort);
  EXPECT_EQ(not_found_text([] { SerialSource({.timeout_ms = 1}); }), kNoPort);
}

}  // namespace
}  // namespace tarsil
