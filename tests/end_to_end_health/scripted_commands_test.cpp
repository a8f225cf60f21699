// What the commands health and doctor make of frames, ends, errors and signals at exactly known places.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tarsil/core/errors.h"
#include "tests/end_to_end_health/scripted_source.h"

namespace tarsil {

namespace {

using test::ExitStatus;
using test::OpenRequest;
using test::run_with_source;
using test::ScriptedRun;
using test::SourceScript;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kQuestion = "\nUpload for health certificate? [y/N] ";
constexpr const char* kNoFrames =
    "Error: no frames received from device.\n"
    "Check that the glove is powered on and the port is correct.\n";

DeviceInfo glove(const std::string& serial, std::int32_t joints) {
  DeviceInfo info;
  info.serial = serial;
  info.firmware = "3.1";
  info.n_dofs = joints;
  return info;
}

/// A joint that moves in steps too small for a reversal and too large to be stuck.
Frame moving_frame(int number) {
  Frame frame;
  frame.q = {0.001F * static_cast<float>(number)};
  return frame;
}

SourceScript moving_glove() {
  SourceScript script;
  script.frame = moving_frame;
  script.info = [](int) { return glove("TSL-7", 1); };
  return script;
}

TEST(ScriptedHealth, shows_a_report_and_asks) {
  const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "10"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_EQ(ran.finished.output,
            "Collecting 10 frames for health analysis...\n"
            "\n"
            "Health check — TSL-7  fw 3.1\n"
            "Frames analyzed: 10\n"
            "\n"
            "DOF   Score     Noise(mrad)   Backlash(mrad)  Dropouts  \n"
            "--------------------------------------------------------\n"
            "   0      95%         2.9           0.0       0 ✓\n"
            "--------------------------------------------------------\n"
            "Overall: 95%\n"
            "\n"
            "Upload for health certificate? [y/N] ");
  EXPECT_EQ(ran.finished.error, "");
}

TEST(ScriptedHealth, asks_for_a_source_that_reconnects_and_holds_many_frames) {
  EXPECT_EQ(run_with_source(moving_glove(), {"health", "--frames", "10"}).request, (OpenRequest{true, 4096}));
}

TEST(ScriptedHealth, takes_no_frame_more_than_asked_for) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number >= 10) throw std::runtime_error("one too many");
    return moving_frame(number);
  };
  EXPECT_EQ(run_with_source(script, {"health", "--frames", "10"}).finished.status, (ExitStatus{0, 0}));
}

TEST(ScriptedHealth, interrupt_after_twelve_frames_analyses_these_and_asks) {
  for (const int signal : {SIGINT, SIGTERM}) {
    SourceScript script = moving_glove();
    script.frame = [signal](int number) {
      // While the thirteenth is awaited: it is not wanted any more.
      if (number == 12) ::raise(signal);
      return moving_frame(number);
    };
    const ScriptedRun ran = run_with_source(script, {"health"});
    EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
    EXPECT_THAT(ran.finished.output, StartsWith("Collecting 500 frames for health analysis...\n"));
    EXPECT_THAT(ran.finished.output, HasSubstr("\nFrames analyzed: 12\n"));
    EXPECT_THAT(ran.finished.output, EndsWith(kQuestion));
  }
}

TEST(ScriptedHealth, interrupt_that_ended_the_collection_does_not_answer_the_question) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number == 12) ::raise(SIGINT);
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"health"}, "y\n");
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_THAT(ran.finished.output, EndsWith(std::string(kQuestion) + "Uploading to  ...\n"));
  EXPECT_THAT(ran.finished.error, StartsWith("Upload failed: Network error: "));
}

TEST(ScriptedHealth, interrupt_before_the_first_frame_leaves_none) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    ::raise(SIGINT);
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"health"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(ran.finished.output, "Collecting 500 frames for health analysis...\n");
  EXPECT_EQ(ran.finished.error, kNoFrames);
}

