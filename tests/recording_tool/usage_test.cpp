// The command line: what it refuses, and that it says so in the right place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(RecordingToolUsage, help_goes_to_standard_output) {
  for (const std::string option : {"--help", "-h"}) {
    const Finished help = run_recording_tool({option});
    EXPECT_EQ(help.status, kDone);
    EXPECT_THAT(help.output, StartsWith("Usage: tarsil-recording <command> [options] FILE...\n"));
    EXPECT_EQ(help.error, "");
  }
  for (const std::string command : {"info", "check", "recover", "convert", "plot"}) {
    const Finished help = run_recording_tool({command, "--help"});
    EXPECT_EQ(help.status, kDone);
    EXPECT_THAT(help.output, StartsWith("Usage: tarsil-recording " + command + " "));
    EXPECT_EQ(help.error, "");
  }
}

TEST(RecordingToolUsage, wrong_usage_is_refused_with_the_usage_on_standard_error) {
  struct Case {
    std::vector<std::string> arguments;
    std::string error;
  };
  const std::vector<Case> cases{
      {{}, "Usage: tarsil-recording <command>"},
      {{"mend"}, "tarsil-recording: unknown command 'mend'\n\nUsage: tarsil-recording <command>"},
      {{"--mend"}, "tarsil-recording: unknown option '--mend'\n\nUsage: tarsil-recording <command>"},
      {{"info"}, "tarsil-recording info: a file is missing\n\nUsage: tarsil-recording info "},
      {{"info", "a", "b"}, "tarsil-recording info: one file too many: 'b'\n\nUsage: "},
      {{"info", "--xml", "a"}, "tarsil-recording info: unknown option '--xml'\n\nUsage: "},
      {{"info", "--json=1", "a"}, "tarsil-recording info: --json takes no value\n\nUsage: "},
      {{"check", "-x", "a"}, "tarsil-recording check: unknown option '-x'\n\nUsage: "},
      {{"recover", "a"}, "tarsil-recording recover: a file is missing\n\nUsage: "},
      {{"convert", "a", "b.txt"}, "tarsil-recording convert: 'b.txt' ends neither in .csv nor in .json"},
      {{"convert", "a", "b", "--format", "xml"},
       "tarsil-recording convert: --format: 'xml' is neither csv nor json"},
      {{"convert", "a", "b", "--format"}, "tarsil-recording convert: --format needs a value\n\nUsage: "},
      {{"plot", "a"}, "tarsil-recording plot: --output is missing\n\nUsage: "},
      {{"plot", "a", "-o", "b.jpg"}, "tarsil-recording plot: 'b.jpg' ends neither in .svg nor in .png"},
      {{"plot", "a", "-o", "b.svg", "--width", "12x"},
       "tarsil-recording plot: --width: '12x' is not a whole number from 800 to 10000\n\nUsage: "},
      {{"plot", "a", "-o", "b.svg", "--height", "999"},
       "tarsil-recording plot: --height: '999' is not a whole number from 1000 to 10000\n\nUsage: "},
  };
  for (const Case& wrong : cases) {
    const Finished refused = run_recording_tool(wrong.arguments);
    EXPECT_EQ(refused.status, kWrongUsage) << wrong.error;
    EXPECT_THAT(refused.error, StartsWith(wrong.error));
    EXPECT_EQ(refused.output, "");
  }
}

TEST(RecordingToolUsage, values_may_stand_behind_an_equals_sign) {
  EXPECT_THAT(run_recording_tool({"--help"}).output, HasSubstr("--name=value"));
  const TempDirectory directory;
  const std::string in = directory.file("in.tsl");
  write_file(in, small_recording(1));
  EXPECT_EQ(run_recording_tool({"convert", "--format=json", in, directory.file("out")}).status, kDone);
  EXPECT_EQ(run_recording_tool({"convert", "--format=", in, directory.file("other")}).status, kWrongUsage);
}

TEST(RecordingToolUsage, files_may_begin_with_a_dash_behind_two_dashes) {
  const TempDirectory directory;
  write_file(directory.path() / "--help", small_recording(1));
  ProcessOptions options = recording_tool({"check", "--", "--help"});
  options.directory = directory.path();
  EXPECT_EQ(run(options).output, "--help: fine, 1 frames, 0 markers\n");
}

TEST(RecordingToolUsage, what_cannot_be_read_is_named) {
  const TempDirectory directory;
  const std::string missing = directory.file("missing.tsl");
  for (const std::string command : {"info", "check"}) {
    EXPECT_EQ(run_recording_tool({command, missing}).error,
              "tarsil-recording: cannot read " + missing + ": No such file or directory\n");
    const Finished on_directory = run_recording_tool({command, directory.path()});
    EXPECT_EQ(on_directory.status, kFailed);
    EXPECT_EQ(on_directory.error,
              "tarsil-recording: cannot read " + directory.path().native() + ": Is a directory\n");
  }
}

TEST(RecordingToolUsage, other_formats_are_recognised) {
  const TempDirectory directory;
  const std::string path = directory.file("take");
  write_file(path, "seq,t,stale,q_0\n1,2.000000,0,0.500000\n");
  const Finished csv = run_recording_tool({"check", path});
  EXPECT_EQ(csv.status, kFailed);
  EXPECT_THAT(csv.error, HasSubstr("is not in the tsl format, but looks like a csv file\n"));
  write_file(path, "{\n  \"version\": 1,\n");
  EXPECT_THAT(run_recording_tool({"info", path}).error, HasSubstr("but looks like a json document\n"));
}

TEST(RecordingToolUsage, output_that_cannot_be_written_is_a_failure) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  write_file(path, small_recording(3));
  for (const std::string command : {"info", "check"}) {
    ProcessOptions options = recording_tool({command, path});
    options.output_path = "/dev/full";
    const Finished finished = run(options);
    EXPECT_EQ(finished.status, kFailed);
    EXPECT_EQ(finished.error, "tarsil-recording: cannot write to standard output: No space left on device\n");
  }
}

}  // namespace
}  // namespace tarsil::test
