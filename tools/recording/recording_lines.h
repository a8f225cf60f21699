// A recording read line by line with a judgement on each: what it is, and what is wrong with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tarsil/core/frame.h"
#include "tarsil/recording/frame_line.h"
#include "tools/recording/line_check.h"
#include "tools/recording/progress.h"
#include "tools/recording/text_lines.h"

namespace tarsil::recording_tool {

/// What is wrong with a line, and what is lost by it.
enum class Fault {
  none,
  // The line is as good as one without the fault.
  no_line_feed,
  carriage_return,
  header_missing,
  // The line is of no use.
  damaged,
  empty,
  too_long,
  second_header,
};

/// Whether a line with this fault still says what it should.
[[nodiscard]] bool is_usable(Fault fault);

struct RecordingLine {
  /// Without carriage return and line feed; valid until the next one is read.
  std::string_view text;
  /// Its type and parts; whole if the line is usable.
  CheckedLine checked;
  Fault fault = Fault::none;
  /// For a fault: "line 3, column 7, byte 812: expected '.', found ','".
  std::string complaint;
};

class RecordingLines {
 public:
  /// Opens the recording. Throws std::runtime_error.
  explicit RecordingLines(const std::string& path);

  /// The next line; false at the end. Throws std::runtime_error if the file cannot be read or is a recording
  /// in another format, and Interrupted.
  [[nodiscard]] bool next(RecordingLine& line);

  /// Starts again at the front. Throws std::runtime_error if that is not possible.
  void rewind();

  /// How many lines with a fault there have been.
  [[nodiscard]] std::uint64_t faults() const { return faults_; }
  [[nodiscard]] const TextLines& file() const { return file_; }
  [[nodiscard]] Progress& progress() { return progress_; }

 private:
  void judge(const TextLine& from, RecordingLine& line);
  void judge_place(const TextLine& from, RecordingLine& line);

  TextLines file_;
  Progress progress_;
  std::uint64_t faults_ = 0;
  bool header_seen_ = false;
  bool header_missed_ = false;
};

/// The values of usable frame lines, with the number and the mark for stale frames as they stand there.
class FrameReader {
 public:
  void read(const RecordingLine& line, Frame& frame);

 private:
  detail::FrameLineScanner scanner_;
};

}  // namespace tarsil::recording_tool
