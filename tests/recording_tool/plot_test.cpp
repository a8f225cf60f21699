// Pictures: that they are what they say, show what there is, and that nothing in a file becomes a command.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/recording/samples.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"
#include "tools/recording/plot_columns.h"
#include "tools/recording/plot_script.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using recording_tool::Extent;
using recording_tool::PlotColumns;
using recording_tool::PlotTexts;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

bool gnuplot_is_installed() {
  return run({"sh", "-c", "command -v gnuplot"}).status == kDone;
}

class RecordingPlot : public testing::Test {
 protected:
  /// How to plot with a program in place of gnuplot that runs these commands of a shell.
  ProcessOptions plot_with(const std::string& commands, const std::string& out) {
    write_file(programs_.file("gnuplot"), "#!/bin/sh\n" + commands);
    fs::permissions(programs_.file("gnuplot"), fs::perms::owner_all);
    ProcessOptions options = recording_tool({"plot", "--force", in_, "-o", out});
    options.environment["PATH"] = programs_.path().native() + ":/usr/bin:/bin";
    return options;
  }

  TempDirectory directory_;
  TempDirectory programs_;
  std::string in_ = directory_.file("take.tsl");
};

TEST_F(RecordingPlot, draws_svg_that_a_parser_takes) {
  if (!gnuplot_is_installed()) GTEST_SKIP() << "gnuplot is not installed";
  std::string other_marker = marker_line(2);
  other_marker.replace(other_marker.find("grasp"), 5, "gr\xC3\xBCn");
  write_file(in_, header_line() + frame_line(0) + marker_line(1) + other_marker + frame_line(4) +
                      frame_line(5, true) + frame_line(9));
  const std::string out = directory_.file("take.svg");
  const Finished plot = run_recording_tool({"plot", in_, "-o", out, "--width", "900", "--height", "1000"});
  EXPECT_EQ(plot.status, kDone) << plot.error;
  EXPECT_EQ(plot.error, "");
  const Finished parsed = run({TARSIL_SYSTEM_PYTHON, "-c",
                               "import sys, xml.etree.ElementTree as tree\n"
                               "root = tree.parse(sys.argv[1]).getroot()\n"
                               "sys.stdout.reconfigure(encoding='utf-8')\n"
                               "print(root.get('width'), root.get('height'), root.tag.split('}')[1])\n"
                               "print(*sorted({e.text.strip() for e in root.iter() if e.text and "
                               "e.text.strip()[:1].isalpha()}), sep='|')",
                               out});
  EXPECT_THAT(parsed.output, StartsWith("900 1000 svg\n")) << parsed.error;
  EXPECT_THAT(parsed.output, HasSubstr("MCP abduction"));
  EXPECT_THAT(parsed.output, HasSubstr("acceleration (g)"));
  EXPECT_THAT(parsed.output, HasSubstr("grasp"));
  EXPECT_THAT(parsed.output, HasSubstr("gr\xC3\xBCn"));
  EXPECT_THAT(parsed.output, HasSubstr("take.tsl, 4 frames, 0.09 s"));
}

TEST_F(RecordingPlot, draws_png_of_the_size_that_was_asked_for) {
  if (!gnuplot_is_installed()) GTEST_SKIP() << "gnuplot is not installed";
  write_file(in_, small_recording(3) + "torn");
  const std::string out = directory_.file("take");
  const Finished plot =
      run_recording_tool({"plot", in_, "--output=" + out, "--format", "png", "--width", "900"});
  EXPECT_EQ(plot.status, kDone) << plot.error;
  EXPECT_EQ(plot.error, "1 lines are damaged (tarsil-recording check tells where)\n");
  const std::string bytes = read_file(out);
  EXPECT_THAT(bytes, StartsWith("\x89PNG\r\n\x1a\n"));
  EXPECT_EQ(bytes.substr(12, 12), std::string("IHDR\0\0\x03\x84\0\0\x06\x40", 12));
  EXPECT_EQ(bytes.substr(bytes.size() - 8, 4), "IEND");
}

TEST_F(RecordingPlot, says_what_is_missing_without_gnuplot) {
  write_file(in_, small_recording(3));
  ProcessOptions options = recording_tool({"plot", in_, "-o", directory_.file("take.svg")});
  options.environment["PATH"] = directory_.path();
  const Finished plot = run(options);
  EXPECT_EQ(plot.status, kFailed);
  EXPECT_EQ(plot.error,
            "tarsil-recording: gnuplot is not installed, which draws the pictures (Debian: gnuplot-nox)\n");
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.tsl"));
}

TEST_F(RecordingPlot, leaves_no_picture_when_gnuplot_fails) {
  write_file(in_, small_recording(3));
  const Finished plot = run(plot_with("echo half a picture; exit 3", directory_.file("take.svg")));
  EXPECT_EQ(plot.status, kFailed);
  EXPECT_EQ(plot.error, "tarsil-recording: gnuplot could not draw the picture\n");
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.tsl"));
}

