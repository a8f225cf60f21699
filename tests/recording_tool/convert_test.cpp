// Conversions are the bytes that the recorder writes for the same frames.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "tarsil/core/mock_source.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class RecordingConversion : public testing::Test {
 protected:
  void write(const std::vector<Frame>& frames, const std::string& path) {
    Recorder recorder(path, metadata_);
    for (const Frame& frame : frames) recorder.write_frame(frame);
  }
  void convert(const std::string& out) {
    const Finished conversion = run_recording_tool({"convert", in_, out});
    ASSERT_EQ(conversion.status, kDone) << conversion.error;
  }

  TempDirectory directory_;
  std::string in_ = directory_.file("take.tsl");
  std::string csv_ = directory_.file("take.csv");
  std::string json_ = directory_.file("take.json");
  Recorder::Metadata metadata_{{"note", "a \"b\"\n\\"}, {"side", "left"}};
};

/// Frames of every kind: of the synthetic source and of a worn hand, stale ones, other lengths, odd values.
std::vector<Frame> frames_of_every_kind() {
  std::vector<Frame> frames = worn_frames(40, 3);
  MockConfig config;
  config.realtime = false;
  MockSource mock(config);
  for (int i = 0; i < 40; ++i) frames.push_back(mock.read_frame());
  frames[3].stale = frames[4].stale = true;
  frames.push_back(bare_frame(7, 1.5));
  frames.push_back(small_frame());
  frames.back().q = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity(), 3e38F,
                     9.9999995F};
  frames.back().seq = std::numeric_limits<std::uint64_t>::max();
  return frames;
}

/// The text with the moment of writing replaced by that of `tsl`, which conversions keep.
std::string with_time_of(const std::string& tsl, std::string json) {
  const std::string key = "\"t_created\":";
  const std::size_t from = tsl.find(key) + key.size();
  const std::size_t to = json.find(key) + key.size() + 1;
  return json.replace(to, json.find(',', to) - to, tsl.substr(from, tsl.find(',', from) - from));
}

TEST_F(RecordingConversion, to_json_gives_the_bytes_of_the_recorder) {
  const std::vector<Frame> frames = frames_of_every_kind();
  write(frames, in_);
  const std::string expected = directory_.file("expected.json");
  write(frames, expected);
  convert(json_);
  EXPECT_EQ(read_file(json_), with_time_of(read_file(in_), read_file(expected)));
}

/// Inertial values in tsl have three decimals: what they are in csv is what the file says of them.
TEST_F(RecordingConversion, to_csv_gives_the_bytes_of_the_recorder) {
  std::vector<Frame> frames = frames_of_every_kind();
  write(frames, in_);
  const Replayer replayer(in_);
  for (std::size_t i = 0; i < frames.size(); ++i) frames[i].imu = replayer.frames()[i].imu;
  const std::string expected = directory_.file("expected.csv");
  write(frames, expected);
  convert(csv_);
  EXPECT_EQ(read_file(csv_), read_file(expected));
}

TEST_F(RecordingConversion, keeps_markers_in_their_places) {
  write_file(in_, header_line() + marker_line(0) + frame_line(0) + marker_line(1) + frame_line(1, true) +
                      marker_line(2));
  convert(csv_);
  EXPECT_EQ(
      read_file(csv_),
      "# marker t=1700000000.000000 name=grasp\n"
      "seq,t,stale,q_0,touch_0,imu_0_ax,imu_0_ay,imu_0_az,imu_0_gx,imu_0_gy,imu_0_gz\n"
      "0,1700000000.000000,0,0.500000,0.250000,0.010000,-0.020000,0.990000,0.500000,0.000000,-1.250000\n"
      "# marker t=1700000000.010000 name=grasp\n"
      "1,1700000000.010000,1,0.500000,0.250000,0.010000,-0.020000,0.990000,0.500000,0.000000,-1.250000\n"
      "# marker t=1700000000.020000 name=grasp\n");
  convert(json_);
  const std::vector<std::string> lines = lines_of(read_file(json_));
  ASSERT_EQ(lines.size(), 17U);
  EXPECT_EQ(lines[4], R"(  "t_created": 1700000000.000000,)");
  EXPECT_EQ(lines[5], R"(  "metadata": {"side": "left"},)");
  EXPECT_EQ(lines[6], R"(  "frame_count": 2,)");
  EXPECT_EQ(lines[11], R"(  "markers": [)");
  EXPECT_EQ(lines[12], R"(    {"t":1700000000.000000,"name":"grasp","data":{"object": "cup"}},)");
  EXPECT_EQ(lines[14], R"(    {"t":1700000000.020000,"name":"grasp","data":{"object": "cup"}})");
}

