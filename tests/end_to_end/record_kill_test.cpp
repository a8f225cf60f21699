// A recording that is killed without warning, at any moment, keeps every line but the one being written.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "tarsil/recording/replayer.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/random.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

/// Big enough for several dozen frames, so that some rounds end early in a recording and others late.
constexpr std::uint64_t kLargest = 60000;

class RecordKill : public testing::Test {
 protected:
  /// Records into `path` until the file is bigger than `size`, and kills the tool right then.
  void record_until(const std::string& path, std::uint64_t size) {
    fs::remove(path);
    Process record(tool({"record", path, "--port", glove_.port()}));
    ASSERT_TRUE(eventually([&] {
      std::error_code missing;
      const std::uintmax_t now = fs::file_size(path, missing);
      return !missing && now > size;
    }));
    record.send_signal(SIGKILL);
    EXPECT_EQ(record.wait(), (ExitStatus{-1, SIGKILL}));
    ASSERT_TRUE(glove_.wait_until([](const auto& account) { return account.hosts_open == 0; }, kPatience));
  }

  GloveConfig config_{.hz = 3000};
  VirtualGlove glove_{config_};
  TempDirectory directory_;
  virtual_glove::Random random_{20};
};

TEST_F(RecordKill, keeps_every_whole_tsl_line) {
  const std::string path = directory_.file("take.tsl");
  HandText hand(config_, HandStyle::json);
  for (int round = 0; round < 200 && !HasFailure(); ++round) {
    record_until(path, random_.between(0, kLargest));
    const Recording taken = read_tsl(read_file(path));
    check_frames(taken.frames, hand);
    if (taken.frames.empty()) continue;
    const Replayer replayer(path);
    // A torn line is a line too: what is left of a frame may be played.
    EXPECT_GE(replayer.frame_count(), taken.frames.size());
    EXPECT_LE(replayer.frame_count(), taken.frames.size() + (taken.torn.empty() ? 0 : 1));
    EXPECT_EQ(replayer.frames()[taken.frames.size() - 1].seq, taken.frames.back().seq);
    EXPECT_EQ(replayer.frames()[taken.frames.size() - 1].q.size(), 20U);
  }
}

TEST_F(RecordKill, keeps_every_whole_csv_row) {
  const std::string path = directory_.file("take.csv");
  HandText hand(config_, HandStyle::csv);
  for (int round = 0; round < 50 && !HasFailure(); ++round) {
    record_until(path, random_.between(0, kLargest));
    const Recording taken = read_csv(read_file(path));
    EXPECT_EQ(taken.head, csv_columns());
    check_frames(taken.frames, hand);
  }
}

}  // namespace
}  // namespace tarsil::test
