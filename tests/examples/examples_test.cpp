// The examples run as a person would run them: on a virtual glove, whose every frame is known, and on
// recordings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;
using virtual_glove::HandMotion;
using virtual_glove::HandSample;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};
constexpr ExitStatus kUsage{2, 0};

/// What the virtual glove does if nobody says otherwise.
constexpr std::uint64_t kSeed = 1;
constexpr double kHz = 200;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// A line of live_angles: the second angle of every finger, in degrees.
std::string flexion_line(const HandSample& hand) {
  std::string line;
  for (std::size_t joint = 1; joint < hand.joints.size(); joint += 4) {
    char text[16];
    const float radians = static_cast<float>(hand.joints[joint]) / 100.0F * 0.017453292F;
    std::snprintf(text, sizeof text, "%8.1f", static_cast<double>(radians) * 57.29578);
    line += text;
  }
  return line;
}

TEST(LiveAngles, prints_every_frame_until_the_glove_falls_silent) {
  GloveProgram glove({"--frames", "100"});

  const Finished example = run({EXAMPLE_LIVE_ANGLES, glove.port()});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_EQ(example.error, "SerialSource stream closed\n");
  const HandMotion motion(kSeed, kHz);
  std::uint64_t cycle = 0;
  std::string last;
  for (const std::string& line : lines_of(example.output)) {
    // While the glove is silent, at the end or because the machine is busy, the last frame stands still.
    if (line == last) continue;
    ASSERT_LT(cycle, 100U) << line;
    // Cycles that look the same count as one line as well.
    do last = flexion_line(motion.at(cycle++));
    while (cycle < 100 && flexion_line(motion.at(cycle)) == last);
    EXPECT_EQ(line, last);
  }
  EXPECT_EQ(cycle, 100U);
}

TEST(LiveAngles, says_that_there_is_no_such_port) {
  const Finished example = run({EXAMPLE_LIVE_ANGLES, "/nowhere/ttyACM0"});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_EQ(example.output, "");
  EXPECT_EQ(example.error, "The port cannot be opened.\n");
}

/// How often the first pad of the index finger goes over 0.5 after it was under 0.3 or at rest.
int presses_within(std::uint64_t cycles) {
  const HandMotion motion(kSeed, kHz);
  bool pressed = false;
  int presses = 0;
  for (std::uint64_t cycle = 0; cycle < cycles; ++cycle) {
    const int pad = motion.at(cycle).pads[6];
    if (!pressed && pad > 50) ++presses;
    pressed = pad > (pressed ? 30 : 50);
  }
  return presses;
}

TEST(MarkPresses, records_with_a_marker_for_every_press) {
  const TempDirectory directory;
  GloveProgram glove({"--serial", "TSL-PRESS"});
  const std::string path = directory.file("taps.tsl");

  const Finished example = run({EXAMPLE_MARK_PRESSES, path, "600", glove.port()});

  EXPECT_EQ(example.status, kSuccess) << example.error;
  const int presses = presses_within(600);
  ASSERT_GE(presses, 2);
  EXPECT_EQ(example.output, "600 frames, " + std::to_string(presses) + " presses, 0 cycles lost\n");
  const Replayer recording(path);
  EXPECT_EQ(recording.frame_count(), 600U);
  EXPECT_EQ(recording.device_info().serial, "TSL-PRESS");
  ASSERT_EQ(recording.markers().size(), static_cast<std::size_t>(presses));
  EXPECT_EQ(recording.markers()[1].name, "press");
  EXPECT_THAT(recording.markers()[1].data, ElementsAre(Pair("finger", "index"), Pair("number", "2")));
}

TEST(MarkPresses, wants_a_file_and_a_number) {
  const TempDirectory directory;
  const std::string path = directory.file("taps.tsl");
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{path}, {path, "abc"}, {path, "5x"}, {path, ""}, {path, "-1"}}) {
    std::vector<std::string> command{EXAMPLE_MARK_PRESSES};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Finished example = run(command);

    EXPECT_EQ(example.status, kUsage);
    EXPECT_EQ(example.error, "Usage: mark_presses FILE FRAMES [PORT]\n");
  }
}

TEST(MarkPresses, without_a_glove_leaves_the_file_as_it_is) {
  const TempDirectory directory;
  const std::string path = directory.file("taps.tsl");
  write_file(path, "precious");

  const Finished example = run({EXAMPLE_MARK_PRESSES, path, "5", "/nowhere/ttyACM0"});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_EQ(example.output, "");
  EXPECT_EQ(example.error, "The port cannot be opened.\n");
  EXPECT_EQ(read_file(path), "precious");
}

