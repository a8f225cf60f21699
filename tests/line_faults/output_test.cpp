// Every command with a standard output that takes nothing: it fails with a message and status 1, or ends as a
// pipe's writer does, and nothing that was meant for the screen goes anywhere else.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kFailure{1, 0};

const std::string kRefused = "Error: cannot write to standard output: ";

struct Command {
  const char* name;
  /// FILE stands for a path, which is a recording already for replay.
  std::vector<std::string> words;
};

void PrintTo(const Command& command, std::ostream* out) {
  *out << command.name;
}

const std::array kCommands{
    Command{"usage", {}},
    Command{"help", {"--help"}},
    Command{"devices", {"devices"}},
    Command{"doctor", {"doctor", "--mock"}},
    Command{"stream_table", {"stream", "--mock"}},
    Command{"stream_rows", {"stream", "--mock", "--raw", "--count", "5"}},
    Command{"record_tsl", {"record", "FILE", "--format", "tsl", "--mock", "--frames", "5"}},
    Command{"record_csv", {"record", "FILE", "--format", "csv", "--mock", "--frames", "5"}},
    Command{"record_json", {"record", "FILE", "--format", "json", "--mock", "--frames", "5"}},
    Command{"replay", {"replay", "FILE"}},
    Command{"health", {"health", "--mock", "--frames", "12"}},
};

/// In a child: a pipe that nobody will ever read is its standard output.
void lose_the_reader() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) ::_exit(126);
  ::close(ends[0]);
  ::dup2(ends[1], STDOUT_FILENO);
  ::close(ends[1]);
}

class Output : public testing::TestWithParam<Command> {
 protected:
  [[nodiscard]] ProcessOptions command() const {
    std::vector<std::string> words = GetParam().words;
    for (std::string& word : words) {
      if (word == "FILE") word = path();
    }
    if (!words.empty() && words.front() == "replay") {
      EXPECT_EQ(run_tool({"record", path(), "--mock", "--frames", "5"}).status, (ExitStatus{0, 0}));
    }
    return tool(words);
  }

  /// What was recorded before the failure, if anything, is a recording and nothing else.
  void expect_clean_file() const {
    const std::ifstream file(path());
    if (!file) return;
    const std::string text = read_file(path());
    for (const char* screen : {"Recording to", "Saved", "USB", "frames  ", "Error"}) {
      EXPECT_EQ(text.find(screen), std::string::npos) << text;
    }
  }

  [[nodiscard]] std::string path() const { return directory_.file("take.tsl"); }

  TempDirectory directory_;
};

INSTANTIATE_TEST_SUITE_P(Of, Output, testing::ValuesIn(kCommands),
                         [](const auto& command) { return command.param.name; });

TEST_P(Output, that_is_full_is_an_error) {
  ProcessOptions options = command();
  options.output_path = "/dev/full";
  const Finished finished = run(options);
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.error, kRefused + "No space left on device\n");
  expect_clean_file();
}

TEST_P(Output, that_is_closed_is_an_error) {
  ProcessOptions options = command();
  options.in_child = [] { ::close(STDOUT_FILENO); };
  const Finished finished = run(options);
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.error, kRefused + "Bad file descriptor\n");
  expect_clean_file();
}

TEST_P(Output, that_has_lost_its_reader_ends_the_program_the_usual_way) {
  ProcessOptions options = command();
  options.in_child = [] {
    ::signal(SIGPIPE, SIG_DFL);
    lose_the_reader();
  };
  const Finished finished = run(options);
  EXPECT_EQ(finished.status, (ExitStatus{-1, SIGPIPE}));
  EXPECT_EQ(finished.error, "");
  expect_clean_file();
}

TEST_P(Output, that_has_lost_its_reader_is_an_error_where_that_signal_is_ignored) {
  ProcessOptions options = command();
  options.in_child = [] {
    ::signal(SIGPIPE, SIG_IGN);
    lose_the_reader();
  };
  const Finished finished = run(options);
  EXPECT_EQ(finished.status, kFailure);
  EXPECT_EQ(finished.error, kRefused + "Broken pipe\n");
  expect_clean_file();
}

