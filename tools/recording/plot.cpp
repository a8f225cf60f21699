// tarsil-recording plot
//
// The first reading takes the extent, the second fills the columns: no more memory for an hour than for a
// second.
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tarsil/cli/output.h"
#include "tarsil/core/number_text.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"
#include "tools/recording/gnuplot.h"
#include "tools/recording/output_file.h"
#include "tools/recording/plot_columns.h"
#include "tools/recording/plot_script.h"
#include "tools/recording/recording_lines.h"

namespace tarsil::recording_tool {

namespace {

// The names of the lines have no room in less.
constexpr unsigned kSmallestWidth = 800;
constexpr unsigned kSmallestHeight = 1000;
constexpr unsigned kLargest = 10000;
constexpr std::size_t kMostMarkers = 50;

PictureFormat chosen_format(const CommandLine& line, const std::string& out) {
  const auto option = line.value("--format");
  const std::string extension = std::filesystem::path(out).extension();
  if (option == "svg" || (!option && (extension == ".svg" || extension == ".SVG"))) return PictureFormat::svg;
  if (option == "png" || (!option && (extension == ".png" || extension == ".PNG"))) return PictureFormat::png;
  if (option) throw UsageError("--format: '" + *option + "' is neither svg nor png");
  throw UsageError("'" + out + "' ends neither in .svg nor in .png; --format says which it is to be");
}

unsigned pixels(const CommandLine& line, std::string_view option, unsigned low, unsigned fallback) {
  const auto value = line.value(option);
  return value ? whole_number(option, *value, low, kLargest) : fallback;
}

Extent extent_of(RecordingLines& lines, FrameReader& reader) {
  Extent extent;
  Frame frame;
  RecordingLine line;
  while (lines.next(line)) {
    if (!is_usable(line.fault) || line.checked.type != LineType::frame) continue;
    reader.read(line, frame);
    extent.add(frame);
  }
  if (extent.frames == 0) throw std::runtime_error("there is no frame in " + lines.file().path());
  if (extent.joints + extent.pads + extent.units == 0) {
    throw std::runtime_error("the frames in " + lines.file().path() + " have no values");
  }
  return extent;
}

PlotTexts fill(RecordingLines& lines, FrameReader& reader, PlotColumns& columns) {
  PlotTexts texts;
  Frame frame;
  RecordingLine line;
  lines.rewind();
  while (lines.next(line)) {
    if (!is_usable(line.fault)) continue;
    if (line.checked.type == LineType::frame) {
      reader.read(line, frame);
      columns.add(frame);
    } else if (line.checked.type == LineType::marker && texts.markers.size() < kMostMarkers) {
      texts.markers.push_back(
          {line.checked.marker.t - columns.extent().first_t, unquoted(line.checked.marker.name)});
    }
  }
  texts.title = std::filesystem::path(lines.file().path()).filename().native() + ", " +
                std::to_string(columns.extent().frames) + " frames, ";
  detail::append_fixed(texts.title, columns.extent().duration(), 2);
  texts.title += " s";
  return texts;
}

}  // namespace

int plot_command(Words words) {
  constexpr std::array kOptions{
      Option{.name = "--output", .short_name = "-o", .takes_value = true},
      Option{.name = "--format", .takes_value = true},
      Option{.name = "--width", .takes_value = true},
      Option{.name = "--height", .takes_value = true},
      Option{.name = "--force"},
  };
  const CommandLine line(words, kOptions, 1);
  const auto path = line.value("--output");
  if (!path) throw UsageError("--output is missing");
  const PictureFormat format = chosen_format(line, *path);
  const PictureSize size{pixels(line, "--width", kSmallestWidth, PictureSize{}.width),
                         pixels(line, "--height", kSmallestHeight, PictureSize{}.height)};
  RecordingLines lines(line.file(0));
  OutputFile out(*path, line.has("--force"), lines.file().status());
  Gnuplot gnuplot;
  FrameReader reader;
  PlotColumns columns(extent_of(lines, reader), size.width - kLeftMargin - kRightMargin);
  const PlotTexts texts = fill(lines, reader, columns);
  gnuplot.run(plot_script(columns, texts, format, size),
              [&out](std::string_view piece) { out.write(piece); });
  out.finish();
  if (lines.faults() > 0) {
    cli::write_error(std::to_string(lines.faults()) +
                     " lines are damaged (tarsil-recording check tells where)\n");
  }
  return kDone;
}

}  // namespace tarsil::recording_tool