TEST(ScriptedHealth, interrupt_after_few_frames_shows_them_and_refuses) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number == 9) ::raise(SIGINT);
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"health"}, "y\n");
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_THAT(ran.finished.output, HasSubstr("\nFrames analyzed: 9\n"));
  EXPECT_THAT(ran.finished.output, EndsWith("%\n"));
  EXPECT_EQ(ran.finished.error, "Error: only 9 frames collected — need at least 10 for a valid report.\n");
}

TEST(ScriptedHealth, source_that_is_closed_from_the_start_yields_no_frames) {
  SourceScript script = moving_glove();
  script.open = [](int) { return false; };
  const ScriptedRun ran = run_with_source(script, {"health"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(ran.finished.output, "Collecting 500 frames for health analysis...\n");
  EXPECT_EQ(ran.finished.error, kNoFrames);
}

TEST(ScriptedHealth, source_that_stops_ends_the_collection) {
  SourceScript script = moving_glove();
  script.open = [](int delivered) { return delivered < 25; };
  const ScriptedRun ran = run_with_source(script, {"health"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_THAT(ran.finished.output, HasSubstr("\nFrames analyzed: 25\n"));
}

TEST(ScriptedHealth, error_of_the_source_ends_the_command) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number == 20) throw StreamUnderrunError("ReconnectingSource: closed");
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"health"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(ran.finished.output, "Collecting 500 frames for health analysis...\n");
  EXPECT_EQ(ran.finished.error, "Error: ReconnectingSource: closed\n");
}

TEST(ScriptedHealth, glove_that_appears_late_is_analysed_under_its_own_name) {
  SourceScript script;
  script.frame = [](int number) { return number < 3 ? Frame{} : moving_frame(number); };
  script.info = [](int delivered) { return delivered < 4 ? DeviceInfo{} : glove("TSL-LATE", 1); };
  const ScriptedRun ran = run_with_source(script, {"health", "--frames", "20"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_THAT(ran.finished.output, HasSubstr("\nHealth check — TSL-LATE  fw 3.1\nFrames analyzed: 20\n"));
  EXPECT_THAT(ran.finished.output, HasSubstr("\n   0      "));
}

TEST(ScriptedHealth, limit_of_nothing_is_reached_with_the_first_frame) {
  const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "0"}, "y\n");
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_THAT(ran.finished.output, StartsWith("Collecting 0 frames for health analysis...\n\nHealth check"));
  EXPECT_THAT(ran.finished.output, HasSubstr("\nFrames analyzed: 1\n"));
  EXPECT_EQ(ran.finished.error, "Error: only 1 frames collected — need at least 10 for a valid report.\n");
}

TEST(ScriptedHealth, limit_that_cannot_be_met_is_refused_before_anything_is_opened) {
  for (const char* limit :
       {" -5", " -1", "10000001", "2147483647", "2147483648", "99999999999999999999", " "}) {
    SCOPED_TRACE(limit);
    const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", limit});
    EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
    EXPECT_EQ(ran.finished.output, "");
    EXPECT_THAT(ran.finished.error, testing::MatchesRegex("Error: [^\n]+\n"));
    EXPECT_EQ(ran.request, OpenRequest{});
  }
}

TEST(ScriptedHealth, limit_that_cannot_be_met_is_named) {
  EXPECT_EQ(run_with_source(moving_glove(), {"health", "--frames", " -5"}).finished.error,
            "Error: --frames must be between 0 and 10000000, got -5\n");
  EXPECT_EQ(run_with_source(moving_glove(), {"health", "--frames", "10000001"}).finished.error,
            "Error: --frames must be between 0 and 10000000, got 10000001\n");
}

TEST(ScriptedHealth, negative_word_behind_the_option_is_not_its_value) {
  const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "-5"});
  EXPECT_THAT(ran.finished.output, StartsWith("Collecting 1 frames for health analysis...\n"));
  EXPECT_EQ(ran.finished.error, "Error: only 1 frames collected — need at least 10 for a valid report.\n");
}

