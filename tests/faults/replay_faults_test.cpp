// `tarsil replay` while each of its calls fails in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tarsil/core/mock_source.h"
#include "tarsil/recording/recorder.h"
#include "tests/end_to_end/tool.h"
#include "tests/faults/faulty_tool.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"

namespace tarsil::test {
namespace {

class ReplayFaults : public testing::Test {
 protected:
  static constexpr int kFrames = 1000;

  ReplayFaults() {
    Recorder recorder(path_, {{"serial", "TSL-VG000001"}, {"side", "left"}});
    MockSource source({.realtime = false});
    for (int i = 0; i < kFrames; ++i) recorder.write_frame(source.read_frame());
    recorder.add_marker("a marker whose name is long enough to need memory");
  }

  [[nodiscard]] auto runner() const {
    return [this](const std::string& faults) {
      return run_with_faults(tool({"replay", path_, "--speed", "0"}), faults);
    };
  }

  TempDirectory directory_;
  std::string path_ = directory_.file("take.tsl");
};

TEST_F(ReplayFaults, in_opening_are_named) {
  for (const char* const fault : {"EACCES", "EMFILE", "ENFILE", "EIO", "ENOMEM"}) {
    const FaultyRun run = runner()("open@" + path_ + ":1:" + fault);
    expect_error(run, "Error: Replayer: cannot open: " + path_ + "\n");
    EXPECT_EQ(run.finished.output, "") << run;
  }
}

TEST_F(ReplayFaults, in_any_read_leave_the_frames_before_it) {
  std::size_t most = 0;
  fail_each("read@" + path_, "EIO", runner(), [&](const FaultyRun& run, std::size_t number) {
    if (number == 1) {
      expect_error(run, "Error: Replayer: no frames found in: " + path_ + "\n");
      return;
    }
    expect_success(run);
    const std::string replayed = "\nReplayed ";
    const std::size_t at = run.finished.output.find(replayed);
    ASSERT_NE(at, std::string::npos) << run;
    const std::size_t frames = std::stoul(run.finished.output.substr(at + replayed.size()));
    EXPECT_GT(frames, most) << run;
    EXPECT_LE(frames, std::size_t{kFrames}) << run;
    most = frames;
  });
  EXPECT_EQ(most, std::size_t{kFrames});  // the last read only finds the end
}

TEST_F(ReplayFaults, that_are_none_are_survived) {
  const FaultyRun undisturbed = runner()("");
  for (const std::string& faults :
       {"open@" + path_ + ":1:EINTR:3:4 read@" + path_ + ":1:EINTR:3:4 write@1:1:EINTR:3:4",
        "read@" + path_ + ":1:HALF:0 write@1:1:ONE:0", "close@" + path_ + ":1:EIO"}) {
    const FaultyRun run = runner()(faults);
    expect_success(run);
    EXPECT_GE(run.hits.at(0), 1U) << run;
    EXPECT_EQ(run.finished.output, undisturbed.finished.output);
  }
}

TEST_F(ReplayFaults, in_any_line_of_output_are_told) {
  const std::string output = runner()("").finished.output;
  fail_each("write@1", "EIO", runner(), [&](const FaultyRun& run, std::size_t /*number*/) {
    expect_error(run, "Error: cannot write to standard output: Input/output error\n");
    EXPECT_TRUE(output.starts_with(run.finished.output)) << run;
  });
}

TEST_F(ReplayFaults, of_memory_are_told) {
  for (const char* const fault : {"ENOMEM", "ENOMEM:0"}) {
    fail_each("memory", fault, runner(), [](const FaultyRun& run, std::size_t /*number*/) {
      expect_error(run, "Error: std::bad_alloc\n");
    });
  }
}

/// The message holds a name that has to be made visible first, which needs memory as well.
TEST_F(ReplayFaults, of_memory_do_not_let_a_name_drive_the_terminal) {
  Terminal terminal;
  const std::string missing = directory_.file("a name that is long enough to need memory \x1b[31m.tsl");
  ProcessOptions options = tool({"replay", missing});
  options.error_path = terminal.path();
  for (std::size_t number = 1, hits = 1; hits > 0; ++number) {
    const FaultyRun run = run_with_faults(options, "memory:" + std::to_string(number) + ":ENOMEM:0");
    EXPECT_EQ(run.finished.status, (ExitStatus{1, 0})) << run;
    expect_clean(run);
    hits = run.hits.at(0);
    static_cast<void>(terminal.shown());  // so that the terminal has room
  }
  EXPECT_THAT(terminal.shown(), testing::HasSubstr("Error: std::bad_alloc\n"));
  EXPECT_THAT(terminal.shown(), testing::HasSubstr("need memory ?[31m.tsl\n"));
  EXPECT_THAT(terminal.shown(), testing::Not(testing::HasSubstr("\x1b")));
}

}  // namespace
}  // namespace tarsil::test
