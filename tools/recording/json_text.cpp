// What JSON cannot hold is replaced by something that it can.
#include "tools/recording/json_text.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "tarsil/cli/visible_text.h"
#include "tarsil/core/number_text.h"

namespace tarsil::recording_tool {

std::string json_string(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string out = "\"";
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = std::max<std::size_t>(1, cli::multibyte_length(text));
    if (first == '"' || first == '\\') {
      out += '\\';
      out += text.front();
    } else if (first < 0x20 || first == 0x7F) {
      out += "\\u00";
      out += kDigits[first >> 4U];
      out += kDigits[first & 0xFU];
    } else if (first >= 0x80 && length == 1) {
      out += "\\ufffd";
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return out + '"';
}

std::string json_number(double value, int decimals) {
  if (!std::isfinite(value)) return "null";
  std::string out;
  detail::append_fixed(out, value, decimals);
  return out;
}

}  // namespace tarsil::recording_tool
