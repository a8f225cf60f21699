// What recover keeps, what it says of the rest, and what it never touches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class RecordingRecovery : public testing::Test {
 protected:
  Finished recover(const std::string& bytes) {
    write_file(in_, bytes);
    return run_recording_tool({"recover", "--force", in_, out_});
  }
  void expect_fine() const { EXPECT_EQ(run_recording_tool({"check", out_}).status, kDone); }

  TempDirectory directory_;
  std::string in_ = directory_.file("in.tsl");
  std::string out_ = directory_.file("out.tsl");
};

TEST_F(RecordingRecovery, leaves_out_the_cut_line_and_says_so) {
  const std::string whole = small_recording(3);
  const Finished recovery = recover(whole.substr(0, whole.size() - 20));
  EXPECT_EQ(recovery.status, kDone);
  EXPECT_EQ(recovery.output, "");
  EXPECT_EQ(recovery.error,
            "left out  line 4, column 141, byte 595: the recording is cut short: expected a number with 3 "
            "decimals, found the "
            "end of the line\n" +
                out_ + ": 2 frames and 0 markers kept, 0 lines mended, 1 left out\n");
  EXPECT_EQ(read_file(out_), small_recording(2));
}

TEST_F(RecordingRecovery, of_a_whole_recording_is_a_copy) {
  const std::string whole = header_line() + frame_line(0) + marker_line(1) + frame_line(1, true);
  EXPECT_EQ(recover(whole).error, out_ + ": 2 frames and 1 markers kept, 0 lines mended, 0 left out\n");
  EXPECT_EQ(read_file(out_), whole);
}

TEST_F(RecordingRecovery, mends_what_is_whole_but_for_its_end) {
  const std::string whole = small_recording(2);
  recover(whole.substr(0, whole.size() - 1));
  EXPECT_EQ(read_file(out_), whole);
  std::string windows = whole;
  for (std::size_t at = 0; (at = windows.find('\n', at)) != std::string::npos; at += 2)
    windows.insert(at, "\r");
  const Finished recovery = recover(windows);
  EXPECT_THAT(recovery.error, HasSubstr("2 frames and 0 markers kept, 3 lines mended, 0 left out\n"));
  EXPECT_EQ(read_file(out_), whole);
}

TEST_F(RecordingRecovery, leaves_out_every_kind_of_damage) {
  const std::string zeros(5000, '\0');
  const Finished recovery =
      recover(header_line() + frame_line(0) + zeros + frame_line(1) + "\n" + header_line() + marker_line(2) +
              std::string(3U << 20U, 'x') + "\n" + frame_line(2) + "{\"type\":\"frame\"\n" + frame_line(3));
  EXPECT_EQ(recovery.status, kDone);
  EXPECT_THAT(recovery.error, HasSubstr("3 frames and 1 markers kept, 0 lines mended, 5 left out\n"));
  EXPECT_EQ(read_file(out_), header_line() + frame_line(0) + marker_line(2) + frame_line(2) + frame_line(3));
  expect_fine();
}

TEST_F(RecordingRecovery, replaces_a_header_that_is_missing_or_damaged) {
  const std::string header =
      R"({"type":"header","version":1,"sdk":"0.3.0","format":"tsl","file":"out.tsl","t_created":1700000000.000000,)"
      R"("metadata":{}})"
      "\n";
  const Finished recovery = recover(frame_line(0) + frame_line(1));
  EXPECT_THAT(recovery.error, HasSubstr("new header, without metadata\n"));
  EXPECT_EQ(read_file(out_), header + frame_line(0) + frame_line(1));
  expect_fine();
  recover(header_line().substr(30) + frame_line(0));
  EXPECT_EQ(read_file(out_), header + frame_line(0));
}

TEST_F(RecordingRecovery, moves_a_header_that_stands_behind_frames_to_the_front) {
  std::string other_header = header_line();
  other_header.replace(other_header.find("left"), 4, "both");
  const Finished recovery = recover("torn\n" + frame_line(0) + header_line() + other_header + frame_line(1));
  EXPECT_EQ(recovery.status, kDone);
  EXPECT_EQ(recovery.error,
            "left out  line 1, column 1, byte 0: expected '{\"type\":', found 't'\n"
            "mended    line 2, column 1, byte 5: the header is missing before this line\n"
            "mended    line 3, column 1, byte 165: a header behind other lines\n"
            "left out  line 4, column 1, byte 300: a header behind other lines\n" +
                out_ + ": 2 frames and 0 markers kept, 2 lines mended, 2 left out\n");
  EXPECT_EQ(read_file(out_), small_recording(2));
}

TEST_F(RecordingRecovery, of_nothing_makes_no_file) {
  for (const std::string& bytes : {std::string(), std::string("\n\n"), std::string(10000, '\0')}) {
    const Finished recovery = recover(bytes);
    EXPECT_EQ(recovery.status, kFailed);
    EXPECT_THAT(recovery.error, HasSubstr("tarsil-recording: no line of " + in_ + " is whole\n"));
    EXPECT_THAT(names_in(directory_.path()), ElementsAre("in.tsl"));
  }
}

TEST_F(RecordingRecovery, any_damage_leaves_a_recording_that_is_fine) {
  const std::string whole = small_recording(20);
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    std::string bytes = whole;
    for (int i = 0; i < 5; ++i) bytes[random() % bytes.size()] = static_cast<char>(random() % 256);
    const Finished recovery = recover(bytes);
    ASSERT_EQ(recovery.status, kDone) << recovery.error;
    expect_fine();
  }
}

