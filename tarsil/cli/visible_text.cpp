// Bytes from 0x80 to 0x9f are controls when they stand alone and parts of letters when they stand in UTF-8,
// so UTF-8 is what has to be recognised.
#include "tarsil/cli/visible_text.h"

#include <algorithm>

namespace tarsil::cli {

namespace {

constexpr unsigned char kDelete = 0x7F;
constexpr unsigned char kFirstC1 = 0x80;
constexpr unsigned char kLastC1 = 0x9F;
/// In UTF-8, the C1 controls are this byte and themselves.
constexpr unsigned char kC1Lead = 0xC2;

bool is_c1(unsigned char byte) {
  return byte >= kFirstC1 && byte <= kLastC1;
}

/// Line feeds and tabs move the cursor as any printed line does.
bool is_harmful_c0(unsigned char byte) {
  return (byte < 0x20 && byte != '\n' && byte != '\t') || byte == kDelete;
}

void append_visible(std::string& out, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += "\\x";
    out += kDigits[byte >> 4U];
    out += kDigits[byte & 0xFU];
  }
}

}  // namespace

std::size_t multibyte_length(std::string_view text) {
  const auto at = [&text](std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const auto between = [](unsigned byte, unsigned low, unsigned high) { return byte >= low && byte <= high; };
  const unsigned lead = at(0);
  // The second byte's range leaves out what is longer than it has to be, surrogates, and what is too large.
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (lead == 0xE0) low = 0xA0;
  if (lead == 0xED) high = 0x9F;
  if (lead == 0xF0) low = 0x90;
  if (lead == 0xF4) high = 0x8F;
  if (!between(lead, 0xC2, 0xF4) || !between(at(1), low, high)) return 0;
  if (lead < 0xE0) return 2;
  if (!between(at(2), 0x80, 0xBF)) return 0;
  if (lead < 0xF0) return 3;
  return between(at(3), 0x80, 0xBF) ? 4 : 0;
}

bool may_hold_controls(std::string_view text) {
  return std::ranges::any_of(text, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return is_harmful_c0(byte) || is_c1(byte);
  });
}

std::string visible_text(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t length = std::max<std::size_t>(1, multibyte_length(text));
    const std::string_view character = text.substr(0, length);
    const bool is_control = length == 1 ? is_harmful_c0(first) || is_c1(first)
                                        : first == kC1Lead && is_c1(static_cast<unsigned char>(character[1]));
    if (text.starts_with("\r\n") || !is_control) {
      out += character;
    } else {
      append_visible(out, character);
    }
    text.remove_prefix(length);
  }
  return out;
}

}  // namespace tarsil::cli
