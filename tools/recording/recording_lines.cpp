// What a line has to be by itself stands in line_check.h; here it is looked at among the others.
#include "tools/recording/recording_lines.h"

#include <algorithm>
#include <stdexcept>

#include "tarsil/recording/line_rules.h"

namespace tarsil::recording_tool {

namespace {

std::string hexadecimal(char c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  return {'0', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
}

/// What stands in the line at `column`.
std::string found_at(std::string_view line, std::size_t column) {
  if (column >= line.size()) return "the end of the line";
  const char c = line[column];
  if (c <= ' ' || c > '~') return "byte " + hexadecimal(c);
  return std::string("'") + c + "'";
}

bool all_zero(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c == '\0'; });
}

void refuse_other_formats(const std::string& path, std::string_view first_line) {
  const bool csv = first_line.starts_with("seq,t,stale") || first_line.starts_with("# marker t=");
  if (!csv && first_line != "{") return;
  throw std::runtime_error(path + " is not in the tsl format, but looks like " +
                           (csv ? "a csv file" : "a json document"));
}

}  // namespace

bool is_usable(Fault fault) {
  return fault == Fault::none || fault == Fault::no_line_feed || fault == Fault::carriage_return ||
         fault == Fault::header_missing;
}

RecordingLines::RecordingLines(const std::string& path) : file_(path) {}

void RecordingLines::rewind() {
  file_.rewind();
  faults_ = 0;
  header_seen_ = header_missed_ = false;
}

bool RecordingLines::next(RecordingLine& line) {
  progress_.show(file_.place(), file_.size());
  TextLine from;
  if (!file_.next(from)) {
    progress_.clear();
    return false;
  }
  if (from.number == 1) refuse_other_formats(file_.path(), from.text);
  judge(from, line);
  if (line.fault == Fault::none) return true;
  ++faults_;
  line.complaint = "line " + std::to_string(from.number) + ", column " +
                   std::to_string(line.checked.column + 1) + ", byte " +
                   std::to_string(from.place + line.checked.column) + ": " + line.complaint;
  return true;
}

/// The line by itself.
void RecordingLines::judge(const TextLine& from, RecordingLine& line) {
  line.fault = Fault::none;
  line.complaint.clear();
  line.text = from.text;
  line.checked = {};
  const bool carriage_return = line.text.ends_with('\r');
  if (carriage_return) line.text.remove_suffix(1);
  const auto blame = [&line](Fault fault, std::string complaint) {
    line.fault = fault;
    line.complaint = std::move(complaint);
  };
  if (from.too_long) return blame(Fault::too_long, "no line is as long as this one");
  if (line.text.empty()) return blame(Fault::empty, "the line is empty");
  line.checked = check_line(line.text);
  if (!line.checked.whole) {
    if (all_zero(line.text)) return blame(Fault::damaged, "the line is nothing but zero bytes");
    const std::string cut = from.ends ? "" : "the recording is cut short: ";
    return blame(Fault::damaged, cut + "expected " + line.checked.expected + ", found " +
                                     found_at(line.text, line.checked.column));
  }
  judge_place(from, line);
  if (line.fault != Fault::none) return;
  line.checked.column = line.text.size();
  if (carriage_return) {
    blame(Fault::carriage_return, "a carriage return before the line feed");
  } else if (!from.ends) {
    blame(Fault::no_line_feed, "the last line lacks its line feed");
  }
}

/// A whole line among the others.
void RecordingLines::judge_place(const TextLine& from, RecordingLine& line) {
  const bool is_header = line.checked.type == LineType::header;
  if (is_header && (header_seen_ || header_missed_)) {
    line.fault = Fault::second_header;
    line.complaint = header_seen_ ? "a second header" : "a header behind other lines";
    return;
  }
  header_seen_ = header_seen_ || is_header;
  if (!header_seen_ && !header_missed_) {
    header_missed_ = true;
    line.fault = Fault::header_missing;
    line.complaint = from.number == 1 ? "the header is missing" : "the header is missing before this line";
  }
}

void FrameReader::read(const RecordingLine& line, Frame& frame) {
  if (!scanner_.scan(line.text, frame)) frame = detail::frame_by_rules(line.text);
  frame.seq = line.checked.frame.seq;
  frame.stale = line.checked.frame.stale;
}

}  // namespace tarsil::recording_tool