TEST_F(RecordingConversion, of_a_recording_without_frames_is_as_empty) {
  write_file(in_, header_line());
  convert(csv_);
  EXPECT_EQ(read_file(csv_), "");
  convert(json_);
  std::string expected;
  detail::append_json_document(expected, 1700000000.0, {{"side", "left"}}, {}, {});
  EXPECT_EQ(read_file(json_), expected);
}

TEST_F(RecordingConversion, decodes_the_names_of_markers_for_csv) {
  write_file(in_, header_line() + R"({"type":"marker","t":1.000000,"name":"a\"b\\c\td","data":{}})" + "\n");
  convert(csv_);
  EXPECT_EQ(read_file(csv_), "# marker t=1.000000 name=a\"b\\c\td\n");
}

TEST_F(RecordingConversion, refuses_what_is_damaged_and_leaves_no_file) {
  write_file(in_, small_recording(2) + "torn");
  for (const std::string& out : {csv_, json_}) {
    const Finished conversion = run_recording_tool({"convert", in_, out});
    EXPECT_EQ(conversion.status, kDamaged);
    EXPECT_EQ(conversion.error,
              "tarsil-recording: " + in_ +
                  ": line 4, column 1, byte 455: the recording is cut short: expected '{\"type\":', "
                  "found 't'\ntarsil-recording recover keeps what is whole\n");
  }
  write_file(in_, "");
  for (const std::string& out : {csv_, json_}) {
    const Finished conversion = run_recording_tool({"convert", in_, out});
    EXPECT_EQ(conversion.status, kDamaged);
    EXPECT_EQ(conversion.error, "tarsil-recording: " + in_ + ": the file is empty\n");
  }
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.tsl"));
}

TEST_F(RecordingConversion, goes_down_a_pipe) {
  write_file(in_, small_recording(1));
  const Finished conversion = run_recording_tool({"convert", "--format=csv", in_, "/dev/stdout"});
  EXPECT_EQ(conversion.status, kDone);
  EXPECT_EQ(lines_of(conversion.output).size(), 2U);
  EXPECT_EQ(conversion.error, "/dev/stdout: 1 frames, 0 markers\n");
}

TEST_F(RecordingConversion, to_json_reads_files_only) {
  Process convert(recording_tool({"convert", "/dev/stdin", json_}));
  convert.write_input(small_recording(1));
  convert.close_input();
  EXPECT_EQ(convert.wait(), kFailed);
  EXPECT_EQ(convert.error(),
            "tarsil-recording: cannot read /dev/stdin more than once: it has to be a file\n");
  EXPECT_FALSE(fs::exists(json_));
}

TEST_F(RecordingConversion, to_json_takes_its_bar_away_before_it_sums_up) {
  write_file(in_, small_recording(20000));
  ASSERT_EQ(::mkfifo(json_.c_str(), 0600), 0);
  const int reader = ::open(json_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  Terminal terminal;
  ProcessOptions options = recording_tool({"convert", in_, json_});
  options.error_path = terminal.path();
  Process convert(options);
  std::array<char, 65536> bytes;
  // One kilobyte at a time: the bar, which waits for a second, comes long before 3 MB are through.
  EXPECT_TRUE(eventually([&] {
    static_cast<void>(::read(reader, bytes.data(), 1024));
    return terminal.shown().find('%') != std::string::npos;
  }));
  const std::string summary = "\r\x1b[K" + json_ + ": 20000 frames, 0 markers\n";
  EXPECT_TRUE(eventually([&] {
    static_cast<void>(::read(reader, bytes.data(), bytes.size()));
    return terminal.shown().ends_with(summary);
  })) << terminal.shown();
  EXPECT_EQ(convert.wait(), kDone);
  ::close(reader);
}

TEST_F(RecordingConversion, on_a_full_disk_fails) {
  write_file(in_, small_recording(1));
  for (const std::string format : {"csv", "json"}) {
    const Finished conversion = run_recording_tool({"convert", "--format", format, in_, "/dev/full"});
    EXPECT_EQ(conversion.status, kFailed);
    EXPECT_EQ(conversion.error, "tarsil-recording: cannot write /dev/full: No space left on device\n");
  }
}

}  // namespace
}  // namespace tarsil::test
