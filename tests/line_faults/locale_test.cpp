// The built tool in a process whose C library writes a decimal comma and means it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/line_faults/preload.h"
#include "tests/recording/comma_locale.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};

class UsersLocale : public testing::Test {
 protected:
  UsersLocale() { compile_comma_locale(directory_); }

  void SetUp() override {
    if (one_in_a_shell() != "1,0") GTEST_SKIP() << "no locale with a decimal comma can be made here";
  }

  /// A shell that knows no locale by itself shows what is loaded into it, and into the tool.
  [[nodiscard]] std::string one_in_a_shell() const {
    ProcessOptions shell = here({});
    shell.command = {"sh", "-c", "printf %.1f 1"};
    return run(shell).output;
  }

  [[nodiscard]] ProcessOptions here(const std::vector<std::string>& arguments) const {
    ProcessOptions options = with_users_locale(tool(arguments));
    options.environment["LOCPATH"] = directory_.path();
    options.environment["LC_ALL"] = "comma";
    // The C library keeps what it has loaded.
    options.environment["LSAN_OPTIONS"] = "detect_leaks=0";
    return options;
  }

  TempDirectory directory_;
  VirtualGlove glove_;
};

TEST_F(UsersLocale, leaves_recordings_alone) {
  const std::string path = directory_.file("take");
  for (const char* format : {"tsl", "csv", "json"}) {
    const Finished record =
        run(here({"record", path + "." + format, "--frames", "20", "--port", glove_.port()}));
    EXPECT_EQ(record.status, kSuccess);
    EXPECT_EQ(record.error, "");
    EXPECT_EQ(record.output.find(','), std::string::npos) << record.output;
  }
  HandText json({}, HandStyle::json);
  HandText csv({}, HandStyle::csv);
  EXPECT_EQ(check_frames(read_tsl(read_file(path + ".tsl")).frames, json).dropped, 0U);
  EXPECT_EQ(check_frames(read_json(read_file(path + ".json")).frames, json).dropped, 0U);
  EXPECT_EQ(check_frames(read_csv(read_file(path + ".csv")).frames, csv).dropped, 0U);
}

TEST_F(UsersLocale, leaves_rows_and_tables_alone) {
  const Finished rows = run(here({"stream", "--raw", "--count", "20", "--port", glove_.port()}));
  EXPECT_EQ(rows.status, kSuccess);
  HandText row({}, HandStyle::row);
  for (const Row& shown : rows_in(rows.output)) EXPECT_TRUE(row.find(shown.values)) << shown.values;
  const Finished tables = run(here({"stream", "--count", "60", "--port", glove_.port()}));
  EXPECT_EQ(tables.status, kSuccess);
  HandText fingers({}, HandStyle::fingers);
  for (const Table& shown : tables_in(tables.output, "Connecting to TSL-VG000001...\n")) {
    EXPECT_TRUE(fingers.find(shown.fingers)) << shown.fingers;
  }
}

TEST_F(UsersLocale, leaves_a_replay_alone) {
  const std::string path = directory_.file("take.tsl");
  ASSERT_EQ(run_tool({"record", path, "--frames", "20", "--port", glove_.port()}).status, kSuccess);
  const std::vector<std::string> words{"replay", path, "--speed", "2.25"};
  const Finished at_home = run(tool(words));
  const Finished abroad = run(here(words));
  EXPECT_EQ(abroad.status, kSuccess);
  EXPECT_EQ(abroad.output, at_home.output);
  EXPECT_THAT(abroad.output, HasSubstr("  speed x2.25\n"));
}

TEST_F(UsersLocale, leaves_the_health_table_alone) {
  const Finished health = run(here({"health", "--frames", "20", "--port", glove_.port()}));
  EXPECT_EQ(health.status, kSuccess);
  EXPECT_EQ(health.error, "");
  EXPECT_THAT(health.output, HasSubstr("Frames analyzed: 20\n"));
  EXPECT_EQ(health.output.find(','), std::string::npos) << health.output;
}

TEST_F(UsersLocale, leaves_the_rate_of_the_mock_alone) {
  // With the fraction lost it would be a rate at which nothing can be paced.
  const Finished stream = run(here({"stream", "--mock", "--raw", "--count", "2", "--hz", "0.9"}));
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
}

}  // namespace
}  // namespace tarsil::test
