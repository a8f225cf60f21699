// Recordings that cannot be written, or not to their end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

const std::string kWriteFailed =
    "Error: Recorder: write failed (disk full or I/O error) — recording is incomplete\n";

std::string opening(const std::string& path, const std::string& extension) {
  return "Recording to " + path + "  format: " + extension + "  (Ctrl+C to stop)\n";
}

TEST(RecordFailure, full_disk_ends_the_recording) {
  const TempDirectory directory;
  for (const std::string extension : {".tsl", ".csv"}) {
    const VirtualGlove glove;
    const std::string path = directory.file("full" + extension);
    fs::create_symlink("/dev/full", path);
    const Finished record = run_tool({"record", path, "--port", glove.port()});
    EXPECT_EQ(record.status, kFailure);
    EXPECT_EQ(record.output, opening(path, extension));
    EXPECT_EQ(record.error, kWriteFailed);
  }
}

TEST(RecordFailure, full_disk_goes_unnoticed_in_a_json_document) {
  const TempDirectory directory;
  const VirtualGlove glove;
  const std::string path = directory.file("full.json");
  fs::create_symlink("/dev/full", path);
  const Finished record = run_tool({"record", path, "--frames", "10", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, testing::HasSubstr("Saved 10 frames  "));
  EXPECT_EQ(record.error, "");
}

class RecordFileLimit : public testing::Test {
 protected:
  static constexpr rlim_t kLimit = 50000;

  /// Records into files of at most kLimit bytes until that fails.
  [[nodiscard]] Finished record(const std::string& path) const {
    ProcessOptions options = tool({"record", path, "--port", glove_.port()});
    options.in_child = [] {
      const rlimit limit{kLimit, kLimit};
      setrlimit(RLIMIT_FSIZE, &limit);
      signal(SIGXFSZ, SIG_DFL);
    };
    return run(options);
  }

  TempDirectory directory_;
  VirtualGlove glove_;
};

TEST_F(RecordFileLimit, leaves_every_tsl_line_that_was_written) {
  const std::string path = directory_.file("take.tsl");
  const Finished finished = record(path);
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.output, opening(path, ".tsl"));
  EXPECT_EQ(finished.error, kWriteFailed);
  EXPECT_EQ(fs::file_size(path), kLimit);
  const Recording taken = read_tsl(read_file(path));
  EXPECT_GE(taken.frames.size(), 40U);
  HandText hand({}, HandStyle::json);
  check_frames(taken.frames, hand);
}

TEST_F(RecordFileLimit, leaves_every_csv_row_that_was_written) {
  const std::string path = directory_.file("take.csv");
  const Finished finished = record(path);
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.output, opening(path, ".csv"));
  EXPECT_EQ(finished.error, kWriteFailed);
  EXPECT_EQ(fs::file_size(path), kLimit);
  const Recording taken = read_csv(read_file(path));
  EXPECT_EQ(taken.head, csv_columns());
  EXPECT_GE(taken.frames.size(), 40U);
  HandText hand({}, HandStyle::csv);
  check_frames(taken.frames, hand);
}

TEST(RecordFailure, missing_directory_is_named_before_anything_is_printed) {
  const TempDirectory directory;
  const VirtualGlove glove;
  const std::string path = directory.file("missing/take.tsl");
  const Finished record = run_tool({"record", path, "--port", glove.port()});
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(record.output, "");
  EXPECT_EQ(record.error, "Error: Recorder: cannot open: " + path + "\n");
}

TEST(RecordFailure, directory_in_the_place_of_the_file_is_named) {
  const TempDirectory directory;
  const VirtualGlove glove;
  const std::string path = directory.file("take.tsl");
  fs::create_directory(path);
  const Finished record = run_tool({"record", path, "--port", glove.port()});
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(record.output, "");
  EXPECT_EQ(record.error, "Error: Recorder: cannot open: " + path + "\n");
}

TEST(RecordFailure, unwritable_directory_is_named_with_the_extension_that_was_added) {
  const TempDirectory directory;
  const VirtualGlove glove;
  const std::string path = directory.file("closed/take");
  fs::create_directory(directory.file("closed"));
  fs::permissions(directory.file("closed"), fs::perms::owner_read | fs::perms::owner_exec);
  ProcessOptions options = tool({"record", path, "--format", "json", "--port", glove.port()});
  // Root may write everywhere, unless this right of root's is given up. Nobody else has it.
  options.in_child = [] { prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0); };
  const Finished record = run(options);
  fs::permissions(directory.file("closed"), fs::perms::owner_all);
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(record.output, "");
  EXPECT_EQ(record.error, "Error: Recorder: cannot open: " + path + ".json\n");
}

TEST(RecordFailure, bad_option_leaves_an_older_recording_alone) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  write_file(path, "precious");
  const Finished record = run_tool({"record", path, "--frames", "x"});
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(read_file(path), "precious");
}

}  // namespace
}  // namespace tarsil::test
