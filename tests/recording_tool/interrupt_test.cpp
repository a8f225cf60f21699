// Ctrl+C in the middle of the work: no half file stays, and none that was there goes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "tarsil/core/file_io.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::ElementsAre;

/// Interrupts a command that has read a part of its input and waits for more.
void expect_nothing_left(const std::vector<std::string>& command, const std::string& out_name, int signal) {
  const TempDirectory directory;
  const std::string in = directory.file("in");
  const std::string out = directory.file(out_name);
  ASSERT_EQ(::mkfifo(in.c_str(), 0600), 0);
  const int writer = ::open(in.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(detail::write_all(writer, small_recording(20)), 0);
  write_file(out, "precious");
  std::vector<std::string> arguments = command;
  arguments.insert(arguments.end(), {in, "--force"});
  arguments.push_back(out);
  Process tool(recording_tool(arguments));
  EXPECT_TRUE(eventually([&] { return names_in(directory.path()).size() == 3; }));
  tool.send_signal(signal);
  EXPECT_EQ(tool.wait(), kFailed);
  EXPECT_EQ(tool.error(), "tarsil-recording: interrupted\n");
  EXPECT_THAT(names_in(directory.path()), ElementsAre("in", out_name));
  EXPECT_EQ(read_file(out), "precious");
  ::close(writer);
}

TEST(RecordingInterrupt, leaves_nothing_of_a_recovery) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) expect_nothing_left({"recover"}, "out.tsl", signal);
}

TEST(RecordingInterrupt, leaves_nothing_of_a_conversion) {
  expect_nothing_left({"convert"}, "out.csv", SIGINT);
  expect_nothing_left({"convert"}, "out.json", SIGINT);
}

}  // namespace
}  // namespace tarsil::test
