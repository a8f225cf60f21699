// One line of a recording, held to the format byte by byte.
//
// A playback takes from a line what it finds. This asks whether the line is the one that the recorder would
// have written: every key in its place, every number with its decimals, every text closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarsil::recording_tool {

enum class LineType { header, frame, marker, unknown };

/// Parts of a line that stand in it as they are. Views into the line.
struct HeaderParts {
  std::string_view sdk;        // with its quotes
  std::string_view t_created;  // as a number's text
  std::string_view metadata;   // with its braces
};

struct FrameParts {
  std::uint64_t seq = 0;
  double t = 0.0;
  bool stale = false;
  /// How many values are no numbers: nan or inf.
  std::size_t not_numbers = 0;
};

struct MarkerParts {
  double t = 0.0;
  std::string_view name;  // with its quotes
  std::string_view data;  // with its braces
};

/// What a line is, or where it ceases to be that.
struct CheckedLine {
  /// What it begins as.
  LineType type = LineType::unknown;
  bool whole = false;
  /// If it is not whole: the first byte that is wrong, and what was expected there.
  std::size_t column = 0;
  std::string expected;
  // If it is whole, the one that fits the type.
  HeaderParts header;
  FrameParts frame;
  MarkerParts marker;
};

/// Checks `line`, which a zero byte follows in memory.
[[nodiscard]] CheckedLine check_line(std::string_view line);

/// The text that a quoted one means.
[[nodiscard]] std::string unquoted(std::string_view quoted);

}  // namespace tarsil::recording_tool
