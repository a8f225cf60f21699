// From options to the right source with the right settings.
#include "tarsil/cli/open_device.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "tarsil/core/errors.h"
#include "tarsil/core/mock_source.h"
#include "tarsil/serial/ports.h"
#include "tarsil/serial/reconnecting_source.h"
#include "tarsil/serial/serial_source.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::cli {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

template <typename Source>
bool holds(const Device& device) {
  return std::dynamic_pointer_cast<Source>(device.source()) != nullptr;
}

/// A line without a glove on it.
class SilentPort {
 public:
  SilentPort() : line_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (line_.get() < 0 || grantpt(line_.get()) != 0 || unlockpt(line_.get()) != 0) {
      throw std::runtime_error("cannot make a pseudo-terminal");
    }
    path_ = ptsname(line_.get());
  }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] speed_t speed() const {
    termios settings{};
    tcgetattr(line_.get(), &settings);
    return cfgetospeed(&settings);
  }

 private:
  virtual_glove::Descriptor line_;
  std::string path_;
};

/// Reads until a frame comes that is no repetition.
Frame fresh_frame(IDataSource& source) {
  for (const auto deadline = Clock::now() + test::kPatience; Clock::now() < deadline;) {
    Frame frame = source.read_frame();
    if (!frame.stale) return frame;
  }
  throw std::runtime_error("no fresh frame came");
}

TEST(OpenDevice, makes_the_tools_mock) {
  const Device device = open_device({{"mock", "1"}}, true, 2);
  EXPECT_TRUE(holds<MockSource>(device));
  EXPECT_TRUE(device.source()->is_open());
  EXPECT_EQ(device.info().serial, "MOCK-0001");
  EXPECT_EQ(device.info().side, 1);
  EXPECT_EQ(device.info().firmware, "mock-0.1.0");
  EXPECT_EQ(device.info().n_dofs, 20);
  EXPECT_EQ(device.info().n_pads, 30);
  EXPECT_EQ(device.info().n_imu, 5);
}

TEST(OpenDevice, makes_the_mock_whatever_else_is_said) {
  EXPECT_TRUE(holds<MockSource>(open_device({{"mock", "0"}}, true, 2)));
  EXPECT_TRUE(holds<MockSource>(open_device({{"mock", ""}}, false, -1)));
  EXPECT_TRUE(holds<MockSource>(open_device({{"mock", "1"}, {"port", "/nowhere"}}, false, 4096)));
}

TEST(OpenDevice, paces_the_mock_at_100_hz) {
  const Device device = open_device({{"mock", "1"}}, false, 4096);
  const auto begin = Clock::now();
  for (int i = 0; i < 20; ++i) device.source()->read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(200));
}

TEST(OpenDevice, paces_the_mock_at_the_rate_asked_for) {
  const Device device = open_device({{"mock", "1"}, {"hz", "10"}}, true, 2);
  const auto begin = Clock::now();
  for (int i = 0; i < 3; ++i) device.source()->read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(300));
}

TEST(OpenDevice, refuses_a_rate_that_is_no_number) {
  EXPECT_THROW(open_device({{"mock", "1"}, {"hz", "abc"}}, true, 2), std::invalid_argument);
  EXPECT_THROW(open_device({{"mock", "1"}, {"hz", ""}}, true, 2), std::invalid_argument);
  EXPECT_THROW(open_device({{"mock", "1"}, {"hz", "1e50"}}, true, 2), std::out_of_range);
  EXPECT_THROW(open_device({{"mock", "1"}, {"hz", "nan"}}, true, 2), std::invalid_argument);
  EXPECT_THROW(open_device({{"mock", "1"}, {"hz", "0"}}, true, 2), std::invalid_argument);
}

TEST(OpenDevice, gives_a_closed_source_for_a_port_that_cannot_be_opened) {
  const test::TempDirectory directory;
  const Device device = open_device({{"port", directory.file("ttyACM0")}}, false, 4096);
  EXPECT_TRUE(holds<SerialSource>(device));
  EXPECT_FALSE(device.source()->is_open());
  EXPECT_THROW(device.source()->read_frame(), StreamUnderrunError);
}