TEST_F(RecordingRecovery, replaces_a_file_only_if_it_is_told_to) {
  write_file(in_, small_recording(1));
  write_file(out_, "precious");
  const Finished recovery = run_recording_tool({"recover", in_, out_});
  EXPECT_EQ(recovery.status, kFailed);
  EXPECT_EQ(recovery.error, "tarsil-recording: " + out_ + " exists; --force replaces it\n");
  EXPECT_EQ(read_file(out_), "precious");
  fs::permissions(out_, fs::perms::owner_all);
  EXPECT_EQ(run_recording_tool({"recover", "--force", in_, out_}).status, kDone);
  EXPECT_EQ(read_file(out_), small_recording(1));
  EXPECT_EQ(fs::status(out_).permissions(), fs::perms::owner_all);
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("in.tsl", "out.tsl"));
}

TEST_F(RecordingRecovery, writes_files_with_the_longest_names) {
  write_file(in_, small_recording(1));
  const std::string path = directory_.file(std::string(255, 'x'));
  const Finished recovery = run_recording_tool({"recover", in_, path});
  EXPECT_EQ(recovery.status, kDone) << recovery.error;
  EXPECT_EQ(read_file(path), small_recording(1));
  ProcessOptions options = recording_tool({"recover", in_, "relative.tsl"});
  options.directory = directory_.path();
  EXPECT_EQ(run(options).status, kDone);
  EXPECT_EQ(read_file(directory_.file("relative.tsl")), small_recording(1));
}

TEST_F(RecordingRecovery, never_writes_the_recording_itself) {
  const std::string bytes = small_recording(2) + "torn";
  write_file(in_, bytes);
  fs::create_symlink(in_, directory_.file("symbolic"));
  fs::create_hard_link(in_, directory_.file("hard"));
  for (const std::string name : {"in.tsl", "symbolic", "hard"}) {
    const std::string path = directory_.file(name);
    const Finished recovery = run_recording_tool({"recover", "--force", in_, path});
    EXPECT_EQ(recovery.status, kFailed);
    EXPECT_EQ(recovery.error, "tarsil-recording: " + path + " is the recording itself\n");
    EXPECT_EQ(read_file(in_), bytes);
  }
}

TEST_F(RecordingRecovery, follows_a_link_to_what_it_replaces) {
  write_file(in_, small_recording(1));
  write_file(out_, "old");
  const std::string link = directory_.file("link");
  fs::create_symlink("out.tsl", link);
  EXPECT_EQ(run_recording_tool({"recover", "--force", in_, link}).status, kDone);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(read_file(out_), small_recording(1));
  fs::remove(out_);
  EXPECT_EQ(run_recording_tool({"recover", in_, link}).error,
            "tarsil-recording: " + link + " is a link that leads to no file\n");
}

TEST_F(RecordingRecovery, on_a_full_disk_fails) {
  write_file(in_, small_recording(1));
  fs::create_symlink("/dev/full", out_);
  const Finished recovery = run_recording_tool({"recover", in_, out_});
  EXPECT_EQ(recovery.status, kFailed);
  EXPECT_EQ(recovery.error, "tarsil-recording: cannot write " + out_ + ": No space left on device\n");
  EXPECT_TRUE(fs::is_symlink(out_));
}

TEST_F(RecordingRecovery, goes_where_it_may_read_and_write) {
  write_file(in_, small_recording(1));
  EXPECT_EQ(run_recording_tool({"recover", in_, directory_.file("missing/out.tsl")}).error,
            "tarsil-recording: cannot write " + directory_.file("missing/out.tsl") +
                ": No such file or directory\n");
  EXPECT_EQ(run_recording_tool({"recover", in_, directory_.path()}).error,
            "tarsil-recording: cannot write " + directory_.path().native() + ": Is a directory\n");
  fs::permissions(in_, fs::perms::none);
  ProcessOptions options = recording_tool({"recover", in_, out_});
  // Root may read everything, unless these rights of root's are given up. Nobody else has them.
  options.in_child = [] {
    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
  };
  const Finished recovery = run(options);
  EXPECT_EQ(recovery.status, kFailed);
  EXPECT_EQ(recovery.error, "tarsil-recording: cannot read " + in_ + ": Permission denied\n");
}

TEST_F(RecordingRecovery, keeps_every_whole_line_of_a_recording_that_was_killed) {
  const virtual_glove::VirtualGlove glove({.hz = 3000});
  Process record(tool({"record", in_, "--port", glove.port()}));
  ASSERT_TRUE(eventually([&] {
    std::error_code missing;
    const std::uintmax_t size = fs::file_size(in_, missing);
    return !missing && size > 200000;
  }));
  record.send_signal(SIGKILL);
  record.wait();
  // Where the last write was whole, the kill is made to look worse.
  std::string bytes = read_file(in_);
  if (bytes.ends_with('\n')) bytes.resize(bytes.size() - 300);
  const Finished recovery = recover(bytes);
  EXPECT_EQ(recovery.status, kDone);
  EXPECT_EQ(read_file(out_), bytes.substr(0, bytes.rfind('\n') + 1));
  expect_fine();
}

}  // namespace
}  // namespace tarsil::test
