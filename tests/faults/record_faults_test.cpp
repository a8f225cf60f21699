// `tarsil record` while each of its calls fails in turn: what it says, and that what is on disk is whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/tool.h"
#include "tests/faults/faulty_tool.h"
#include "tests/faults/glove_on_port.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;

const std::string kWriteFailed =
    "Error: Recorder: write failed (disk full or I/O error) — recording is incomplete\n";
const std::string kClosed = "Error: SerialSource stream closed\n";
const std::string kNoMemory = "Error: std::bad_alloc\n";
/// How the synthetic glove puts it.
const std::string kTooLarge = "Error: cannot create std::vector larger than max_size()\n";
const std::string kIntact = "USB integrity: OK — no dropped hardware cycles.\n";

constexpr std::size_t kFrames = 20;

struct Format {
  const char* extension;
  Recording (*read)(const std::string& text);
  HandStyle style;
};

constexpr Format kTsl{".tsl", read_tsl, HandStyle::json};
constexpr Format kCsv{".csv", read_csv, HandStyle::csv};
constexpr Format kJson{".json", read_json, HandStyle::json};

std::string format_name(const testing::TestParamInfo<Format>& format) {
  return format.param.extension + 1;
}

/// Records from a glove, again and again into the same file.
class GloveRecordings {
 public:
  explicit GloveRecordings(const Format& format) : format_(format) {}

  [[nodiscard]] std::string path() const { return directory_.file(std::string("take") + format_.extension); }
  [[nodiscard]] const std::string& port() const { return glove_.path(); }

  [[nodiscard]] FaultyRun run(const std::string& faults) {
    fs::remove(path());
    EXPECT_TRUE(glove_.wait_until_free());
    return run_with_faults(
        tool({"record", path(), "--frames", std::to_string(kFrames), "--port", glove_.path()}), faults);
  }

  [[nodiscard]] std::string opening() const {
    return "Recording to " + path() + "  format: " + format_.extension + "  (" + std::to_string(kFrames) +
           " frames)\n";
  }

  [[nodiscard]] std::string text() const { return fs::exists(path()) ? read_file(path()) : ""; }

  /// What has been recorded, after a check that it is what the glove sent. Nothing of an empty document.
  [[nodiscard]] Recording taken() const {
    const std::string text = this->text();
    if (text.empty()) return {};
    Recording recording = format_.read(text);
    HandText hand({.hz = GloveOnPort::kHz}, format_.style);
    check_frames(recording.frames, hand);
    return recording;
  }

  /// Lines of a tsl or csv file that are there to their end.
  [[nodiscard]] static std::size_t lines(const Recording& recording) {
    return recording.frames.size() + (recording.head.empty() ? 0 : 1);
  }

  void expect_whole(const FaultyRun& run) const {
    expect_success(run);
    EXPECT_THAT(run.finished.output, testing::StartsWith(opening() + "Saved 20 frames  ")) << run;
    const Recording recording = taken();
    EXPECT_EQ(recording.frames.size(), kFrames) << run;
    EXPECT_EQ(recording.torn, "") << run;
  }

  /// The source has ended early: mostly the tool waits for a frame then.
  void expect_end_of_source(const FaultyRun& run) const {
    const Recording recording = taken();
    EXPECT_LE(recording.frames.size(), kFrames) << run;
    EXPECT_EQ(recording.torn, "") << run;
    if (run.finished.status.code == 1) {
      expect_error(run, kClosed);
      EXPECT_EQ(run.finished.output, opening()) << run;
    } else {
      expect_success(run);
      const std::string saved = "Saved " + std::to_string(recording.frames.size()) + " frames  ";
      EXPECT_THAT(run.finished.output, testing::StartsWith(opening() + saved)) << run;
      EXPECT_THAT(run.finished.output, testing::EndsWith(kIntact)) << run;
    }
  }

 private:
  Format format_;
  TempDirectory directory_;
  GloveOnPort glove_;
};