TEST(ScriptedHealth, stale_frames_count) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    Frame frame = moving_frame(number < 5 ? number : 4);
    frame.stale = number >= 5;
    return frame;
  };
  const ScriptedRun ran = run_with_source(script, {"health", "--frames", "15"});
  EXPECT_THAT(ran.finished.output, HasSubstr("\nFrames analyzed: 15\n"));
  EXPECT_THAT(ran.finished.output, HasSubstr("       1 ⚠\n"));
}

TEST(ScriptedHealth, answer_that_begins_with_a_y_consents) {
  for (const char* answer : {"y\n", "Y\n", "yes\n", "YES\n", "yak, no\n", "y", "y\r\n", "y\nn\n", "y \n"}) {
    SCOPED_TRACE(answer);
    const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "10"}, answer);
    EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
    EXPECT_THAT(ran.finished.output, EndsWith(std::string(kQuestion) + "Uploading to  ...\n"));
    EXPECT_THAT(ran.finished.error, StartsWith("Upload failed: "));
  }
}

TEST(ScriptedHealth, every_other_answer_refuses) {
  for (const char* answer :
       {"n\n", "N\n", "no\n", "\n", "", " y\n", "\ty\n", "1\n", "n\ny\n", "\ny\n", "\xC3\xBF\n"}) {
    SCOPED_TRACE(answer);
    const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "10"}, answer);
    EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
    EXPECT_THAT(ran.finished.output, EndsWith(kQuestion));
    EXPECT_EQ(ran.finished.error, "");
  }
}

TEST(ScriptedHealth, long_answer_is_read_to_its_end) {
  const ScriptedRun ran =
      run_with_source(moving_glove(), {"health", "--frames", "10"}, std::string(100'000, 'n') + "\ny\n");
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_THAT(ran.finished.output, EndsWith(kQuestion));
}

TEST(ScriptedHealth, signal_refuses_as_soon_as_the_question_is_visible) {
  for (const int signal : {SIGINT, SIGTERM}) {
    SourceScript script = moving_glove();
    script.written = [signal](std::string_view text) {
      if (text.ends_with(kQuestion)) ::raise(signal);
    };
    const ScriptedRun ran = run_with_source(script, {"health", "--frames", "10"}, std::nullopt);
    ASSERT_EQ(ran.finished.status, (ExitStatus{0, 0}));
    EXPECT_THAT(ran.finished.output, EndsWith(kQuestion));
    EXPECT_EQ(ran.finished.error, "");
  }
}

TEST(ScriptedHealth, upload_option_skips_the_question) {
  const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "10", "--upload"}, "n\n");
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_THAT(ran.finished.output, Not(HasSubstr("[y/N]")));
  EXPECT_THAT(ran.finished.output, EndsWith("Overall: 95%\nUploading to  ...\n"));
}

TEST(ScriptedHealth, too_few_frames_are_not_uploaded_either) {
  const ScriptedRun ran = run_with_source(moving_glove(), {"health", "--frames", "9", "--upload"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_THAT(ran.finished.output, EndsWith("%\n"));
  EXPECT_THAT(ran.finished.output, Not(HasSubstr("Uploading")));
  EXPECT_EQ(ran.finished.error, "Error: only 9 frames collected — need at least 10 for a valid report.\n");
}

/// What doctor prints behind the name of this glove.
std::string doctor_output(const std::string& stream_line) {
  return "Device : TSL-7\nSide   : right\nFw     : 3.1\nDOFs   : 1\n\n" + stream_line +
         "✓ Touch stream OK\n✓ IMU stream OK\n";
}

TEST(ScriptedDoctor, reads_fifty_frames) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number >= 50) throw std::runtime_error("one too many");
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"doctor"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_EQ(ran.finished.output, doctor_output("✓ Kinematics stream OK  (100 Hz, 0 stale frames)\n"));
  EXPECT_EQ(ran.finished.error, "");
}

