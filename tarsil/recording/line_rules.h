// How the fields of a recording's line are found. The rules work on the text of the line, not on a parsed
// document: a line that a crash has cut, or that somebody has edited, still gives what stands in it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/core/marker.h"

namespace tarsil::detail {

// Every `line` here is followed by a zero byte in memory. A field is found by its key: the first place where
// the key stands in quotes with a colon behind it.

/// The number of a field; 0 if it is absent or none.
[[nodiscard]] double number_field(std::string_view line, std::string_view key);

/// The text between the next two quotes, as it stands: escapes are not decoded, and an escaped quote ends the
/// text, deliberately. Empty if absent.
[[nodiscard]] std::string string_field(std::string_view line, std::string_view key);

/// The numbers in the field's brackets, up to the first thing that is none. Appends to `values`; nothing if
/// the field or its closing bracket is absent.
void append_float_array_field(std::string_view line, std::string_view key, std::vector<float>& values);

/// The quoted keys and values in the field's braces. Escapes are not decoded; of a repeated key the last
/// value counts.
[[nodiscard]] std::map<std::string, std::string> map_field(std::string_view line, std::string_view key);

/// The objects in the brackets of the field "imu". A vector of fewer than three values counts as zero.
[[nodiscard]] std::vector<ImuSample> imu_field(std::string_view line);

/// What a line of type "frame" says. Deliberately without "stale": what is played back is not live, so not
/// stale.
[[nodiscard]] Frame frame_by_rules(std::string_view line);

/// What a line of type "marker" says.
[[nodiscard]] Marker marker_by_rules(std::string_view line);

}  // namespace tarsil::detail