TEST_F(RecordingPlot, takes_what_gnuplot_prints_while_it_reads) {
  write_file(in_, small_recording(1000));
  const std::string out = directory_.file("take.svg");
  const Finished plot = run(plot_with("head -c 3000000 /dev/zero; exec cat", out));
  EXPECT_EQ(plot.status, kDone) << plot.error;
  const std::string picture = read_file(out);
  EXPECT_EQ(picture.find_first_not_of('\0'), 3000000U);
  EXPECT_THAT(picture, EndsWith("unset multiplot\n"));
}

TEST_F(RecordingPlot, on_a_full_disk_fails) {
  write_file(in_, small_recording(3));
  const std::string out = directory_.file("take.svg");
  fs::create_symlink("/dev/full", out);
  const Finished plot = run(plot_with("exec cat", out));
  EXPECT_EQ(plot.status, kFailed);
  EXPECT_EQ(plot.error, "tarsil-recording: cannot write " + out + ": No space left on device\n");
}

TEST_F(RecordingPlot, beyond_a_limit_for_files_leaves_what_there_was) {
  write_file(in_, small_recording(3));
  const std::string out = directory_.file("take.png");
  write_file(out, "precious");
  ProcessOptions options = plot_with("cat > /dev/null; exec head -c 1000000 /dev/zero", out);
  options.in_child = [] {
    constexpr rlimit kLimit{20000, 20000};
    setrlimit(RLIMIT_FSIZE, &kLimit);
  };
  const Finished plot = run(options);
  EXPECT_EQ(plot.status, kFailed);
  EXPECT_EQ(plot.error, "tarsil-recording: cannot write " + out + ": File too large\n");
  EXPECT_EQ(read_file(out), "precious");
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.png", "take.tsl"));
}

TEST_F(RecordingPlot, an_interrupt_ends_gnuplot_too) {
  write_file(in_, small_recording(3));
  const std::string started = programs_.file("started");
  ASSERT_EQ(::mkfifo(programs_.file("silence").c_str(), 0600), 0);
  const int writer = ::open(programs_.file("silence").c_str(), O_RDWR | O_CLOEXEC);
  // The whole script has been read when the file appears; then gnuplot goes on for ever.
  Process plot(plot_with("cat > /dev/null; cd ${0%/*}; echo $$ > number; mv number started; exec cat silence",
                         directory_.file("take.svg")));
  ASSERT_TRUE(eventually([&] { return fs::exists(started); }));
  plot.send_signal(SIGTERM);
  EXPECT_EQ(plot.wait(), kFailed);
  EXPECT_EQ(plot.error(), "tarsil-recording: interrupted\n");
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.tsl"));
  EXPECT_EQ(::kill(std::stoi(read_file(started)), 0), -1);
  ::close(writer);
}

TEST_F(RecordingPlot, of_no_frames_is_refused) {
  write_file(in_, header_line());
  ProcessOptions options = recording_tool({"plot", in_, "-o", directory_.file("take.svg")});
  if (!gnuplot_is_installed()) GTEST_SKIP() << "gnuplot is not installed";
  EXPECT_EQ(run(options).error, "tarsil-recording: there is no frame in " + in_ + "\n");
  EXPECT_THAT(names_in(directory_.path()), ElementsAre("take.tsl"));
}

PlotColumns columns_of(const std::vector<Frame>& frames, std::size_t columns) {
  Extent extent;
  for (const Frame& frame : frames) extent.add(frame);
  PlotColumns result(extent, columns);
  for (const Frame& frame : frames) result.add(frame);
  return result;
}

Frame frame_at(double t, std::uint64_t seq, float angle, bool stale = false) {
  Frame frame = bare_frame(seq, t);
  frame.q = {angle};
  frame.stale = stale;
  return frame;
}

TEST(PlotColumnsOfARecording, hold_the_smallest_and_the_largest_value) {
  const PlotColumns columns =
      columns_of({frame_at(10, 0, 3), frame_at(11, 1, 1), frame_at(12, 2, 2), frame_at(20, 3, 7)}, 5);
  EXPECT_EQ(columns.joint(0)[0].low, 1.0F);
  EXPECT_EQ(columns.joint(0)[0].high, 3.0F);
  EXPECT_EQ(columns.joint(0)[1].low, 2.0F);
  EXPECT_TRUE(columns.joint(0)[2].empty());
  EXPECT_EQ(columns.joint(0)[4].high, 7.0F);
  EXPECT_EQ(columns.time_of(0), 1.0);
  EXPECT_EQ(columns.time_of(4), 9.0);
}

TEST(PlotColumnsOfARecording, know_gaps_and_silences) {
  const PlotColumns columns = columns_of({frame_at(0, 0, 0), frame_at(1, 1, 0), frame_at(3, 1, 0, true),
                                          frame_at(4, 2, 0), frame_at(6, 9, 0), frame_at(10, 10, 0)},
                                         10);
  EXPECT_THAT(columns.stale_stretches(), ElementsAre(Pair(1, 4)));
  EXPECT_THAT(columns.gap_stretches(), ElementsAre(Pair(4, 6)));
  EXPECT_TRUE(columns.gap_ends_at(6));
  EXPECT_FALSE(columns.gap_ends_at(4));
}

