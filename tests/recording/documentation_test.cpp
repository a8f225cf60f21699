// The examples in docs/recording-formats.md: its files are what the recorder writes, and its commands print
// what stands below them.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tarsil/recording/recorder.h"
#include "tests/recording/samples.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

/// A fenced block: what follows the fence, and what it holds.
struct Block {
  std::string language;
  /// Second word behind the fence: the file that the block shows.
  std::string file;
  std::string text;
};

std::vector<Block> blocks_of(const std::string& path) {
  std::vector<Block> blocks;
  bool inside = false;
  for (const std::string& line : test::lines_of(test::read_file(path))) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (!inside) continue;
      Block block;
      std::istringstream(line.substr(3)) >> block.language >> block.file;
      blocks.push_back(block);
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

/// The session that the page is about.
void record_session(Recorder& recorder) {
  Frame frame = test::bare_frame(41, 1700000000.0);
  frame.q = {0.1F, 0.25F};
  frame.touch = {0.0F};
  frame.imu = {{{0.01F, -0.02F, 0.99F}, {0.5F, 0.0F, -1.25F}}};
  recorder.write_frame(frame);
  recorder.add_marker("grasp", {{"object", "cup"}});
  frame.seq = 42;
  frame.t = 1700000000.01;
  frame.q = {0.2F, 0.75F};
  frame.touch = {0.5F};
  recorder.write_frame(frame);
  frame.t = 1700000000.11;
  frame.stale = true;
  recorder.write_frame(frame);
}

/// Blanks out the number behind `key`, if the line has that.
void blank_out_number(std::string& line, const std::string& key) {
  const std::size_t found = line.find(key);
  if (found == std::string::npos) return;
  const std::size_t begin = line.find_first_not_of(' ', found + key.size());
  const std::size_t end = line.find_first_not_of("0123456789.", begin);
  line.replace(begin, end - begin, "TIME");
}

/// The same text with the times of the recording's own making, which are different each time, blanked out.
std::string without_times_of_day(const std::string& text) {
  std::string result;
  for (std::string line : test::lines_of(text)) {
    blank_out_number(line, "\"t_created\":");
    blank_out_number(line, "# marker t=");
    if (line.find("\"name\":") != std::string::npos) blank_out_number(line, "\"t\":");
    result += line + "\n";
  }
  return result;
}

class RecordingFormatsPage : public testing::Test {
 protected:
  RecordingFormatsPage() : blocks_(blocks_of(TARSIL_DOCS "/recording-formats.md")) {
    const Recorder::Metadata metadata{{"side", "right"}, {"serial", "TSL-0001"}};
    for (const char* const name : {"take.tsl", "take.csv", "take.json"}) {
      Recorder recorder(directory_.file(name), metadata);
      record_session(recorder);
    }
  }

  test::TempDirectory directory_;
  std::vector<Block> blocks_;
};

TEST_F(RecordingFormatsPage, shows_files_as_they_are_written) {
  int files = 0;
  for (const Block& block : blocks_) {
    if (block.file.empty()) continue;
    ++files;
    EXPECT_EQ(without_times_of_day(block.text),
              without_times_of_day(test::read_file(directory_.file(block.file))));
  }
  EXPECT_EQ(files, 3);
}

TEST_F(RecordingFormatsPage, shows_commands_that_work) {
  int commands = 0;
  for (std::size_t i = 0; i < blocks_.size(); ++i) {
    const Block& block = blocks_[i];
    test::ProcessOptions options;
    options.directory = directory_.path();
    if (block.language == "python") options.command = {TARSIL_PYTHON, "-c", block.text};
    if (block.language == "sh") options.command = {"sh", "-e", "-u", "-c", block.text};
    if (options.command.empty()) continue;
    ++commands;
    const test::Finished finished = test::run(options);
    EXPECT_EQ(finished.status, (test::ExitStatus{0, 0})) << block.text << finished.error;
    EXPECT_EQ(finished.error, "") << block.text;
    ASSERT_LT(i + 1, blocks_.size());
    ASSERT_EQ(blocks_[i + 1].language, "text") << "what does this print?\n" << block.text;
    EXPECT_EQ(finished.output, blocks_[i + 1].text) << block.text;
  }
  EXPECT_GE(commands, 6);
}

TEST_F(RecordingFormatsPage, has_nothing_that_is_not_checked) {
  for (std::size_t i = 0; i < blocks_.size(); ++i) {
    const Block& block = blocks_[i];
    const bool command = block.language == "sh" || block.language == "python";
    const bool output = i > 0 && block.language == "text" &&
                        (blocks_[i - 1].language == "sh" || blocks_[i - 1].language == "python");
    EXPECT_TRUE(command || output || !block.file.empty()) << block.text;
  }
}

}  // namespace
}  // namespace tarsil
