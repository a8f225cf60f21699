// The examples in examples/python, run with the system's own Python.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PythonExamples : public testing::Test {
 protected:
  static ProcessOptions python(std::vector<std::string> arguments) {
    ProcessOptions options;
    options.command = {TARSIL_SYSTEM_PYTHON};
    options.command.insert(options.command.end(), arguments.begin(), arguments.end());
    // One list of fonts for all runs, and none in the user's home.
    options.environment["MPLCONFIGDIR"] = TARSIL_SCRATCH "/matplotlib";
    return options;
  }
  /// Whether the packages are there; Debian: python3-numpy, python3-pandas, python3-matplotlib.
  static bool has(const std::string& modules) {
    return run(python({"-c", "import " + modules})).status == kDone;
  }

  TempDirectory directory_;
  std::string picture_ = directory_.file("picture.png");
};

TEST_F(PythonExamples, read_recording_loads_and_plots_a_recording) {
  if (!has("numpy, pandas, matplotlib")) GTEST_SKIP() << "NumPy, pandas or matplotlib is not installed";
  const std::string path = directory_.file("take.tsl");
  std::string not_a_number = frame_line(5);
  not_a_number.replace(not_a_number.find("0.500000"), 8, "-nan");
  write_file(path, header_line() + frame_line(0) + marker_line(1) + frame_line(1) + frame_line(4, true) +
                       not_a_number + frame_line(9).substr(0, 60));
  const Finished read =
      run(python({TARSIL_EXAMPLES "/python/read_recording.py", path, "--output", picture_}));
  EXPECT_EQ(read.status, kDone) << read.error;
  EXPECT_THAT(read.output, StartsWith("unknown glove, left hand\n4 frames in 0.05 s, 2 missing, 1 stale\n"));
  EXPECT_THAT(read.output, HasSubstr("mean  28.6\n"));
  EXPECT_THAT(read.error, HasSubstr(path + ": 1 lines are damaged\n"));
  EXPECT_THAT(read_file(picture_), StartsWith("\x89PNG\r\n"));
}

TEST_F(PythonExamples, read_recording_refuses_what_is_no_recording) {
  if (!has("numpy, pandas")) GTEST_SKIP() << "NumPy or pandas is not installed";
  const std::string path = directory_.file("take.tsl");
  write_file(path, header_line());
  const Finished read = run(python({TARSIL_EXAMPLES "/python/read_recording.py", path}));
  EXPECT_EQ(read.status, kFailed);
  EXPECT_EQ(read.error, "read_recording.py: no frames in " + path + "\n");
}

TEST_F(PythonExamples, read_recording_leaves_out_lines_that_lack_something) {
  if (!has("numpy, pandas, matplotlib")) GTEST_SKIP() << "NumPy, pandas or matplotlib is not installed";
  const std::string path = directory_.file("take.tsl");
  const auto without = [](std::string line, const std::string& part, const std::string& other = {}) {
    return line.replace(line.find(part), part.size(), other);
  };
  write_file(path, without(header_line(), R"(,"metadata":{"side": "left"})") + frame_line(0) +
                       without(frame_line(1), R"("q":[0.500000],)") +
                       without(frame_line(2), R"("acc":[0.010,-0.020,0.990],)") +
                       without(frame_line(3), "1700000000.030000", "nan") +
                       without(marker_line(3), R"("name":"grasp",)") + "[]\n{\"type\":\"other\"}\n" +
                       frame_line(4));
  const Finished read =
      run(python({TARSIL_EXAMPLES "/python/read_recording.py", path, "--output", picture_}));
  EXPECT_EQ(read.status, kDone) << read.error;
  EXPECT_THAT(read.output, StartsWith("unknown glove, unknown hand\n2 frames in 0.04 s, 3 missing"));
  EXPECT_THAT(read.error, HasSubstr(path + ": 6 lines are damaged\n" + path +
                                    ": 1 lines have a time that is no number\n"));
  EXPECT_THAT(read_file(picture_), StartsWith("\x89PNG\r\n"));
}

TEST_F(PythonExamples, read_recording_says_why_it_cannot_draw) {
  if (!has("numpy, pandas, matplotlib")) GTEST_SKIP() << "NumPy, pandas or matplotlib is not installed";
  const std::string path = directory_.file("take.tsl");
  write_file(path, small_recording(2));
  const Finished read = run(
      python({TARSIL_EXAMPLES "/python/read_recording.py", path, "--output", directory_.file("take.xyz")}));
  EXPECT_EQ(read.status, kFailed);
  EXPECT_THAT(read.error, StartsWith("read_recording.py: "));
  EXPECT_THAT(read.error, HasSubstr("xyz"));
}

TEST_F(PythonExamples, live_plot_draws_what_has_come_before_an_interrupt) {
  if (!has("matplotlib")) GTEST_SKIP() << "matplotlib is not installed";
  const Finished plot = run(python({"-B", "-c",
                                    "import sys\n"
                                    "sys.path.insert(0, sys.argv[1])\n"
                                    "import live_plot\n"
                                    "def rows():\n"
                                    "    yield '0.00 0.1 0.2 0.3\\n'\n"
                                    "    yield '0.25 0.1 0.2 0.3\\n'\n"
                                    "    raise KeyboardInterrupt\n"
                                    "sys.stdin = rows()\n"
                                    "sys.argv = ['live_plot.py', '--output', sys.argv[2]]\n"
                                    "live_plot.main()\n",
                                    TARSIL_EXAMPLES "/python", picture_}));
  EXPECT_EQ(plot.status, kDone) << plot.error;
  EXPECT_EQ(plot.output, "2 rows, 0.25 s\n");
  EXPECT_THAT(read_file(picture_), StartsWith("\x89PNG\r\n"));
}

TEST_F(PythonExamples, live_plot_draws_the_rows_of_a_stream) {
  if (!has("matplotlib")) GTEST_SKIP() << "matplotlib is not installed";
  const Finished stream = run_tool({"stream", "--mock", "--hz", "1000", "--raw", "--count", "50"});
  ASSERT_EQ(stream.status, kDone);
  Process plot(python({TARSIL_EXAMPLES "/python/live_plot.py", "--frames", "50", "--output", picture_}));
  plot.write_input(stream.output);
  plot.close_input();
  EXPECT_EQ(plot.wait(), kDone) << plot.error();
  EXPECT_THAT(plot.output(), StartsWith("50 rows, "));
  EXPECT_THAT(read_file(picture_), StartsWith("\x89PNG\r\n"));
}

}  // namespace
}  // namespace tarsil::test
