// A port that is there when ports are listed, and gone when it is opened: the plug was pulled in between.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/end_to_end/device_directory.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/line_faults/preload.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};

const std::string kName = "/dev/ttyACM0";

class VanishingPort : public testing::Test {
 protected:
  VanishingPort() : glove_({.link = devices_.entry("ttyACM0"), .hz = 100}) {}

  [[nodiscard]] Finished run_here(const std::vector<std::string>& arguments) const {
    const Finished finished = run(with_vanishing_port(devices_.tool(arguments), kName));
    EXPECT_FALSE(std::filesystem::is_symlink(devices_.entry("ttyACM0"))) << "it did not vanish";
    return finished;
  }

  DeviceDirectory devices_;
  VirtualGlove glove_;
};

TEST_F(VanishingPort, is_not_listed) {
  const Finished devices = run_here({"devices"});
  EXPECT_EQ(devices.status, kSuccess);
  EXPECT_EQ(devices.output, "No devices found. Check USB connection and port permissions.\n");
  EXPECT_EQ(devices.error, "");
}

TEST_F(VanishingPort, does_not_hide_the_others) {
  const VirtualGlove other({.link = devices_.entry("ttyACM1"), .serial = "TSL-OTHER"});
  const Finished devices = run_here({"devices"});
  EXPECT_EQ(devices.status, kSuccess);
  EXPECT_EQ(devices.output, "TSL-OTHER  right  fw 1.4  20 DOFs\n");
}

TEST_F(VanishingPort, is_passed_over_in_the_search_for_a_glove) {
  const VirtualGlove other({.link = devices_.entry("ttyACM1"), .serial = "TSL-OTHER", .announce = true});
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const Finished record = run_here({"record", path, "--frames", "5"});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, HasSubstr("\nSaved 5 frames  "));
  EXPECT_THAT(read_file(path), HasSubstr("TSL-OTHER"));
}

TEST_F(VanishingPort, gives_an_empty_recording) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const Finished record = run_here({"record", path});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, StartsWith("Recording to " + path));
  EXPECT_THAT(record.output, HasSubstr("\nSaved 0 frames  0.00 s\n"));
  EXPECT_EQ(record.error, "");
}

TEST_F(VanishingPort, is_waited_for_by_a_stream) {
  Process stream(with_vanishing_port(devices_.tool({"stream", "--raw"}), kName));
  ASSERT_TRUE(stream.wait_until([&] { return !rows_in(stream.output()).empty(); }));
  EXPECT_EQ(rows_in(stream.output()).front().values, "    0.0000    0.0000    0.0000");
  // Each look at the port makes it vanish once more, so it comes back under another name.
  glove_.unplug();
  const VirtualGlove back({.link = devices_.entry("ttyUSB0"), .hz = 100});
  EXPECT_TRUE(stream.wait_until(
      [&] { return rows_in(stream.output()).back().values != rows_in(stream.output()).front().values; }));
  EXPECT_EQ(stream.error(), "");
}

}  // namespace
}  // namespace tarsil::test
