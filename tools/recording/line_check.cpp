// A walk from the first byte to the last. It ends where the format does, by an exception that does not leave
// this file: damaged lines are few.
#include "tools/recording/line_check.h"

#include <charconv>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "tarsil/recording/number_reader.h"

namespace tarsil::recording_tool {

namespace {

constexpr int kDecimals = 6;
constexpr int kImuDecimals = 3;

struct Mismatch {
  std::size_t at;
  std::string expected;
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// A place in a line that ends with a zero byte.
class Walk {
 public:
  explicit Walk(std::string_view line) : begin_(line.data()), at_(begin_), end_(begin_ + line.size()) {}

  [[nodiscard]] bool at_end() const { return at_ == end_; }
  [[nodiscard]] const char* at() const { return at_; }
  [[nodiscard]] const char* end() const { return end_; }
  /// Whether the line ends inside `text`.
  [[nodiscard]] bool only_begins(std::string_view text) const {
    return text.starts_with(std::string_view(at_, static_cast<std::size_t>(end_ - at_)));
  }

  [[noreturn]] void refuse(std::string expected) const { refuse_at(at_, std::move(expected)); }
  [[noreturn]] void refuse_at(const char* place, std::string expected) const {
    throw Mismatch{static_cast<std::size_t>(place - begin_), std::move(expected)};
  }

  /// Moves behind `text` if it stands here.
  bool skip(std::string_view text) {
    if (static_cast<std::size_t>(end_ - at_) < text.size() ||
        std::memcmp(at_, text.data(), text.size()) != 0) {
      return false;
    }
    at_ += text.size();
    return true;
  }
  bool skip(char c) {
    if (*at_ != c || at_ == end_) return false;
    ++at_;
    return true;
  }
  void need(std::string_view text) {
    if (skip(text)) return;
    refuse_text(text);
  }

  /// A real number with its decimals; false if it is nan or inf, which count as written.
  bool number(int decimals) {
    const char* p = at_;
    if (*p == '-') ++p;
    const char* const whole = p;
    while (is_digit(*p)) ++p;
    if (p == whole) {
      if (std::strncmp(p, "nan", 3) != 0 && std::strncmp(p, "inf", 3) != 0) refuse_at(p, "a number");
      at_ = p + 3;
      return false;
    }
    if (*whole == '0' && p - whole > 1) refuse_at(whole, "a number without leading zeros");
    if (*p != '.') refuse_at(p, "'.'");
    for (int i = 0; i < decimals; ++i) {
      if (!is_digit(*++p)) refuse_at(p, "a number with " + std::to_string(decimals) + " decimals");
    }
    if (is_digit(*++p)) refuse_at(p, "a number with " + std::to_string(decimals) + " decimals");
    at_ = p;
    return true;
  }

  double time() {
    const char* const text = at_;
    number(kDecimals);
    const char* behind = nullptr;
    return detail::read_double(text, behind);
  }

  std::uint64_t sequence_number() {
    std::uint64_t value = 0;
    const auto [behind, error] = std::from_chars(at_, end_, value);
    if (error == std::errc::result_out_of_range) refuse("a whole number below 2 to the 64");
    if (error != std::errc{}) refuse("a whole number");
    if (*at_ == '0' && behind - at_ > 1) refuse("a number without leading zeros");
    at_ = behind;
    return value;
  }

  /// A text with its quotes.
  std::string_view text() {
    const char* const start = at_;
    need("\"");
    while (true) {
      if (at_ == end_) refuse("the end of the text");
      const char c = *at_;
      if (c == '"') break;
      if (c == '\r' || c == '\t') refuse("an escape in its place");
      if (c == '\\' && (at_ + 1 == end_ || std::strchr("\"\\nrt", at_[1]) == nullptr || at_[1] == '\0')) {
        refuse_at(at_ + 1, R"(one of " \ n r t)");
      }
      at_ += c == '\\' ? 2 : 1;
    }
    ++at_;
    return {start, static_cast<std::size_t>(at_ - start)};
  }

  /// Texts under texts, with their braces.
  std::string_view map() {
    const char* const start = at_;
    need("{");
    if (!skip('}')) {
      std::optional<std::string> previous;
      do {
        const char* const key_place = at_;
        std::string key = unquoted(text());
        if (previous && key <= *previous) refuse_at(key_place, "keys in ascending order");
        previous = std::move(key);
        need(": ");
        text();
      } while (skip(", "));
      need("}");
    }
    return {start, static_cast<std::size_t>(at_ - start)};
  }

