// The commands without --port, with a /dev of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "tests/end_to_end/device_directory.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/pty.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// A port on which nobody answers. As after the closing of a real port, exclusive use does not outlive the
/// host.
class SilentPort {
 public:
  [[nodiscard]] std::string path() const { return pty_.path(); }

 private:
  virtual_glove::Pty pty_;
  std::jthread usher_{[this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      pty_.end_exclusive_use();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }};
};

class Detection : public testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return directory_.file("take.tsl"); }
  [[nodiscard]] Finished record() const { return run(devices_.tool({"record", path(), "--frames", "20"})); }

  DeviceDirectory devices_;
  TempDirectory directory_;
};

TEST_F(Detection, finds_the_glove_that_announces_itself) {
  const virtual_glove::Pty silent;
  devices_.link("ttyACM0", silent.path());
  const VirtualGlove mute({.link = devices_.entry("ttyACM1"), .serial = "TSL-MUTE"});
  const VirtualGlove glove({.link = devices_.entry("ttyACM2"), .announce = true});
  const Finished finished = record();
  EXPECT_EQ(finished.status, kSuccess);
  EXPECT_EQ(finished.error, "");
  const Recording recording = read_tsl(read_file(path()));
  EXPECT_EQ(recording.frames.size(), 20U);
  EXPECT_THAT(recording.head, testing::HasSubstr("\"serial\": \"TSL-VG000001\""));
  EXPECT_THAT(mute.commands(), testing::IsEmpty());
  HandText hand({}, HandStyle::json);
  check_frames(recording.frames, hand);
}

TEST_F(Detection, trusts_the_only_port) {
  const VirtualGlove mute({.link = devices_.entry("ttyUSB0")});
  const Finished finished = record();
  EXPECT_EQ(finished.status, kSuccess);
  EXPECT_EQ(read_tsl(read_file(path())).frames.size(), 20U);
}

TEST_F(Detection, fails_without_a_port) {
  const Finished finished = record();
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.error,
            "Error: No serial port found. Make sure the Tarsil glove is connected via USB.\n"
            "If auto-detection fails, pass the port explicitly:\n"
            "  SerialSource({.port = \"/dev/ttyUSB0\"})   // Linux\n"
            "  SerialSource({.port = \"COM3\"})             // Windows\n");
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(Detection, fails_with_two_silent_ports) {
  const virtual_glove::Pty one;
  const virtual_glove::Pty other;
  devices_.link("ttyACM0", one.path());
  devices_.link("ttyACM1", other.path());
  const Finished finished = record();
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.error,
            "Error: No Tarsil glove detected on any serial port. Make sure it is connected and powered, or "
            "pass the port explicitly, e.g. SerialSource({.port = \"/dev/ttyACM0\"}) / SerialSource({.port = "
            "\"COM3\"}).\n");
}

TEST_F(Detection, names_the_only_port_when_it_stays_silent) {
  const SilentPort silent;
  devices_.link("ttyACM0", silent.path());
  const Finished finished = record();
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(
      finished.error,
      "Error: No data received from /dev/ttyACM0 within timeout. Check that the Tarsil glove is powered "
      "and sending data.\n");
}

TEST_F(Detection, is_done_anew_when_the_glove_of_a_stream_comes_back_on_another_port) {
  const virtual_glove::Pty silent;
  devices_.link("ttyACM0", silent.path());
  auto glove = std::make_unique<VirtualGlove>(
      virtual_glove::GloveConfig{.link = devices_.entry("ttyACM1"), .hz = 50, .announce = true});
  Process stream(devices_.tool({"stream", "--raw"}));
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() >= 5; }));
  glove = std::make_unique<VirtualGlove>(
      virtual_glove::GloveConfig{.link = devices_.entry("ttyUSB0"), .hz = 50, .announce = true});
  ASSERT_TRUE(glove->wait_until([](const auto& account) { return account.starts == 1; }, kPatience));
  const std::string last = rows_in(stream.output()).back().values;
  EXPECT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).back().values != last; }));
}

TEST_F(Detection, goes_on_until_a_late_glove_appears) {
  Process stream(devices_.tool({"stream"}));
  ASSERT_TRUE(stream.wait_for_output("Connecting to ...\n"));
  const VirtualGlove glove({.link = devices_.entry("ttyACM0"), .hz = 50});
  EXPECT_TRUE(stream.wait_for_output("stale=no "));
}

TEST_F(Detection, is_not_asked_when_a_port_is_named) {
  const VirtualGlove announced({.link = devices_.entry("ttyACM0"), .announce = true});
  const VirtualGlove named({.link = devices_.entry("ttyACM1"), .serial = "TSL-NAMED"});
  const Finished finished = run(devices_.tool({"record", path(), "--frames", "5", "--port", "/dev/ttyACM1"}));
  EXPECT_EQ(finished.status, kSuccess);
  EXPECT_THAT(read_tsl(read_file(path())).head, testing::HasSubstr("\"serial\": \"TSL-NAMED\""));
  EXPECT_EQ(announced.account().hosts, 0U);
}

}  // namespace
}  // namespace tarsil::test
