// From frames to a file and back, also when the file was cut.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarsil/recording/line_rules.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

constexpr ReplayerConfig kUnpaced{0.0F, false};

float as_written(float value, int decimals) {
  return std::strtof(test::printed(static_cast<double>(value), decimals).c_str(), nullptr);
}

/// What a frame is after it was written with the decimals of the format and read back.
Frame as_written(Frame frame) {
  frame.t = std::strtod(test::printed(frame.t, 6).c_str(), nullptr);
  for (float& value : frame.q) value = as_written(value, 6);
  for (float& value : frame.touch) value = as_written(value, 6);
  for (ImuSample& sample : frame.imu) {
    for (float& value : sample.acc) value = as_written(value, 3);
    for (float& value : sample.gyro) value = as_written(value, 3);
  }
  frame.stale = false;
  return frame;
}

void expect_round_trip(const std::vector<Frame>& frames) {
  const test::TempDirectory directory;
  const std::string path = directory.file("a.tsl");
  {
    Recorder recorder(path);
    for (const Frame& frame : frames) recorder.write_frame(frame);
  }
  const Replayer replayer(path, kUnpaced);
  ASSERT_EQ(replayer.frame_count(), frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const Frame expected = as_written(frames[i]);
    ASSERT_TRUE(test::same_bits(replayer.frames()[i], expected))
        << test::exact_text(replayer.frames()[i]) << "\nshould be\n"
        << test::exact_text(expected);
  }
}

TEST(RoundTrip, gives_the_values_back_as_they_were_written) {
  expect_round_trip(test::worn_frames(2000, 1));
}

TEST(RoundTrip, gives_frames_of_any_shape_back) {
  std::mt19937 random(2);
  std::vector<Frame> frames;
  for (std::uint64_t i = 0; i < 500; ++i) {
    frames.push_back(test::worn_frame(random, i, {random() % 30, random() % 40, random() % 8}));
  }
  expect_round_trip(frames);
}

TEST(RoundTrip, gives_values_back_that_are_no_numbers) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  Frame frame = test::small_frame();
  frame.q = {nan, -nan, infinity, -infinity, -0.0F};
  frame.imu[0].acc = {infinity, nan, -nan};
  Frame late = test::bare_frame(2, std::numeric_limits<double>::infinity());
  expect_round_trip({frame, late, test::small_frame()});
}

TEST(RoundTrip, gives_the_largest_values_back) {
  Frame frame = test::bare_frame(9007199254740992U, 1e300);
  frame.q = {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(), 1e-30F, 16777217.0F};
  frame.touch = {std::numeric_limits<float>::denorm_min()};
  expect_round_trip({frame});
}

TEST(RoundTrip, gives_identity_and_markers_back) {
  const test::TempDirectory directory;
  const std::string path = directory.file("a.tsl");
  {
    Recorder recorder(path, {{"serial", "TSL-0001"}, {"side", "left"}, {"n_dofs", "20"}, {"n_pads", "30"}});
    recorder.add_marker("before", {{"k", "v"}});
    recorder.write_frame(test::small_frame());
    recorder.add_marker("a\"b");
  }
  const Replayer replayer(path, kUnpaced);
  const DeviceInfo info = replayer.device_info();
  EXPECT_EQ(info.serial, "TSL-0001");
  EXPECT_EQ(info.side, 0);
  EXPECT_EQ(info.firmware, "0.3.0");
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 1);
  ASSERT_EQ(replayer.markers().size(), 2U);
  EXPECT_EQ(replayer.markers()[0].name, "before");
  EXPECT_EQ(replayer.markers()[0].data, (std::map<std::string, std::string>{{"k", "v"}}));
  EXPECT_EQ(replayer.markers()[1].name, "a\\");
  EXPECT_GT(replayer.markers()[1].t, 1.6e9);
}

TEST(RoundTrip, of_csv_and_json_is_refused) {
  const test::TempDirectory directory;
  for (const char* const name : {"a.csv", "a.json"}) {
    const std::string path = directory.file(name);
    { Recorder(path).write_frame(test::small_frame()); }
    try {
      const Replayer replayer(path);
      ADD_FAILURE() << name;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), "Replayer: no frames found in: " + path);
    }
  }
}

