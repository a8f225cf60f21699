// std::to_chars rounds the exact value half to even as printf does, and knows no locale.
#include "tarsil/core/number_text.h"

#include <array>
#include <charconv>
#include <string_view>

namespace tarsil::detail {

void append_fixed(std::string& out, double value, int decimals, std::size_t width) {
  // The largest double has 309 digits before the point; a sign, the point and the decimals come on top.
  std::array<char, 352> text;
  const auto result =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, decimals);
  append_right_aligned(out, {text.data(), static_cast<std::size_t>(result.ptr - text.data())}, width);
}

void append_integer(std::string& out, std::int64_t value) {
  std::array<char, 24> text;
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  out.append(text.data(), result.ptr);
}

void append_unsigned(std::string& out, std::uint64_t value) {
  std::array<char, 24> text;
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  out.append(text.data(), result.ptr);
}

void append_right_aligned(std::string& out, std::string_view text, std::size_t width) {
  if (text.size() < width) out.append(width - text.size(), ' ');
  out.append(text);
}

}  // namespace tarsil::detail
