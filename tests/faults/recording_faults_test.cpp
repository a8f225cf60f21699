// Recorder and Replayer in a program of somebody else's, which goes on after an error.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/recording/line_reader.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/faults/library_faults.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

using test::error_of;
using test::fail_each_in_turn;

constexpr const char* kNoMemory = "std::bad_alloc";
constexpr std::size_t kFrames = 6;

class RecordingFaults : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }
  [[nodiscard]] std::string content(const std::string& name) const { return test::read_file(file(name)); }

  test::TempDirectory directory_;
};

/// Does it again until there is memory for it. Returns how often it was tried in vain.
template <typename Action>
std::size_t insist(Action action) {
  for (std::size_t failures = 0;; ++failures) {
    try {
      action();
      return failures;
    } catch (const std::bad_alloc&) {
    }
  }
}

/// The part of a recording that does not depend on when it was made.
std::string timeless(const std::string& text, const std::string& extension) {
  if (extension == ".tsl") return text.substr(text.find('\n'));
  return extension == ".json" ? text.substr(text.find("\"metadata\"")) : text;
}

class RecorderFaults : public RecordingFaults, public testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Formats, RecorderFaults, testing::Values(".tsl", ".csv", ".json"),
                         [](const auto& extension) { return extension.param.substr(1); });

class RecorderMemory : public RecorderFaults {
 protected:
  void expect_that_frames_can_be_written_again(const std::vector<Frame>& frames) const;
};

INSTANTIATE_TEST_SUITE_P(Formats, RecorderMemory, testing::Values(".tsl", ".csv", ".json"),
                         [](const auto& extension) { return extension.param.substr(1); });

void RecorderMemory::expect_that_frames_can_be_written_again(const std::vector<Frame>& frames) const {
  const std::string path = file("take" + GetParam());
  std::string undisturbed;
  fail_each_in_turn("memory", "ENOMEM", [&](const std::string& rules, std::size_t number) {
    std::size_t failures = 0;
    {
      std::optional<Recorder> recorder;
      failures += insist([&] { recorder.emplace(path, Recorder::Metadata{{"subject", "P01"}}); });
      for (std::size_t i = 0; i < frames.size(); ++i) {
        failures += insist([&] { recorder->write_frame(frames[i]); });
        EXPECT_EQ(recorder->frames_written(), i + 1) << rules;
      }
      EXPECT_EQ(recorder->duration(), frames.back().t - frames.front().t);
      // What closing takes is another matter: there is nobody to tell.
      test::faults::disarm_rules();
    }
    test::faults::set_concerned(false);
    const std::string text = timeless(content("take" + GetParam()), GetParam());
    if (number == 0) undisturbed = text;
    EXPECT_EQ(text, undisturbed) << rules;
    EXPECT_LE(failures, 1U) << rules;
  });
}

TEST_P(RecorderMemory, that_lacks_keeps_a_frame_out_that_can_be_written_again) {
  expect_that_frames_can_be_written_again(test::worn_frames(kFrames, 1));
}

/// Of these, a csv row is longer than the heading.
TEST_P(RecorderMemory, that_lacks_keeps_a_bare_frame_out_that_can_be_written_again) {
  expect_that_frames_can_be_written_again(
      {test::bare_frame(1, 1700000000.5), test::bare_frame(2, 1700000001.5)});
}