TEST(ScriptedDoctor, asks_for_a_source_that_reconnects_and_holds_two_frames) {
  EXPECT_EQ(run_with_source(moving_glove(), {"doctor"}).request, (OpenRequest{true, 2}));
}

TEST(ScriptedDoctor, counts_stale_frames) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    Frame frame = moving_frame(number);
    frame.stale = number % 3 == 0;
    return frame;
  };
  EXPECT_EQ(run_with_source(script, {"doctor"}).finished.output,
            doctor_output("✓ Kinematics stream OK  (100 Hz, 17 stale frames)\n"));
}

TEST(ScriptedDoctor, absent_glove_shows_as_stale_frames_and_has_no_name) {
  SourceScript script;
  script.frame = [](int) {
    Frame frame;
    frame.stale = true;
    return frame;
  };
  const ScriptedRun ran = run_with_source(script, {"doctor"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_EQ(ran.finished.output,
            "Device : \nSide   : right\nFw     : \nDOFs   : 0\n\n"
            "✓ Kinematics stream OK  (100 Hz, 50 stale frames)\n✓ Touch stream OK\n✓ IMU stream OK\n");
}

TEST(ScriptedDoctor, source_that_closes_after_twenty_frames_shows_forty) {
  SourceScript script = moving_glove();
  script.open = [](int delivered) { return delivered < 20; };
  EXPECT_EQ(run_with_source(script, {"doctor"}).finished.output,
            doctor_output("✓ Kinematics stream OK  (40 Hz, 0 stale frames)\n"));
}

TEST(ScriptedDoctor, source_that_is_not_open_shows_nothing_but_still_confirms) {
  SourceScript script = moving_glove();
  script.open = [](int) { return false; };
  const ScriptedRun ran = run_with_source(script, {"doctor"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_EQ(ran.finished.output, doctor_output("✓ Kinematics stream OK  (0 Hz, 0 stale frames)\n"));
}

TEST(ScriptedDoctor, error_of_the_source_comes_after_the_name) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number == 30) throw StreamUnderrunError("ReconnectingSource: closed");
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"doctor"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(ran.finished.output, "Device : TSL-7\nSide   : right\nFw     : 3.1\nDOFs   : 1\n");
  EXPECT_EQ(ran.finished.error, "Error: ReconnectingSource: closed\n");
}

TEST(ScriptedDoctor, does_not_look_at_the_stop_flag) {
  SourceScript script = moving_glove();
  script.frame = [](int number) {
    if (number == 5) ::raise(SIGINT);
    if (number == 6) ::raise(SIGTERM);
    return moving_frame(number);
  };
  const ScriptedRun ran = run_with_source(script, {"doctor"});
  EXPECT_EQ(ran.finished.status, (ExitStatus{0, 0}));
  EXPECT_EQ(ran.finished.output, doctor_output("✓ Kinematics stream OK  (100 Hz, 0 stale frames)\n"));
}

TEST(ScriptedDoctor, only_side_one_is_right) {
  for (const std::int32_t side : {0, 2, -1}) {
    SourceScript script = moving_glove();
    script.info = [side](int) {
      DeviceInfo info = glove("TSL-7", 1);
      info.side = side;
      return info;
    };
    EXPECT_THAT(run_with_source(script, {"doctor"}).finished.output, HasSubstr("\nSide   : left\n"));
  }
}

TEST(ScriptedDoctor, touch_and_inertial_data_are_not_looked_at) {
  SourceScript script = moving_glove();
  script.frame = [](int) { return Frame{}; };
  EXPECT_EQ(run_with_source(script, {"doctor"}).finished.output,
            doctor_output("✓ Kinematics stream OK  (100 Hz, 0 stale frames)\n"));
}

}  // namespace

}  // namespace tarsil