class RecordFaults : public testing::TestWithParam<Format> {
 protected:
  [[nodiscard]] bool json() const { return GetParam().read == read_json; }
  [[nodiscard]] auto runner() {
    return [this](const std::string& faults) { return recordings_.run(faults); };
  }

  GloveRecordings recordings_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Formats, RecordFaults, testing::Values(kTsl, kCsv, kJson), format_name);

TEST_P(RecordFaults, in_any_write_to_the_file_leave_the_lines_before_it) {
  fail_each("write@" + recordings_.path(), "ENOSPC", runner(),
            [this](const FaultyRun& run, std::size_t number) {
              if (json()) {
                expect_success(run);  // nobody is told of a document that could not be written
                EXPECT_EQ(recordings_.text(), "");
                return;
              }
              expect_error(run, kWriteFailed);
              EXPECT_EQ(run.finished.output, recordings_.opening()) << run;
              const Recording recording = recordings_.taken();
              EXPECT_EQ(GloveRecordings::lines(recording), number - 1) << run;
              EXPECT_EQ(recording.torn, "") << run;
            });
}

TEST_P(RecordFaults, within_any_line_leave_its_beginning_and_nothing_behind) {
  if (json()) return;  // one write
  for (std::size_t number = 1; number <= kFrames + 1; ++number) {
    const std::string write = "write@" + recordings_.path() + ":";
    const FaultyRun run = recordings_.run(write + std::to_string(number) + ":HALF " + write +
                                          std::to_string(number + 1) + ":EIO");
    expect_error(run, kWriteFailed);
    const Recording recording = recordings_.taken();
    EXPECT_EQ(GloveRecordings::lines(recording), number - 1) << run;
    EXPECT_NE(recording.torn, "") << run;
    if (HasFailure()) return;
  }
}

TEST_P(RecordFaults, of_all_kinds_in_a_write_are_one) {
  if (json()) return;
  for (const char* const fault : {"EIO", "ENOMEM", "EAGAIN", "EBADF", "NONE", "NONE:0"}) {
    const FaultyRun run = recordings_.run("write@" + recordings_.path() + ":3:" + fault);
    expect_error(run, kWriteFailed);
    EXPECT_EQ(GloveRecordings::lines(recordings_.taken()), 2U) << run;
  }
}

TEST_P(RecordFaults, that_are_none_are_survived) {
  const std::string& port = recordings_.port();
  // Every call is interrupted three times.
  const auto interrupted = [](const std::string& call) { return call + ":1:EINTR:3:4 "; };
  const std::string everywhere = interrupted("open@" + port) + interrupted("open@" + recordings_.path()) +
                                 interrupted("read@" + port) + interrupted("write@" + port) +
                                 interrupted("write@" + recordings_.path()) + interrupted("write@1");
  recordings_.expect_whole(recordings_.run(everywhere));
  // Little at a time, wherever bytes move.
  const std::string little =
      "read@" + port + ":1:ONE:0 write@" + recordings_.path() + ":1:HALF:1:2 write@1:1:ONE:0";
  recordings_.expect_whole(recordings_.run(little));
  // Nobody insists on these.
  for (const std::string& tolerated :
       {"ioctl@" + port + ":1:EBUSY:0", "ioctl@" + port + ":1:ENOTTY:0",
        std::string("cfsetispeed:1:EINVAL:0 cfsetospeed:1:EINVAL:0"), "close@" + port + ":1:EIO:0",
        "close@" + recordings_.path() + ":1:EIO:0"}) {
    const FaultyRun run = recordings_.run(tolerated);
    EXPECT_GE(run.hits.at(0), 1U) << run;
    recordings_.expect_whole(run);
  }
}

TEST_P(RecordFaults, in_opening_the_file_are_named) {
  for (const char* const fault : {"EACCES", "EMFILE", "ENFILE", "ENOSPC", "EIO", "ENOMEM"}) {
    const FaultyRun run = recordings_.run("open@" + recordings_.path() + ":1:" + fault);
    expect_error(run, "Error: Recorder: cannot open: " + recordings_.path() + "\n");
    EXPECT_EQ(run.finished.output, "") << run;
  }
}