 private:
  /// The first byte that differs is where the damage is.
  [[noreturn]] void refuse_text(std::string_view text) const {
    const char* place = at_;
    while (place != end_ && *place == text.front()) {
      ++place;
      text.remove_prefix(1);
    }
    std::string expected(1, '\'');
    expected.append(text).append(1, '\'');
    refuse_at(place, std::move(expected));
  }

  const char* begin_;
  const char* at_;
  const char* end_;
};

/// Numbers in brackets; returns how many are none.
std::size_t check_array(Walk& walk) {
  std::size_t not_numbers = 0;
  walk.need("[");
  if (walk.skip(']')) return 0;
  do {
    if (!walk.number(kDecimals)) ++not_numbers;
  } while (walk.skip(','));
  walk.need("]");
  return not_numbers;
}

std::size_t check_axes(Walk& walk) {
  std::size_t not_numbers = 0;
  for (int i = 0; i < 3; ++i) {
    if (i > 0) walk.need(",");
    if (!walk.number(kImuDecimals)) ++not_numbers;
  }
  return not_numbers;
}

std::size_t check_samples(Walk& walk) {
  std::size_t not_numbers = 0;
  walk.need("[");
  if (walk.skip(']')) return 0;
  do {
    walk.need(R"({"acc":[)");
    not_numbers += check_axes(walk);
    walk.need(R"(],"gyro":[)");
    not_numbers += check_axes(walk);
    walk.need("]}");
  } while (walk.skip(','));
  walk.need("]");
  return not_numbers;
}

HeaderParts check_header(Walk& walk) {
  HeaderParts parts;
  walk.need(R"(,"version":1,"sdk":)");
  parts.sdk = walk.text();
  walk.need(R"(,"format":"tsl","file":)");
  walk.text();
  walk.need(R"(,"t_created":)");
  const char* const created = walk.at();
  walk.number(kDecimals);
  parts.t_created = {created, static_cast<std::size_t>(walk.at() - created)};
  walk.need(R"(,"metadata":)");
  parts.metadata = walk.map();
  walk.need("}");
  return parts;
}

FrameParts check_frame(Walk& walk) {
  FrameParts parts;
  walk.need(R"(,"seq":)");
  parts.seq = walk.sequence_number();
  walk.need(R"(,"t":)");
  parts.t = walk.time();
  walk.need(R"(,"q":)");
  parts.not_numbers += check_array(walk);
  walk.need(R"(,"touch":)");
  parts.not_numbers += check_array(walk);
  walk.need(R"(,"imu":)");
  parts.not_numbers += check_samples(walk);
  walk.need(R"(,"stale":)");
  parts.stale = walk.skip("true}");
  if (!parts.stale) walk.need("false}");
  return parts;
}

MarkerParts check_marker(Walk& walk) {
  MarkerParts parts;
  walk.need(R"(,"t":)");
  parts.t = walk.time();
  walk.need(R"(,"name":)");
  parts.name = walk.text();
  walk.need(R"(,"data":)");
  parts.data = walk.map();
  walk.need("}");
  return parts;
}

void check_rest(Walk& walk, CheckedLine& checked) {
  walk.need(R"({"type":)");
  if (walk.skip(R"("header")")) {
    checked.type = LineType::header;
    checked.header = check_header(walk);
  } else if (walk.skip(R"("frame")")) {
    checked.type = LineType::frame;
    checked.frame = check_frame(walk);
  } else if (walk.skip(R"("marker")")) {
    checked.type = LineType::marker;
    checked.marker = check_marker(walk);
  } else {
    const bool cut =
        walk.only_begins(R"("header")") || walk.only_begins(R"("frame")") || walk.only_begins(R"("marker")");
    walk.refuse_at(cut ? walk.end() : walk.at(), R"("header", "frame" or "marker")");
  }
  if (!walk.at_end()) walk.refuse("the end of the line");
}

}  // namespace

CheckedLine check_line(std::string_view line) {
  CheckedLine checked;
  Walk walk(line);
  try {
    check_rest(walk, checked);
    checked.whole = true;
  } catch (const Mismatch& mismatch) {
    checked.column = mismatch.at;
    checked.expected = mismatch.expected;
  }
  return checked;
}

std::string unquoted(std::string_view quoted) {
  std::string text;
  for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
    char c = quoted[i];
    if (c == '\\') {
      c = quoted[++i];
      if (c == 'n') c = '\n';
      if (c == 'r') c = '\r';
      if (c == 't') c = '\t';
    }
    text += c;
  }
  return text;
}

}  // namespace tarsil::recording_tool