TEST_P(Output, that_nobody_can_be_told_about_is_an_error_all_the_same) {
  ProcessOptions options = command();
  options.output_path = "/dev/full";
  options.error_path = "/dev/full";
  EXPECT_EQ(run(options).status, kFailure);
  expect_clean_file();
}

/// The descriptors that the shell has closed are the first that a program gets when it opens something.
TEST(Outputs, that_are_all_closed_leave_glove_and_recording_alone) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove;
  ProcessOptions options = tool({"record", path, "--frames", "5", "--port", glove.port()});
  options.in_child = [] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
  };
  EXPECT_EQ(run(options).status, kFailure);
  EXPECT_EQ(glove.commands(), (virtual_glove::Bytes{0xFF, 0xA5}));
  const Recording taken = read_tsl(read_file(path));
  EXPECT_THAT(taken.head, HasSubstr("\"type\":\"header\""));
  EXPECT_EQ(taken.frames.size(), 0U);
  EXPECT_EQ(taken.torn, "");
}

/// The warning goes to standard error; that nobody hears it does not spoil the recording.
TEST(Outputs, that_lose_the_warning_leave_the_recording_complete) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove({.faults = {{.kind = virtual_glove::FaultKind::lost_cycles, .rate = 0.5}}});
  ProcessOptions options = tool({"record", path, "--frames", "50", "--port", glove.port()});
  options.error_path = "/dev/full";
  const Finished record = run(options);
  EXPECT_EQ(record.status, (ExitStatus{0, 0}));
  EXPECT_THAT(record.output, HasSubstr("\nSaved 50 frames  "));
  EXPECT_EQ(read_tsl(read_file(path)).frames.size(), 50U);
}

/// `tarsil record … | head -1`: the program ends as a pipe's writer does, but not before all that it owes the
/// recording and the user.
TEST(Outputs, that_lose_their_reader_before_the_summary_cost_neither_document_nor_warning) {
  const TempDirectory directory;
  const std::string path = directory.file("take.json");
  const VirtualGlove glove({.faults = {{.kind = virtual_glove::FaultKind::lost_cycles, .rate = 0.5}}});
  ProcessOptions options = tool({"record", path, "--frames", "50", "--port", glove.port()});
  options.in_child = [] { ::signal(SIGPIPE, SIG_DFL); };
  Process record(options);
  ASSERT_TRUE(record.wait_for_output("Recording to"));
  record.close_output();
  EXPECT_EQ(record.wait(), (ExitStatus{-1, SIGPIPE}));
  EXPECT_THAT(record.error(), HasSubstr("WARNING: "));
  EXPECT_EQ(read_json(read_file(path)).frames.size(), 50U);
}

/// A reader that comes late costs nothing, also where another program has set the pipe not to wait.
TEST(Outputs, that_must_not_wait_get_every_row_all_the_same) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  ProcessOptions options = tool({"stream", "--mock", "--raw", "--hz", "100000", "--count", "5000"});
  options.in_child = [full_soon = ends[1]] { ::dup2(full_soon, STDOUT_FILENO); };
  Process stream(options);
  const auto is_full = [&] {
    pollfd polled{ends[1], POLLOUT, 0};
    return ::poll(&polled, 1, 0) == 0;
  };
  ASSERT_TRUE(eventually(is_full));
  ::close(ends[1]);
  std::string rows;
  std::array<char, 4096> piece{};
  for (ssize_t count = 1; count > 0;
       rows.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)))) {
    count = ::read(ends[0], piece.data(), piece.size());
  }
  ::close(ends[0]);
  EXPECT_EQ(stream.wait(), (ExitStatus{0, 0}));
  EXPECT_EQ(stream.error(), "");
  EXPECT_EQ(std::ranges::count(rows, '\n'), 2 + 5000);  // the heading, the rows
}

}  // namespace
}  // namespace tarsil::test