TEST(OwnSource, closes_and_opens_once_a_second) {
  const Finished example = run({EXAMPLE_OWN_SOURCE});

  EXPECT_EQ(example.status, kSuccess) << example.error;
  EXPECT_EQ(example.output,
            "watching OPENING-HAND\n"
            "frame 28 closed\n"
            "frame 78 open\n"
            "frame 128 closed\n"
            "frame 178 open\n");
}

TEST(OwnSource, is_exchangeable_for_a_glove) {
  GloveProgram glove({"--frames", "50", "--serial", "TSL-REAL"});

  const Finished example = run({EXAMPLE_OWN_SOURCE, glove.port()});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_THAT(example.output, StartsWith("watching TSL-REAL\n"));
  EXPECT_EQ(example.error, "SerialSource stream closed\n");
}

TEST(OwnSource, says_that_there_is_no_such_port) {
  const Finished example = run({EXAMPLE_OWN_SOURCE, "/nowhere/ttyACM0"});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_EQ(example.output, "");
  EXPECT_EQ(example.error, "The port cannot be opened.\n");
}

TEST(RecordingHealth, finds_the_stuck_joint_of_a_recording) {
  const TempDirectory directory;
  const std::string path = directory.file("session.tsl");
  {
    Recorder recorder(path, {{"serial", "TSL-7"}, {"n_dofs", "2"}});
    for (int i = 0; i < 20; ++i) {
      Frame frame;
      frame.t = 1000.0 + 0.01 * i;
      // The first joint moves by a milliradian a frame, the second one stands still.
      frame.q = {0.001F * static_cast<float>(i), 0.5F};
      recorder.write_frame(frame);
    }
  }

  const Finished example = run({EXAMPLE_RECORDING_HEALTH, path});

  EXPECT_EQ(example.status, kSuccess) << example.error;
  EXPECT_THAT(example.output, HasSubstr("TSL-7"));
  // 0.4 * (1 - 5.77 / 25) + 0.35 + 0.25 for 5.77 mrad of noise; 0.4 + 0.35 for one dropout, as many as 20
  // frames may have. The mean of both, 0.829, is shown in whole per cent.
  EXPECT_THAT(example.output, EndsWith("Overall: 82%\nworst joint: 1\n"));
}

TEST(RecordingHealth, says_what_is_wrong_with_a_file) {
  const Finished example = run({EXAMPLE_RECORDING_HEALTH, "/nowhere/session.tsl"});

  EXPECT_EQ(example.status, kFailure);
  EXPECT_EQ(example.error, "Replayer: cannot open: /nowhere/session.tsl\n");
}

TEST(StayConnected, tells_of_a_glove_that_goes_and_comes_back_and_goes_for_good) {
  const TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove")});
  Process example({.command = {EXAMPLE_STAY_CONNECTED, glove.port()}});
  const auto says = [&](const std::string& state) {
    return example.wait_until([&] { return example.output().ends_with(state); });
  };

  EXPECT_TRUE(says("live: TSL-VG000001\n")) << example.output();
  glove.unplug();
  EXPECT_TRUE(says("silent: TSL-VG000001\n")) << example.output();
  glove.plug();
  EXPECT_TRUE(says("live: TSL-VG000001\n")) << example.output();
  glove.stop();

  EXPECT_EQ(example.wait(), kSuccess);
  // On a busy machine a glove may seem silent for a moment in between.
  EXPECT_TRUE(std::regex_match(example.output(), std::regex("waiting for a glove\n"
                                                            "live: TSL-VG000001\n"
                                                            "(silent: TSL-VG000001\nlive: TSL-VG000001\n)+"
                                                            "silent: TSL-VG000001\n"
                                                            "gone\n")))
      << example.output();
}

TEST(StayConnected, gives_up_on_a_glove_that_never_comes) {
  const TempDirectory directory;

  const Finished example = run({EXAMPLE_STAY_CONNECTED, directory.file("glove"), "2"});

  EXPECT_EQ(example.status, kSuccess);
  EXPECT_EQ(example.output, "waiting for a glove\ngone\n");
}

TEST(StayConnected, wants_a_number_of_attempts) {
  for (const std::string attempts : {"abc", "2x", "", "-1", "4294967296"}) {
    const Finished example = run({EXAMPLE_STAY_CONNECTED, "/nowhere/ttyACM0", attempts});

    EXPECT_EQ(example.status, kUsage);
    EXPECT_EQ(example.output, "");
    EXPECT_EQ(example.error, "Usage: stay_connected PORT [ATTEMPTS]\n");
  }
}

}  // namespace
}  // namespace tarsil::test