TEST_P(RecorderFaults, in_opening_are_named) {
  const std::string path = file("take" + GetParam());
  for (const char* const fault : {"EACCES", "EMFILE", "ENFILE", "ENOSPC", "EIO", "ENOMEM"}) {
    const std::size_t hits = test::use_with("open@" + path + ":1:" + fault, [&] {
      EXPECT_EQ(error_of([&] { const Recorder recorder(path); }), "Recorder: cannot open: " + path);
    });
    EXPECT_EQ(hits, 1U);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST_P(RecorderFaults, in_closing_go_unnoticed) {
  const std::string path = file("take" + GetParam());
  test::use_with("close@" + path + ":1:EIO", [&] {
    Recorder recorder(path);
    recorder.write_frame(test::small_frame());
  });
  EXPECT_NE(content("take" + GetParam()), "");
}

class ReplayerFaults : public RecordingFaults {
 protected:
  /// A recording of so many frames, numbered from 0.
  [[nodiscard]] std::string recording(std::size_t frames) const {
    Recorder recorder(file("take.tsl"), {{"serial", "TSL-1"}, {"n_dofs", "20"}});
    for (const Frame& frame : test::worn_frames(frames, 1)) recorder.write_frame(frame);
    recorder.add_marker("a marker whose name is long enough to need memory", {{"key", "value"}});
    return file("take.tsl");
  }

  /// Loads and plays it to the end; the frames.
  static std::size_t play(const std::string& path) {
    Replayer replayer(path, {.speed = 0.0F});
    std::size_t played = 0;
    for (; replayer.is_open(); ++played) EXPECT_EQ(replayer.read_frame().seq, played);
    EXPECT_EQ(replayer.markers().size(), 1U);
    return played;
  }
};

TEST_F(ReplayerFaults, of_memory_can_be_outlived) {
  const std::string path = recording(20);
  fail_each_in_turn("memory", "ENOMEM", [&](const std::string& rules, std::size_t number) {
    std::size_t played = 0;
    EXPECT_EQ(insist([&] { played = play(path); }), number == 0 ? 0U : 1U) << rules;
    EXPECT_EQ(played, 20U) << rules;
  });
}

TEST_F(ReplayerFaults, of_memory_that_stay_leave_nothing_open) {
  const std::string path = recording(20);
  fail_each_in_turn("memory", "ENOMEM:0", [&](const std::string& rules, std::size_t number) {
    const std::string error = error_of([&] { play(path); });
    EXPECT_EQ(error, number == 0 ? "" : kNoMemory) << rules;
  });
}

TEST_F(ReplayerFaults, in_opening_are_named) {
  const std::string path = recording(1);
  for (const char* const fault : {"EACCES", "EMFILE", "ENFILE", "EIO", "ENOMEM"}) {
    test::use_with("open@" + path + ":1:" + fault, [&] {
      EXPECT_EQ(error_of([&] { const Replayer replayer(path); }), "Replayer: cannot open: " + path);
    });
  }
}

/// A recording of which only so many bytes can be read.
TEST_F(ReplayerFaults, in_reading_leave_the_whole_lines_before_them) {
  const std::string path = recording(1000);
  const std::string text = content("take.tsl");
  // A read fills the buffer, behind what is left of a line.
  constexpr std::size_t kBuffer = std::size_t{256} * 1024 - 1;
  std::size_t whole = 0;  // bytes of the lines that came to their end
  fail_each_in_turn("read@" + path, "EIO", [&](const std::string& rules, std::size_t number) {
    if (number == 0) {
      EXPECT_EQ(play(path), 1000U);
      return;
    }
    const auto lines = test::lines_of(text.substr(0, whole)).size();
    const std::string none = "Replayer: no frames found in: " + path;
    if (lines == 0) {
      EXPECT_EQ(error_of([&] { const Replayer replayer(path); }), none) << rules;
    } else {
      const Replayer replayer(path);
      // The heading and the marker are no frames.
      EXPECT_EQ(replayer.frame_count(), lines - 1 - replayer.markers().size()) << rules;
    }
    const std::size_t end = std::min(whole + kBuffer, text.size());
    whole = text.rfind('\n', end - 1) + 1;
  });
}

TEST_F(ReplayerFaults, that_are_none_are_survived) {
  const std::string path = recording(20);
  for (const std::string& how :
       {"read@" + path + ":1:EINTR:3:4 open@" + path + ":1:EINTR:3:4", "read@" + path + ":1:ONE:0",
        "read@" + path + ":1:HALF:0", "close@" + path + ":1:EIO"}) {
    EXPECT_GE(test::use_with(how, [&] { EXPECT_EQ(play(path), 20U) << how; }), 1U);
  }
}

TEST_F(RecordingFaults, in_reading_cut_no_line_in_half) {
  test::write_file(file("lines"), "one\ntwo\nthree");
  const std::string read = "read@" + file("lines");
  test::use_with(read + ":1:ONE:6 " + read + ":7:EIO", [&] {
    detail::LineReader reader(file("lines"));
    std::vector<std::string> lines;
    while (const auto line = reader.next()) lines.emplace_back(*line);
    EXPECT_EQ(lines, std::vector<std::string>{"one"});
  });
}

}  // namespace
}  // namespace tarsil
