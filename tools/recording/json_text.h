// Values for JSON that any parser takes, whatever bytes a recording holds.
#pragma once

#include <string>
#include <string_view>

namespace tarsil::recording_tool {

/// A JSON string. Control characters are escaped; bytes that are no UTF-8 become replacement characters.
[[nodiscard]] std::string json_string(std::string_view text);

/// A JSON number with so many decimals, or null for what is no number.
[[nodiscard]] std::string json_number(double value, int decimals);

}  // namespace tarsil::recording_tool