TEST_P(RecordFaults, in_any_line_of_output_leave_the_recording) {
  fail_each("write@1", "ENOSPC", runner(), [this](const FaultyRun& run, std::size_t number) {
    expect_error(run, "Error: cannot write to standard output: No space left on device\n");
    const Recording recording = recordings_.taken();
    EXPECT_EQ(recording.frames.size(), number == 1 ? 0 : kFrames) << run;
    EXPECT_EQ(recording.torn, "") << run;
  });
}

TEST_P(RecordFaults, that_cannot_be_told_show_in_the_status) {
  for (const char* const fault : {"EIO", "ENOSPC:0", "NONE:0"}) {
    const FaultyRun run =
        recordings_.run("open@" + recordings_.path() + ":1:EMFILE write@2:1:" + std::string(fault));
    expect_clean(run);
    EXPECT_EQ(run.finished.status, (ExitStatus{1, 0})) << run;
    EXPECT_EQ(run.finished.error, "") << run;
  }
}

TEST_P(RecordFaults, in_opening_the_port_give_an_empty_recording) {
  const std::string& port = recordings_.port();
  std::vector<std::string> rules = {"tcgetattr@" + port + ":1:EIO", "tcsetattr@" + port + ":1:EIO"};
  for (const char* const fault :
       {"EACCES", "EBUSY", "EMFILE", "ENFILE", "ENOMEM", "EIO", "EAGAIN", "ENXIO"}) {
    rules.push_back("open@" + port + ":1:" + fault);
  }
  for (const std::string& rule : rules) {
    const FaultyRun run = recordings_.run(rule);
    expect_success(run);
    EXPECT_EQ(run.hits.at(0), 1U) << run;
    EXPECT_EQ(run.finished.output, recordings_.opening() + "Saved 0 frames  0.00 s\n" + kIntact) << run;
    EXPECT_EQ(recordings_.taken().frames.size(), 0U) << run;
  }
}

TEST_P(RecordFaults, in_any_read_of_the_port_end_the_recording_there) {
  fail_each("read@" + recordings_.port(), "EIO", runner(), [this](const FaultyRun& run, std::size_t number) {
    recordings_.expect_end_of_source(run);
    if (number == 1) {
      EXPECT_EQ(recordings_.taken().frames.size(), 0U) << run;
    }
  });
}

TEST_P(RecordFaults, of_all_kinds_in_a_read_are_one) {
  const std::string read = "read@" + recordings_.port();
  for (const std::string& faults :
       {read + ":5:EAGAIN", read + ":5:ENOMEM", read + ":5:EBADF", read + ":5:ENXIO:0",
        read + ":5:EIO poll@" + recordings_.port() + ":1:EINTR",
        read + ":5:EIO poll@" + recordings_.port() + ":1:ENOMEM:0"}) {
    recordings_.expect_end_of_source(recordings_.run(faults));
  }
}

TEST_P(RecordFaults, in_starting_the_reader_are_told_before_anything_is_made) {
  const FaultyRun run = recordings_.run("thread:1:EAGAIN");
  expect_error(run, "Error: Resource temporarily unavailable\n");
  EXPECT_EQ(run.finished.output, "") << run;
  EXPECT_FALSE(fs::exists(recordings_.path()));
}

/// Before there is a file: the format plays no part.
TEST(RecordSilence, is_told_when_a_command_to_the_glove_is_lost) {
  GloveRecordings recordings(kTsl);
  const std::string silent = "Error: No data received from " + recordings.port() +
                             " within timeout. Check that the Tarsil glove is powered and sending data.\n";
  for (const char* const command : {":1:EIO", ":2:EIO"}) {
    const FaultyRun run = recordings.run("write@" + recordings.port() + command);
    expect_error(run, silent);
    EXPECT_EQ(run.finished.output, "") << run;
    EXPECT_FALSE(fs::exists(recordings.path()));
  }
}

