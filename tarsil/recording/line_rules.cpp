// Searches and bracket counting.
#include "tarsil/recording/line_rules.h"

#include <algorithm>
#include <cstddef>

#include "tarsil/recording/number_reader.h"

namespace tarsil::detail {

namespace {

constexpr std::size_t kAbsent = std::string_view::npos;

/// Where the field's value begins: right behind the colon.
std::size_t find_field(std::string_view line, std::string_view key) {
  std::string quoted;
  quoted.reserve(key.size() + 3);
  quoted += '"';
  quoted += key;
  quoted += "\":";
  const std::size_t found = line.find(quoted);
  return found == kAbsent ? kAbsent : found + quoted.size();
}

/// A bracketed stretch of a line.
struct Span {
  /// Behind the opening bracket.
  std::size_t begin = 0;
  /// At the closing one.
  std::size_t end = 0;
};

/// The stretch between the next `open` from `start` on and the `close` that matches it, nested ones counted.
std::optional<Span> find_span(std::string_view text, std::size_t start, char open, char close) {
  const std::size_t begin = text.find(open, start);
  if (begin == kAbsent) return std::nullopt;
  int depth = 0;
  for (std::size_t i = begin; i < text.size(); ++i) {
    if (text[i] == open) ++depth;
    if (text[i] == close && --depth == 0) return Span{begin + 1, i};
  }
  return std::nullopt;
}

std::optional<Span> field_span(std::string_view line, std::string_view key, char open, char close) {
  const std::size_t start = find_field(line, key);
  if (start == kAbsent) return std::nullopt;
  return find_span(line, start, open, close);
}

void append_floats(std::string_view text, std::vector<float>& values) {
  const char* p = text.data();
  const char* const end = p + text.size();
  while (true) {
    while (p != end && (*p == ' ' || *p == ',')) ++p;
    if (p == end || *p == '[' || *p == '{') return;
    const char* behind = nullptr;
    const float value = read_float(p, behind);
    if (behind == p) return;
    values.push_back(value);
    p = behind;
  }
}

/// The vector of an inertial sample that stands under `key`.
std::array<float, 3> axes(std::string_view object, std::string_view key) {
  std::vector<float> values;
  append_float_array_field(object, key, values);
  if (values.size() < 3) return {};
  return {values[0], values[1], values[2]};
}

}  // namespace

double number_field(std::string_view line, std::string_view key) {
  const std::size_t start = find_field(line, key);
  if (start == kAbsent) return 0.0;
  const char* end = nullptr;
  return read_double(line.data() + start, end);
}

std::string string_field(std::string_view line, std::string_view key) {
  const std::size_t start = find_field(line, key);
  if (start == kAbsent) return {};
  const std::size_t open = line.find('"', start);
  if (open == kAbsent) return {};
  const std::size_t close = line.find('"', open + 1);
  if (close == kAbsent) return {};
  return std::string(line.substr(open + 1, close - open - 1));
}

void append_float_array_field(std::string_view line, std::string_view key, std::vector<float>& values) {
  if (const auto span = field_span(line, key, '[', ']')) {
    append_floats(line.substr(span->begin, span->end - span->begin), values);
  }
}

std::map<std::string, std::string> map_field(std::string_view line, std::string_view key) {
  std::map<std::string, std::string> map;
  const auto span = field_span(line, key, '{', '}');
  if (!span) return map;
  const std::string_view text = line.substr(span->begin, span->end - span->begin);
  for (std::size_t from = 0;;) {
    const std::size_t key_open = text.find('"', from);
    if (key_open == kAbsent) return map;
    const std::size_t key_close = text.find('"', key_open + 1);
    if (key_close == kAbsent) return map;
    const std::size_t value_open = text.find('"', key_close + 2);  // past the colon
    if (value_open == kAbsent) return map;
    const std::size_t value_close = text.find('"', value_open + 1);
    if (value_close == kAbsent) return map;
    map[std::string(text.substr(key_open + 1, key_close - key_open - 1))] =
        text.substr(value_open + 1, value_close - value_open - 1);
    from = value_close + 1;
  }
}

std::vector<ImuSample> imu_field(std::string_view line) {
  std::vector<ImuSample> samples;
  const auto array = field_span(line, "imu", '[', ']');
  if (!array) return samples;
  const std::string_view text = line.substr(array->begin, array->end - array->begin);
  for (auto object = find_span(text, 0, '{', '}'); object;
       object = find_span(text, object->end + 1, '{', '}')) {
    const std::string_view members = text.substr(object->begin, object->end - object->begin);
    samples.push_back({axes(members, "acc"), axes(members, "gyro")});
  }
  return samples;
}

Frame frame_by_rules(std::string_view line) {
  Frame frame;
  frame.seq = sequence_number(number_field(line, "seq"));
  frame.t = number_field(line, "t");
  append_float_array_field(line, "q", frame.q);
  append_float_array_field(line, "touch", frame.touch);
  frame.imu = imu_field(line);
  return frame;
}

Marker marker_by_rules(std::string_view line) {
  return {number_field(line, "t"), string_field(line, "name"), map_field(line, "data")};
}

}  // namespace tarsil::detail
