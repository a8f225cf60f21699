// The commands that show a glove and outlive its loss - stream, doctor, health - while each of their calls
// fails in turn: what is the glove's passes, what is their own is told.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/faults/faulty_tool.h"
#include "tests/faults/glove_on_port.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

const std::string kNoMemory = "Error: std::bad_alloc\n";
const std::string kNoThread = "Error: Resource temporarily unavailable\n";
const std::string kNoOutput = "Error: cannot write to standard output: No space left on device\n";

struct Command {
  const char* name;
  std::vector<std::string> arguments;
  /// How the output ends when all goes well.
  const char* ending;
  /// How many lines it has then.
  long lines;
};

const Command kStream{"stream", {"stream", "--raw", "--count", "20"}, "\n", 22};
const Command kDoctor{"doctor", {"doctor"}, "\n✓ Touch stream OK\n✓ IMU stream OK\n", 8};
const Command kHealth{"health", {"health", "--frames", "20"}, "\nUpload for health certificate? [y/N] ", 30};

class LiveFaults : public testing::TestWithParam<Command> {
 protected:
  [[nodiscard]] const std::string& port() const { return glove_.path(); }

  [[nodiscard]] FaultyRun run(const std::string& faults) {
    EXPECT_TRUE(glove_.wait_until_free());
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.end(), {"--port", port()});
    return run_with_faults(tool(arguments), faults);
  }
  [[nodiscard]] auto runner() {
    return [this](const std::string& faults) { return run(faults); };
  }

  static void expect_complete(const FaultyRun& run) {
    expect_success(run);
    EXPECT_THAT(run.finished.output, EndsWith(GetParam().ending)) << run;
    EXPECT_EQ(std::count(run.finished.output.begin(), run.finished.output.end(), '\n'), GetParam().lines)
        << run;
  }

  GloveOnPort glove_;
};

INSTANTIATE_TEST_SUITE_P(Commands, LiveFaults, testing::Values(kStream, kDoctor, kHealth),
                         [](const auto& command) { return command.param.name; });

TEST_P(LiveFaults, in_opening_the_port_pass) {
  std::vector<std::string> rules = {"tcgetattr@" + port() + ":1:EIO", "tcsetattr@" + port() + ":1:EIO"};
  for (const char* const fault : {"EACCES", "EBUSY", "EMFILE", "ENFILE", "ENOMEM", "EIO"}) {
    rules.push_back("open@" + port() + ":1:" + fault);
  }
  for (const std::string& rule : rules) {
    const FaultyRun run = this->run(rule);
    EXPECT_EQ(run.hits.at(0), 1U) << run;
    expect_complete(run);
  }
}

TEST_P(LiveFaults, in_reading_the_port_pass) {
  for (const char* const which : {":1:EIO", ":2:EIO", ":3:EAGAIN", ":5:ENOMEM", ":10:EIO"}) {
    // The later ones may not be needed, when much has come at once.
    expect_complete(run("read@" + port() + which));
  }
}

TEST_P(LiveFaults, that_are_none_are_survived) {
  const auto interrupted = [](const std::string& call) { return call + ":1:EINTR:3:4 "; };
  const std::string tolerated = ":1:EINVAL:0 ";
  for (const std::string& faults : {interrupted("open@" + port()) + interrupted("read@" + port()) +
                                        interrupted("write@" + port()) + interrupted("write@1"),
                                    "read@" + port() + ":1:ONE:0 write@1:1:ONE:0",
                                    "ioctl@" + port() + tolerated + "cfsetispeed" + tolerated +
                                        "cfsetospeed" + tolerated + "close@" + port() + tolerated}) {
    expect_complete(run(faults));
  }
}

TEST_P(LiveFaults, in_any_line_of_output_are_told) {
  fail_each("write@1", "ENOSPC", runner(), [](const FaultyRun& run, std::size_t number) {
    expect_error(run, kNoOutput);
    EXPECT_EQ(run.finished.output.empty(), number == 1) << run;
  });
}