/// A recording cut after any of its bytes: the lines before the cut are whole, and the one it goes through
/// counts as what its type says, if that is left.
class CutRecording : public testing::Test {
 protected:
  CutRecording() {
    Recorder recorder(directory_.file("whole.tsl"), {{"n_dofs", "2"}, {"side", "left"}});
    recorder.write_frame(test::small_frame());
    recorder.add_marker("between", {{"k", "v"}});
    for (const Frame& frame : test::worn_frames(2, 3, {2, 2, 2})) recorder.write_frame(frame);
    whole_ = test::read_file(directory_.file("whole.tsl"));
  }

  /// The path of a copy that is so long.
  std::string cut(std::size_t length) {
    test::write_file(directory_.file("cut.tsl"), whole_.substr(0, length));
    return directory_.file("cut.tsl");
  }

  test::TempDirectory directory_;
  std::string whole_;
};

/// Frames and markers in the first `length` bytes.
struct Expected {
  std::vector<Frame> frames;
  std::vector<Marker> markers;
};

Expected what_is_left(const std::string& whole, std::size_t length) {
  Expected left;
  for (const std::string& line : test::lines_of(whole.substr(0, length))) {
    if (line.starts_with("{\"type\":\"frame\"")) left.frames.push_back(detail::frame_by_rules(line));
    if (line.starts_with("{\"type\":\"marker\"")) left.markers.push_back(detail::marker_by_rules(line));
  }
  return left;
}

TEST_F(CutRecording, has_every_whole_frame_and_what_is_left_of_the_last) {
  for (std::size_t length = 0; length <= whole_.size(); ++length) {
    const Expected expected = what_is_left(whole_, length);
    const std::string path = cut(length);
    if (expected.frames.empty()) {
      EXPECT_THROW(Replayer(path, kUnpaced), std::runtime_error) << length;
      continue;
    }
    const Replayer replayer(path, kUnpaced);
    ASSERT_EQ(replayer.frame_count(), expected.frames.size()) << length;
    for (std::size_t i = 0; i < expected.frames.size(); ++i) {
      EXPECT_TRUE(test::same_bits(replayer.frames()[i], expected.frames[i])) << length;
    }
    ASSERT_EQ(replayer.markers().size(), expected.markers.size()) << length;
    for (std::size_t i = 0; i < expected.markers.size(); ++i) {
      EXPECT_EQ(replayer.markers()[i].t, expected.markers[i].t) << length;
      EXPECT_EQ(replayer.markers()[i].name, expected.markers[i].name) << length;
      EXPECT_EQ(replayer.markers()[i].data, expected.markers[i].data) << length;
    }
    EXPECT_EQ(replayer.device_info().side, 0);
  }
}

TEST_F(CutRecording, loses_nothing_with_its_last_line_feed) {
  const Replayer replayer(cut(whole_.size() - 1), kUnpaced);
  ASSERT_EQ(replayer.frame_count(), 3U);
  EXPECT_TRUE(test::same_bits(replayer.frames()[2], as_written(test::worn_frames(2, 3, {2, 2, 2})[1])));
}

TEST_F(CutRecording, keeps_the_arrays_that_were_closed) {
  const std::size_t last_line = whole_.rfind("{\"type\":\"frame\"");
  const std::size_t touch = whole_.find(",\"touch\":", last_line);
  const Replayer replayer(cut(touch + 14), kUnpaced);
  ASSERT_EQ(replayer.frame_count(), 3U);
  const Frame& torn = replayer.frames()[2];
  EXPECT_EQ(torn.seq, 1U);
  EXPECT_EQ(torn.t, 1700000000.01);
  EXPECT_EQ(torn.q.size(), 2U);
  EXPECT_TRUE(torn.touch.empty());
  EXPECT_TRUE(torn.imu.empty());
}

TEST_F(CutRecording, passes_over_a_line_that_does_not_name_its_type) {
  const std::size_t last_line = whole_.rfind("{\"type\":\"frame\"");
  EXPECT_EQ(Replayer(cut(last_line + 14), kUnpaced).frame_count(), 2U);
  EXPECT_EQ(Replayer(cut(last_line + 15), kUnpaced).frame_count(), 3U);
}

TEST_F(CutRecording, may_end_with_a_torn_marker) {
  const std::size_t name = whole_.find("\"between\"");
  const Replayer replayer(cut(name + 4), kUnpaced);
  EXPECT_EQ(replayer.frame_count(), 1U);
  ASSERT_EQ(replayer.markers().size(), 1U);
  EXPECT_GT(replayer.markers()[0].t, 1.6e9);
  EXPECT_EQ(replayer.markers()[0].name, "");
  EXPECT_TRUE(replayer.markers()[0].data.empty());
}

}  // namespace
}  // namespace tarsil