TEST(PlotColumnsOfARecording, hold_no_gap_that_is_narrower_than_a_column) {
  const PlotColumns columns =
      columns_of({frame_at(0, 0, 0), frame_at(1, 2, 0), frame_at(1.5, 4, 0), frame_at(10, 5, 0)}, 10);
  EXPECT_THAT(columns.gap_stretches(), ElementsAre(Pair(0, 1)));
  EXPECT_FALSE(columns.gap_ends_at(1));
}

TEST(PlotColumnsOfARecording, take_times_and_values_of_any_kind) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const PlotColumns columns = columns_of({frame_at(5, 0, nan), frame_at(static_cast<double>(nan), 1, 1),
                                          frame_at(-1e300, 2, 1), frame_at(1e300, 3, 2)},
                                         4);
  EXPECT_EQ(columns.extent().frames, 3U);
  EXPECT_EQ(columns.joint(0)[0].low, 1.0F);
  EXPECT_EQ(columns.joint(0)[3].high, 2.0F);
}

std::string svg_script(const PlotColumns& columns, const PlotTexts& texts = {}) {
  return plot_script(columns, texts, recording_tool::PictureFormat::svg, recording_tool::PictureSize{});
}

TEST(PlotScript, breaks_lines_at_gaps_and_draws_frames_between_two_as_points) {
  const std::string script = svg_script(columns_of(
      {frame_at(0, 0, 0), frame_at(1, 1, 0), frame_at(4, 4, 0), frame_at(7, 7, 0), frame_at(10, 8, 0)}, 10));
  EXPECT_THAT(script, HasSubstr("$lines << EOD\n0.5 0\n1.5 0\n\n4.5 0\n\n7.5 0\n9.5 0\n\nEOD\n"
                                "$points << EOD\n4.5 0\nEOD\n"));
  EXPECT_THAT(script, HasSubstr(" title 'MCP abduction', $points using 1:2 with points "));
}

TEST(PlotScript, draws_a_single_frame_as_a_point) {
  EXPECT_THAT(svg_script(columns_of({frame_at(5, 0, 0)}, 10)), HasSubstr("$points << EOD\n0 0\nEOD\n"));
  EXPECT_THAT(svg_script(columns_of({frame_at(5, 0, 0), frame_at(6, 1, 0)}, 10)), Not(HasSubstr("$points")));
}

TEST(PlotScript, has_markers_before_the_curves_and_beside_each_other) {
  const PlotTexts texts{.title = {}, .markers = {{1, "a"}, {2, "b"}, {9.5, "c"}}};
  const std::string script = svg_script(columns_of({frame_at(0, 0, 0), frame_at(10, 1, 0)}, 10), texts);
  EXPECT_THAT(script, HasSubstr("set arrow from 1,graph 0 to 1,graph 1 nohead front "));
  EXPECT_THAT(script, HasSubstr("set label 'a' at 1,graph 0.93 left front offset character 0.5,0\n"));
  EXPECT_THAT(script, HasSubstr("set label 'b' at 2,graph 0.79 left front offset character 0.5,0\n"));
  EXPECT_THAT(script, HasSubstr("set label 'c' at 9.5,graph 0.93 right front offset character -0.5,0\n"));
}

TEST(PlotScript, keeps_letters_of_all_languages) {
  const PlotColumns columns = columns_of({frame_at(0, 0, 0), frame_at(1, 1, 1)}, 10);
  const PlotTexts texts{.title = "gr\xC3\xBCn \xE6\x97\xA5 \xF0\x9F\x96\x90 \xC2\xB5",
                        .markers = {{0.5, "\xFC \xC3 \xC2\x9B \xEF\xBF\xBE \xEF\xBF\xBF"}}};
  const std::string script = svg_script(columns, texts);
  EXPECT_THAT(script, StartsWith("set encoding utf8\n"));
  EXPECT_THAT(script, HasSubstr("title '" + texts.title + "'\n"));
  EXPECT_THAT(script, HasSubstr("set label '? ? ? ? ?' at"));
  // A font that lacks a letter would spoil a png.
  EXPECT_THAT(plot_script(columns, texts, recording_tool::PictureFormat::png, recording_tool::PictureSize{}),
              HasSubstr("title 'gr\xC3\xBCn ? ? \xC2\xB5'\n"));
}

TEST(PlotScript, takes_no_commands_from_a_file) {
  const PlotColumns columns = columns_of({frame_at(0, 0, 0), frame_at(1, 1, 1)}, 10);
  const PlotTexts texts{.title = "take'\nsystem('rm')`id`",
                        .markers = {{0.5, "a'; load '|x' \"\\ $(id) @m"}}};
  const std::string script = svg_script(columns, texts);
  EXPECT_THAT(script, HasSubstr("title 'take??system(?rm?)?id?'\n"));
  EXPECT_THAT(script, HasSubstr("set label 'a?? load ??x? ?? ?(id) ?m' at 0.5,graph"));
  EXPECT_THAT(script, Not(HasSubstr("`")));
}

}  // namespace
}  // namespace tarsil::test
