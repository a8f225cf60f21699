// `tarsil replay` on recordings that the library's own recorder has written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::StartsWith;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// Reading and sleeping go by different clocks.
constexpr auto kTolerance = 20ms;

Frame frame_at(double t, std::vector<float> q) {
  Frame frame;
  frame.t = t;
  frame.q = std::move(q);
  return frame;
}

/// `count` frames from t = 1000 on, `interval` seconds apart; q[0] is a quarter of the index.
void write_frames(Recorder& recorder, int count, double interval) {
  for (int i = 0; i < count; ++i) {
    recorder.write_frame(frame_at(1000.0 + interval * i, {0.25F * static_cast<float>(i), 1.0F}));
  }
}

class Replay : public testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return directory_.file("take.tsl"); }
  [[nodiscard]] Finished replay(std::vector<std::string> options) const {
    options.insert(options.begin(), {"replay", path()});
    return run_tool(options);
  }

  TempDirectory directory_;
};

TEST_F(Replay, shows_every_twentieth_frame) {
  {
    Recorder recorder(path());
    write_frames(recorder, 45, 0.01);
  }
  const Finished played = replay({});
  EXPECT_EQ(played.status, kSuccess);
  EXPECT_EQ(played.error, "");
  EXPECT_EQ(played.output, "Replaying " + path() +
                               " — 45 frames  0.44 s  speed x1.00\n\n"
                               "t=1000.0000  q[0]=0.0000\n"
                               "t=1000.2000  q[0]=5.0000\n"
                               "t=1000.4000  q[0]=10.0000\n"
                               "\nReplayed 45 frames.\n");
}

TEST_F(Replay, lists_the_markers_first) {
  {
    Recorder recorder(path());
    recorder.add_marker("begin");
    write_frames(recorder, 2, 0.01);
    recorder.add_marker("second grasp", {{"object", "cup"}});
  }
  const Replayer replayer(path());
  ASSERT_EQ(replayer.markers().size(), 2U);
  std::string markers = "2 marker(s) in recording:\n";
  for (const Marker& marker : replayer.markers()) {
    std::array<char, 64> t{};
    static_cast<void>(std::snprintf(t.data(), t.size(), "  t=%.3f  ", marker.t));
    markers += t.data() + marker.name + "\n";
  }
  EXPECT_THAT(markers, HasSubstr("  begin\n"));
  EXPECT_THAT(markers, HasSubstr("  second grasp\n"));
  const Finished played = replay({"--speed", "0"});
  EXPECT_EQ(played.status, kSuccess);
  EXPECT_EQ(played.output, "Replaying " + path() + " — 2 frames  0.01 s  speed x0.00\n\n" + markers +
                               "\nt=1000.0000  q[0]=0.0000\n\nReplayed 2 frames.\n");
}

TEST_F(Replay, keeps_to_the_times_of_the_recording) {
  {
    Recorder recorder(path());
    write_frames(recorder, 5, 0.125);
  }
  struct Pace {
    const char* speed;
    const char* shown;
    std::chrono::milliseconds least;
  };
  for (const Pace& pace : {Pace{"1", "1.00", 500ms}, Pace{"2", "2.00", 250ms}, Pace{"0.5", "0.50", 1000ms}}) {
    const auto begin = steady_clock::now();
    const Finished played = replay({"--speed", pace.speed});
    EXPECT_GE(steady_clock::now() - begin, pace.least - kTolerance);
    EXPECT_EQ(played.status, kSuccess);
    EXPECT_EQ(played.output, "Replaying " + path() + " — 5 frames  0.50 s  speed x" + pace.shown +
                                 "\n\nt=1000.0000  q[0]=0.0000\n\nReplayed 5 frames.\n");
  }
}

TEST_F(Replay, does_not_wait_at_speeds_that_are_not_positive) {
  {
    Recorder recorder(path());
    write_frames(recorder, 3, 100000.0);
  }
  for (const auto& [speed, shown] : {std::pair{"0", "0.00"}, std::pair{" -2", "-2.00"}}) {
    const Finished played = replay({"--speed", speed});
    EXPECT_EQ(played.status, kSuccess);
    EXPECT_EQ(played.output, "Replaying " + path() + " — 3 frames  200000.00 s  speed x" + shown +
                                 "\n\nt=1000.0000  q[0]=0.0000\n\nReplayed 3 frames.\n");
  }
}

TEST_F(Replay, shows_its_heading_before_it_plays) {
  {
    Recorder recorder(path());
    write_frames(recorder, 2, 100000.0);
  }
  Process replay(tool({"replay", path()}));
  EXPECT_TRUE(replay.wait_for_output("t=1000.0000  q[0]=0.0000\n"));
  EXPECT_EQ(replay.output(),
            "Replaying " + path() + " — 2 frames  100000.00 s  speed x1.00\n\nt=1000.0000  q[0]=0.0000\n");
}

