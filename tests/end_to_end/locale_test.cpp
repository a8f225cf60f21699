// Numbers are read and written with a decimal point, whatever the user's locale puts in its place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};

class CommaLocale : public testing::Test {
 protected:
  /// Where the locale cannot be built, it is one that is not installed, and that must not matter either.
  CommaLocale() {
    static_cast<void>(run({"localedef", "-i", "de_DE", "-f", "UTF-8", directory_.file("de_DE.UTF-8")}));
  }

  [[nodiscard]] Finished run_here(const std::vector<std::string>& arguments) const {
    ProcessOptions options = tool(arguments);
    options.environment = {{"LOCPATH", directory_.path()},
                           {"LANG", "de_DE.UTF-8"},
                           {"LC_ALL", "de_DE.UTF-8"},
                           // The C library keeps the LOCPATH that it has read.
                           {"LSAN_OPTIONS", "detect_leaks=0"}};
    return run(options);
  }

  TempDirectory directory_;
  VirtualGlove glove_;
};

TEST_F(CommaLocale, leaves_rows_alone) {
  const Finished stream = run_here({"stream", "--raw", "--count", "5", "--port", glove_.port()});
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  HandText hand({}, HandStyle::row);
  const std::vector<Row> rows = rows_in(stream.output);
  EXPECT_EQ(rows.size(), 5U);
  for (const Row& row : rows) EXPECT_TRUE(hand.find(row.values)) << row.values;
}

TEST_F(CommaLocale, leaves_recordings_and_the_reading_of_numbers_alone) {
  const std::string path = directory_.file("take.tsl");
  const Finished record = run_here({"record", path, "--frames", "3", "--port", glove_.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_EQ(record.output.find(','), std::string::npos);
  HandText hand({}, HandStyle::json);
  EXPECT_EQ(check_frames(read_tsl(read_file(path)).frames, hand).dropped, 0U);
  const Finished replay = run_here({"replay", path, "--speed", "2.25"});
  EXPECT_EQ(replay.status, kSuccess);
  EXPECT_THAT(replay.output, testing::HasSubstr(" s  speed x2.25\n"));
  EXPECT_EQ(replay.output.find(','), std::string::npos);
  HandText rows({}, HandStyle::row);
  const std::string q0 = rows.at(0).substr(0, 10);
  EXPECT_THAT(replay.output, testing::HasSubstr("  q[0]=" + q0.substr(q0.find_first_not_of(' ')) + "\n"));
}

}  // namespace
}  // namespace tarsil::test