/// Wherever memory runs out, the file holds whole lines. Only a document is composed when nobody can be told
/// any more.
class RecordMemory : public RecordFaults {
 protected:
  void expect_orderly_end(const FaultyRun& run) const {
    const Recording recording = recordings_.taken();
    EXPECT_EQ(recording.torn, "") << run;
    if (json() && run.finished.status.signal == SIGABRT && fs::exists(recordings_.path())) {
      EXPECT_EQ(recordings_.text(), "") << run;
      return;
    }
    if (run.finished.error == kNoMemory) {
      expect_error(run, kNoMemory);
    } else if (!run.finished.output.empty()) {
      recordings_.expect_end_of_source(run);
    } else {
      // The reader was lacking memory, before there was a recording.
      expect_clean(run);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Formats, RecordMemory, testing::Values(kTsl, kCsv, kJson), format_name);

TEST_P(RecordMemory, that_lacks_once_ends_the_recording_at_most) {
  fail_each("memory", "ENOMEM", runner(),
            [this](const FaultyRun& run, std::size_t /*number*/) { expect_orderly_end(run); },
            {.of_every = 2});
}

TEST_P(RecordMemory, that_lacks_for_ever_ends_the_recording) {
  fail_each("memory", "ENOMEM:0", runner(),
            [this](const FaultyRun& run, std::size_t /*number*/) { expect_orderly_end(run); },
            {.of_every = 2});
}

/// The synthetic glove has neither port nor thread: every run is the same, call by call.
class RecordMock : public testing::TestWithParam<Format> {
 protected:
  [[nodiscard]] bool json() const { return GetParam().read == read_json; }
  [[nodiscard]] std::string path() const {
    return directory_.file(std::string("take") + GetParam().extension);
  }
  [[nodiscard]] auto runner() {
    return [this](const std::string& faults) {
      fs::remove(path());
      return run_with_faults(tool({"record", path(), "--frames", "5", "--mock", "--hz", "5000"}), faults);
    };
  }
  [[nodiscard]] Recording taken() const {
    const std::string text = fs::exists(path()) ? read_file(path()) : "";
    Recording recording = text.empty() ? Recording() : GetParam().read(text);
    for (std::size_t i = 0; i < recording.frames.size(); ++i) {
      EXPECT_EQ(recording.frames[i].seq, recording.frames.front().seq + i);
    }
    return recording;
  }

  TempDirectory directory_;
};

INSTANTIATE_TEST_SUITE_P(Formats, RecordMock, testing::Values(kTsl, kCsv, kJson), format_name);

TEST_P(RecordMock, without_memory_keeps_what_it_has) {
  for (const char* const fault : {"ENOMEM", "ENOMEM:0"}) {
    std::size_t most = 0;
    fail_each("memory", fault, runner(), [&](const FaultyRun& run, std::size_t /*number*/) {
      const Recording recording = taken();
      EXPECT_EQ(recording.torn, "") << run;
      // Later and later: what was recorded does not become less.
      EXPECT_GE(recording.frames.size(), json() ? 0 : most) << run;
      most = recording.frames.size();
      if (json() && run.finished.status.signal == SIGABRT && fs::exists(path())) return;
      expect_error(run, run.finished.error == kTooLarge ? kTooLarge : kNoMemory);
    });
  }
}

TEST_P(RecordMock, keeps_the_lines_before_a_failed_write) {
  fail_each("write@" + path(), "ENOSPC", runner(), [&](const FaultyRun& run, std::size_t number) {
    if (json()) {
      expect_success(run);
      return;
    }
    expect_error(run, kWriteFailed);
    EXPECT_EQ(GloveRecordings::lines(taken()), number - 1) << run;
  });
}

}  // namespace
}  // namespace tarsil::test
