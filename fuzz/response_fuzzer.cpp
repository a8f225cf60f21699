// Arbitrary answers of the certificate service through the two scanners that read them.
// Input: a key, its length (1 byte) before it; then the answer.
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "tarsil/health/certificate.h"

namespace tarsil::fuzz {

namespace {

/// Where the next double quote stands, from `at` on; nothing if there is none.
std::optional<std::size_t> next_quote(const std::string& text, std::size_t at) {
  while (at < text.size()) {
    if (text[at] == '"') return at;
    ++at;
  }
  return std::nullopt;
}

/// Behind the first quoted `key`.
std::optional<std::size_t> behind_key(const std::string& text, const std::string& key) {
  for (std::size_t at = 0; at + key.size() + 2 <= text.size(); ++at) {
    if (text[at] == '"' && text.compare(at + 1, key.size(), key) == 0 && text[at + 1 + key.size()] == '"') {
      return at + key.size() + 2;
    }
  }
  return std::nullopt;
}

std::optional<std::string> plain_value(const std::string& text, const std::string& key) {
  const auto behind = behind_key(text, key);
  if (!behind) return std::nullopt;
  const auto open = next_quote(text, *behind);
  if (!open) return std::nullopt;
  const auto close = next_quote(text, *open + 1);
  if (!close) return std::nullopt;
  return text.substr(*open + 1, *close - *open - 1);
}

std::string plain_string(const std::string& text, const std::string& key) {
  const std::string value = plain_value(text, key).value_or("");
  std::string result;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size() && value[i + 1] == '/') continue;
    result += value[i];
  }
  return result;
}

std::string plain_message(const std::string& text) {
  if (const auto error = plain_value(text, "error")) return *error;
  if (const auto detail = plain_value(text, "detail")) return *detail;
  return text;
}

void check_key(const std::string& text, const std::string& key) {
  const std::string value = json_get_string(text, key);
  require(value == plain_string(text, key), "a value is the one of the plain scanner");
  require(value.size() <= text.size(), "a value is no longer than the text");
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarsil::fuzz;
  Input input(data, size);
  const std::string key = input.text();
  const Bytes bytes = input.rest();
  const std::string text(bytes.begin(), bytes.end());
  check_key(text, key);
  for (const char* known : {"certificate_id", "certificate_url", "issued_at"}) check_key(text, known);
  require(tarsil::extract_error_message(text) == plain_message(text),
          "a reason is the one of the plain scanner");
  return 0;
}