TEST_P(LiveFaults, in_starting_a_thread_pass_or_are_told) {
  // The first is the reader of the port, which is tried again; the others belong to the command.
  expect_complete(run("thread:1:EAGAIN"));
  for (const char* const faults : {"thread:2:EAGAIN", "thread:3:EAGAIN", "thread:1:EAGAIN:0"}) {
    const FaultyRun run = this->run(faults);
    expect_error(run, kNoThread);
    EXPECT_EQ(run.finished.output, "") << run;
  }
}

/// A lack in a thread of the port costs the time to connect again, so that not every call is tried here. The
/// library's own tests do, with a shorter wait.
TEST_P(LiveFaults, of_memory_pass_or_are_told) {
  fail_each("memory", "ENOMEM", runner(),
            [](const FaultyRun& run, std::size_t /*number*/) {
              if (run.finished.status.code == 0) {
                expect_complete(run);
              } else {
                expect_error(run, kNoMemory);
              }
            },
            {.of_every = 4});
}

using StreamFaults = LiveFaults;

INSTANTIATE_TEST_SUITE_P(Commands, StreamFaults, testing::Values(kStream),
                         [](const auto& command) { return command.param.name; });

/// The last calls may be spared: what the command needed was there before.
TEST_P(StreamFaults, of_memory_that_stay_are_told) {
  fail_each("memory", "ENOMEM:0", runner(),
            [](const FaultyRun& run, std::size_t number) {
              if (run.finished.status.code == 0) {
                EXPECT_GT(number, 60U) << run;  // 20 frames of three arrays
                expect_complete(run);
              } else {
                expect_error(run, kNoMemory);
              }
            },
            {.of_every = 7});
}

/// A glove that has not heard a command stays silent: five seconds later it is asked again.
TEST_P(StreamFaults, in_a_command_to_the_glove_pass) {
  for (const char* const command : {":1:EIO", ":2:EIO"}) {
    const FaultyRun run = this->run("write@" + port() + command);
    EXPECT_EQ(run.hits.at(0), 1U) << run;
    expect_complete(run);
  }
}

/// A question that is answered "yes" leads to an attempt to upload, here to where nobody listens.
class HealthAnswer : public testing::Test {
 protected:
  [[nodiscard]] FaultyRun run(const std::string& faults) const {
    write_file(answer_, "yes\n");
    ProcessOptions options = tool({"health", "--frames", "20", "--mock", "--hz", "5000"});
    options.environment["TARSIL_SERVER_URL"] = "http://127.0.0.1:1/";
    options.environment["no_proxy"] = "*";
    options.in_child = [answer = answer_] {
      const int input = ::open(answer.c_str(), O_RDONLY);
      dup2(input, STDIN_FILENO);
      ::close(input);
    };
    return run_with_faults(std::move(options), faults);
  }

  TempDirectory directory_;
  std::string answer_ = directory_.file("answer");
};

TEST_F(HealthAnswer, is_heard_whatever_interrupts_it) {
  for (const char* const faults : {"read@0:1:EINTR:3:4", "read@0:1:ONE:0"}) {
    const FaultyRun run = this->run(faults);
    EXPECT_GE(run.hits.at(0), 1U) << run;
    EXPECT_EQ(run.finished.status, (ExitStatus{1, 0})) << run;
    EXPECT_THAT(run.finished.error, testing::StartsWith("Upload failed: ")) << run;
    EXPECT_THAT(run.finished.output, EndsWith("Uploading to http://127.0.0.1:1/ ...\n")) << run;
  }
}

TEST_F(HealthAnswer, is_no_when_it_cannot_be_read) {
  for (const char* const faults : {"read@0:1:EIO", "poll@0:1:ENOMEM read@0:1:EIO"}) {
    const FaultyRun run = this->run(faults);
    expect_success(run);
    EXPECT_THAT(run.finished.output, EndsWith("[y/N] ")) << run;
  }
}

}  // namespace
}  // namespace tarsil::test