TEST(OpenDevice, gives_a_closed_source_for_a_port_that_cannot_be_configured) {
  const test::TempDirectory directory;
  const std::string port = directory.file("ttyACM0");
  test::write_file(port, "no terminal");
  const Device device = open_device({{"port", port}}, false, 4096);
  EXPECT_FALSE(device.source()->is_open());
  EXPECT_EQ(test::read_file(port), "no terminal");
}

TEST(OpenDevice, gives_up_on_a_silent_port_after_5_seconds_at_2000000_baud) {
  const SilentPort port;
  const auto begin = Clock::now();
  try {
    const Device device = open_device({{"port", port.path()}}, false, 4096);
    FAIL() << "no error";
  } catch (const DeviceNotFoundError& error) {
    EXPECT_EQ(std::string(error.what()),
              "No data received from " + port.path() +
                  " within timeout. Check that the Tarsil glove is powered and sending data.");
  }
  EXPECT_GE(Clock::now() - begin, milliseconds(5000));
  EXPECT_EQ(port.speed(), speed_t{B2000000});
}

/// What detection says depends on what is plugged in here; opening has to pass it on.
TEST(OpenDevice, detects_the_port_when_none_is_given) {
  const auto failure_of = [](const auto& action) -> std::string {
    try {
      action();
    } catch (const DeviceNotFoundError& error) {
      return error.what();
    }
    return "";
  };
  const std::string detection = failure_of([] { return auto_detect_port(); });
  const std::string opening = failure_of([] { return open_device({}, false, 4096); });
  EXPECT_TRUE(detection.empty() || opening == detection) << opening;
}

TEST(OpenDevice, reads_a_glove_on_a_port) {
  const VirtualGlove glove({.serial = "TSL-VG000007", .left = true});
  const Device device = open_device({{"port", glove.port()}}, false, 4096);
  EXPECT_TRUE(holds<SerialSource>(device));
  EXPECT_EQ(device.info().serial, "TSL-VG000007");
  EXPECT_EQ(device.info().side, 0);
  EXPECT_EQ(fresh_frame(*device.source()).q.size(), 20U);
}

TEST(OpenDevice, holds_no_more_frames_than_the_queue_depth) {
  VirtualGlove glove({.frames = 40});
  const Device device = open_device({{"port", glove.port()}}, false, 3);
  IDataSource& source = *device.source();
  ASSERT_TRUE(test::eventually([&] { return !source.is_open(); }));
  Frame last;
  for (int i = 0; i < 3; ++i) last = source.read_frame();
  EXPECT_EQ(last.seq, 39U);
  EXPECT_THROW(source.read_frame(), StreamUnderrunError);
}

TEST(OpenDevice, wraps_the_source_where_reconnection_is_asked_for) {
  const test::TempDirectory directory;
  const Device device = open_device({{"port", directory.file("ttyACM0")}}, true, 2);
  EXPECT_TRUE(holds<ReconnectingSource>(device));
  EXPECT_TRUE(device.source()->is_open());
  device.source()->close();
  EXPECT_FALSE(device.source()->is_open());
}

TEST(OpenDevice, gives_repetitions_while_no_glove_is_there) {
  const test::TempDirectory directory;
  const Device device = open_device({{"port", directory.file("ttyACM0")}}, true, 2);
  const auto begin = Clock::now();
  const Frame frame = device.source()->read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(2000));
  EXPECT_TRUE(frame.stale);
  EXPECT_EQ(frame.seq, 0U);
  EXPECT_TRUE(frame.q.empty());
}

TEST(OpenDevice, opens_the_same_port_anew_at_every_reconnection) {
  const test::TempDirectory directory;
  const std::string port = directory.file("ttyACM0");
  VirtualGlove glove({.link = port, .serial = "TSL-VG000008"});
  const Device device = open_device({{"port", port}}, true, 2);
  EXPECT_EQ(device.info().serial, "TSL-VG000008");
  EXPECT_FALSE(fresh_frame(*device.source()).stale);
  for (int i = 0; i < 2; ++i) {
    const auto starts = glove.account().starts;
    glove.unplug();
    glove.plug();
    ASSERT_TRUE(test::eventually([&] {
      device.source()->read_frame();
      return glove.account().starts > starts;
    }));
    EXPECT_EQ(fresh_frame(*device.source()).q.size(), 20U);
  }
}

}  // namespace
}  // namespace tarsil::cli
