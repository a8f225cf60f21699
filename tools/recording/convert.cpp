// tarsil-recording convert
//
// A json document holds the lines of tsl without their type, so their text is copied. In csv, values are
// written anew: there inertial values have other decimals.
#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tarsil/cli/output.h"
#include "tarsil/core/marker.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"
#include "tools/recording/output_file.h"
#include "tools/recording/recording_lines.h"

namespace tarsil::recording_tool {

namespace {

struct Tally {
  std::uint64_t frames = 0;
  std::uint64_t markers = 0;
};

/// The next line of a recording that has to be whole.
bool next_whole(RecordingLines& lines, RecordingLine& line) {
  if (!lines.next(line)) return false;
  if (line.fault == Fault::none) return true;
  throw DamagedRecording(lines.file().path() + ": " + line.complaint +
                         "\ntarsil-recording recover keeps what is whole");
}

Recorder::Format chosen_format(const CommandLine& line) {
  const std::string& out = line.file(1);
  const auto option = line.value("--format");
  const Recorder::Format by_name = recording_format_for(out);
  if (option == "csv" || (!option && by_name == Recorder::Format::csv)) return Recorder::Format::csv;
  if (option == "json" || (!option && by_name == Recorder::Format::json)) return Recorder::Format::json;
  if (option) throw UsageError("--format: '" + *option + "' is neither csv nor json");
  throw UsageError("'" + out + "' ends neither in .csv nor in .json; --format says which it is to be");
}

[[noreturn]] void refuse_empty(const RecordingLines& lines) {
  throw DamagedRecording(lines.file().path() + ": the file is empty");
}

Tally convert_to_csv(RecordingLines& lines, OutputFile& out) {
  Tally tally;
  bool empty = true;
  FrameReader reader;
  Frame frame;
  RecordingLine line;
  std::string text;
  while (next_whole(lines, line)) {
    empty = false;
    text.clear();
    if (line.checked.type == LineType::frame) {
      reader.read(line, frame);
      if (tally.frames == 0) detail::append_csv_heading(text, frame);
      detail::append_csv_row(text, frame);
      ++tally.frames;
    } else if (line.checked.type == LineType::marker) {
      detail::append_csv_marker(text, {line.checked.marker.t, unquoted(line.checked.marker.name), {}});
      ++tally.markers;
    }
    out.write(text);
  }
  if (empty) refuse_empty(lines);
  return tally;
}

/// The object of a line without its type.
std::string_view members_of(const RecordingLine& line) {
  // {"type":"frame","seq":... and {"type":"marker","t":...: what is to come begins at the fifth quote.
  std::size_t quote = 0;
  for (int i = 0; i < 4; ++i) quote = line.text.find('"', quote + 1);
  return line.text.substr(line.text.find('"', quote + 1));
}

/// Everything before the frames, of which there are `frames`.
void write_head(OutputFile& out, const HeaderParts& header, std::uint64_t frames) {
  out.write("{\n  \"version\": 1,\n  \"sdk\": ");
  out.write(header.sdk);
  out.write(",\n  \"format\": \"json\",\n  \"t_created\": ");
  out.write(header.t_created);
  out.write(",\n  \"metadata\": ");
  out.write(header.metadata);
  out.write(",\n  \"frame_count\": " + std::to_string(frames) + ",\n  \"frames\": [\n");
}

/// Writes `count` lines of a type as the elements of an array, one a line.
void write_elements(RecordingLines& lines, OutputFile& out, LineType type, std::uint64_t count) {
  lines.rewind();
  RecordingLine line;
  for (std::uint64_t written = 0; written < count;) {
    if (!next_whole(lines, line)) {
      throw std::runtime_error(lines.file().path() + " has become shorter in the meantime");
    }
    if (line.checked.type != type) continue;
    out.write("    {");
    out.write(members_of(line));
    out.write(++written < count ? ",\n" : "\n");
  }
}

/// The number of frames comes before them, and markers behind: the file is read once for each.
Tally convert_to_json(RecordingLines& lines, OutputFile& out) {
  Tally tally;
  RecordingLine line;
  while (next_whole(lines, line)) {
    if (line.checked.type == LineType::frame) ++tally.frames;
    if (line.checked.type == LineType::marker) ++tally.markers;
  }
  lines.rewind();
  if (!next_whole(lines, line)) refuse_empty(lines);
  write_head(out, line.checked.header, tally.frames);
  write_elements(lines, out, LineType::frame, tally.frames);
  out.write("  ],\n  \"markers\": [\n");
  write_elements(lines, out, LineType::marker, tally.markers);
  out.write("  ]\n}\n");
  return tally;
}

}  // namespace

int convert_command(Words words) {
  constexpr std::array kOptions{Option{.name = "--format", .takes_value = true}, Option{.name = "--force"}};
  const CommandLine line(words, kOptions, 2);
  const Recorder::Format format = chosen_format(line);
  RecordingLines lines(line.file(0));
  OutputFile out(line.file(1), line.has("--force"), lines.file().status());
  const Tally tally =
      format == Recorder::Format::csv ? convert_to_csv(lines, out) : convert_to_json(lines, out);
  out.finish();
  // The last pass need not have come to the end of the file.
  lines.progress().clear();
  cli::write_error(line.file(1) + ": " + std::to_string(tally.frames) + " frames, " +
                   std::to_string(tally.markers) + " markers\n");
  return kDone;
}

}  // namespace tarsil::recording_tool