TEST_F(Replay, loops_until_it_is_killed) {
  {
    Recorder recorder(path());
    write_frames(recorder, 3, 0.01);
  }
  Process replay(tool({"replay", path(), "--loop"}));
  ASSERT_TRUE(replay.wait_for_output("t=1000.0200"));
  replay.send_signal(SIGINT);
  replay.send_signal(SIGTERM);
  const std::size_t so_far = replay.output().size();
  EXPECT_TRUE(replay.wait_until([&] { return replay.output().size() > so_far + 200000; }));
  replay.send_signal(SIGKILL);
  EXPECT_EQ(replay.wait(), (ExitStatus{-1, SIGKILL}));
  // Frames 0, 20, 40, 60 of the loop, which are 0, 2, 1, 0 of the recording.
  EXPECT_THAT(replay.output(), StartsWith("Replaying " + path() +
                                          " — 3 frames  0.02 s  speed x1.00\n\n"
                                          "t=1000.0000  q[0]=0.0000\n"
                                          "t=1000.0200  q[0]=0.5000\n"
                                          "t=1000.0100  q[0]=0.2500\n"
                                          "t=1000.0000  q[0]=0.0000\n"));
}

TEST_F(Replay, plays_to_the_end_whatever_signals_come) {
  {
    Recorder recorder(path());
    write_frames(recorder, 21, 0.05);
  }
  Process replay(tool({"replay", path()}));
  ASSERT_TRUE(replay.wait_for_output("t=1000.0000"));
  const auto begin = steady_clock::now();
  replay.send_signal(SIGINT);
  replay.send_signal(SIGTERM);
  EXPECT_EQ(replay.wait(), kSuccess);
  EXPECT_GE(steady_clock::now() - begin, 500ms);
  EXPECT_TRUE(replay.output().ends_with("t=1001.0000  q[0]=5.0000\n\nReplayed 21 frames.\n"));
}

TEST_F(Replay, shows_nothing_for_an_angle_that_is_not_there) {
  {
    Recorder recorder(path());
    recorder.write_frame(frame_at(12.5, {}));
  }
  const Finished played = replay({});
  EXPECT_EQ(played.status, kSuccess);
  EXPECT_EQ(
      played.output,
      "Replaying " + path() + " — 1 frames  0.00 s  speed x1.00\n\nt=12.5000  q[0]=\n\nReplayed 1 frames.\n");
}

TEST_F(Replay, plays_what_record_has_taken_from_a_glove) {
  const virtual_glove::VirtualGlove glove;
  const Finished record = run_tool({"record", path(), "--frames", "41", "--port", glove.port()});
  ASSERT_EQ(record.status, kSuccess);
  const Finished played = replay({"--speed", "0"});
  EXPECT_EQ(played.status, kSuccess);
  EXPECT_THAT(played.output, StartsWith("Replaying " + path() + " — 41 frames  "));
  EXPECT_TRUE(played.output.ends_with("\n\nReplayed 41 frames.\n"));
}

TEST_F(Replay, refuses_a_speed_that_is_no_number) {
  {
    Recorder recorder(path());
    write_frames(recorder, 1, 0.0);
  }
  const Finished played = replay({"--speed", "abc"});
  EXPECT_EQ(played.status, kFailure);
  EXPECT_EQ(played.output, "");
  EXPECT_THAT(played.error, StartsWith("Error: "));
  EXPECT_THAT(played.error, HasSubstr("stof"));
}

TEST_F(Replay, says_how_it_is_used_without_a_file) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"replay"}, {"replay", "--loop", path()}, {"replay", ""}}) {
    const Finished played = run_tool(arguments);
    EXPECT_EQ(played.status, kFailure);
    EXPECT_EQ(played.output, "");
    EXPECT_EQ(played.error, "Usage: tarsil replay <file.tsl> [--speed 1.0] [--loop]\n");
  }
}

TEST_F(Replay, names_a_file_that_is_missing) {
  const Finished played = replay({});
  EXPECT_EQ(played.status, kFailure);
  EXPECT_EQ(played.output, "");
  EXPECT_EQ(played.error, "Error: Replayer: cannot open: " + path() + "\n");
}

TEST_F(Replay, finds_no_frames_in_other_formats) {
  for (const char* name : {"take.csv", "take.json"}) {
    const std::string file = directory_.file(name);
    {
      Recorder recorder(file);
      write_frames(recorder, 3, 0.01);
    }
    const Finished played = run_tool({"replay", file});
    EXPECT_EQ(played.status, kFailure);
    EXPECT_EQ(played.output, "");
    EXPECT_EQ(played.error, "Error: Replayer: no frames found in: " + file + "\n");
  }
}

TEST_F(Replay, fails_on_counts_that_are_no_numbers) {
  {
    Recorder recorder(path(), {{"n_dofs", "twenty"}});
    write_frames(recorder, 1, 0.0);
  }
  const Finished played = replay({});
  EXPECT_EQ(played.status, kFailure);
  EXPECT_EQ(played.output, "");
  EXPECT_THAT(played.error, HasSubstr("stoi"));
}

}  // namespace
}  // namespace tarsil::test
