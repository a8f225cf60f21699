// tarsil-recording recover
#include <array>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "tarsil/cli/output.h"
#include "tarsil/recording/format.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"
#include "tools/recording/output_file.h"
#include "tools/recording/recording_lines.h"

namespace tarsil::recording_tool {

namespace {

/// Of a recording that is damaged all over, these lines tell how.
constexpr std::uint64_t kMostShown = 20;

/// A header that stands where none may stand still has the metadata.
struct LateHeader {
  std::string text;  // empty if there is none
  bool is(const RecordingLine& line) const { return line.fault == Fault::second_header && line.text == text; }
};

/// The first header of a recording that does not begin with one. What is no file cannot be read twice.
LateHeader late_header(const TextLines& file) {
  if (!S_ISREG(file.status().st_mode)) return {};
  RecordingLines lines(file.path());
  RecordingLine line;
  while (lines.next(line)) {
    if (line.fault == Fault::second_header) return {std::string(line.text)};
  }
  return {};
}

struct Tally {
  std::uint64_t frames = 0;
  std::uint64_t markers = 0;
  std::uint64_t mended = 0;
  std::uint64_t left_out = 0;
  /// The header has no metadata, of which there may have been some.
  bool new_header = false;
};

/// The time of what the new recording begins with stands for the time at which it was opened.
std::string new_header(const std::string& path, const CheckedLine& first) {
  std::string text;
  const double t = first.type == LineType::frame ? first.frame.t : first.marker.t;
  detail::append_tsl_header(text, std::filesystem::path(path).filename().native(), t, {});
  return text;
}

Tally copy_whole_lines(RecordingLines& lines, OutputFile& out, const std::string& out_path) {
  Tally tally;
  bool begun = false;
  LateHeader late;
  RecordingLine line;
  while (lines.next(line)) {
    const bool moved = late.is(line);
    const bool usable = is_usable(line.fault) || moved;
    if (line.fault != Fault::none && lines.faults() <= kMostShown) {
      lines.progress().clear();
      cli::write_error((usable ? "mended    " : "left out  ") + line.complaint + "\n");
    }
    if (!usable) {
      ++tally.left_out;
      continue;
    }
    if (line.fault != Fault::none) ++tally.mended;
    if (moved) {
      late = {};
      continue;
    }
    if (!begun && line.checked.type != LineType::header) {
      late = late_header(lines.file());
      tally.new_header = late.text.empty();
      out.write(tally.new_header ? new_header(out_path, line.checked) : late.text + "\n");
    }
    begun = true;
    if (line.checked.type == LineType::frame) ++tally.frames;
    if (line.checked.type == LineType::marker) ++tally.markers;
    out.write(line.text);
    out.write("\n");
  }
  if (!begun) throw std::runtime_error("no line of " + lines.file().path() + " is whole");
  return tally;
}

std::string summary_of(const Tally& tally, std::uint64_t faults, const std::string& out_path) {
  std::string text;
  if (faults > kMostShown) text += "and " + std::to_string(faults - kMostShown) + " more\n";
  if (tally.new_header) text += "new header, without metadata\n";
  return text + out_path + ": " + std::to_string(tally.frames) + " frames and " +
         std::to_string(tally.markers) + " markers kept, " + std::to_string(tally.mended) +
         " lines mended, " + std::to_string(tally.left_out) + " left out\n";
}

}  // namespace

int recover_command(Words words) {
  constexpr std::array kOptions{Option{.name = "--force"}};
  const CommandLine line(words, kOptions, 2);
  RecordingLines lines(line.file(0));
  OutputFile out(line.file(1), line.has("--force"), lines.file().status());
  const Tally tally = copy_whole_lines(lines, out, line.file(1));
  out.finish();
  cli::write_error(summary_of(tally, lines.faults(), line.file(1)));
  return kDone;
}

}  // namespace tarsil::recording_tool
