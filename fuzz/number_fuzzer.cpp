// Numbers read and written, alone and in the lines of a recording, against the C library in its classic
// locale. Input: what to do (1 byte, modulo 3), then a text to read, bits to write, or the bits of a frame.
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include <locale.h>

#include "fuzz/input.h"
#include "tarsil/core/number_text.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/frame_line.h"
#include "tarsil/recording/line_rules.h"
#include "tarsil/recording/number_reader.h"
#include "tests/recording/samples.h"

namespace tarsil::fuzz {

namespace {

locale_t classic_locale() {
  static const locale_t kLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return kLocale;
}

void check_sequence_number(double value) {
  constexpr double kTooLarge = 18446744073709551616.0;
  const std::uint64_t number = detail::sequence_number(value);
  if (std::isnan(value) || value < 1.0) return require(number == 0, "no number is number 0");
  if (value >= kTooLarge) {
    return require(number == std::numeric_limits<std::uint64_t>::max(), "too large a number is the largest");
  }
  require(static_cast<double>(number) == std::trunc(value), "a number loses its fraction");
}

/// `text` ends with a zero byte and begins anywhere.
void check_reading(const char* text) {
  char* expected_end = nullptr;
  const double expected = strtod_l(text, &expected_end, classic_locale());
  const char* end = nullptr;
  const double value = detail::read_double(text, end);
  require(end == expected_end, "a double ends where strtod says");
  require(std::bit_cast<std::uint64_t>(value) == std::bit_cast<std::uint64_t>(expected),
          "a double has the bits that strtod gives");
  check_sequence_number(value);

  const float expected_float = strtof_l(text, &expected_end, classic_locale());
  const float float_value = detail::read_float(text, end);
  require(end == expected_end, "a float ends where strtof says");
  require(std::bit_cast<std::uint32_t>(float_value) == std::bit_cast<std::uint32_t>(expected_float),
          "a float has the bits that strtof gives");
}

/// Reads the numbers of a text: at its first byte, and behind each one that was read or was none.
void check_text(Bytes bytes) {
  std::vector<char> text(bytes.begin(), bytes.end());
  text.push_back('\0');
  text.shrink_to_fit();  // so that a read behind the end is noticed
  for (std::size_t at = 0; at < text.size();) {
    check_reading(text.data() + at);
    char* end = nullptr;
    static_cast<void>(strtod_l(text.data() + at, &end, classic_locale()));
    at = std::max(static_cast<std::size_t>(end - text.data()), at + 1);
  }
}

/// Writes `value` in every way that the system writes numbers in, and reads it again.
void check_writing(double value) {
  struct Way {
    int decimals;
    std::size_t width;
  };
  // Files: 6 and 3. Tables: 1 in 7, 10 and 12 columns, 2 in 4. Rows and lines of the tool: the rest.
  constexpr std::array<Way, 11> kWays{
      {{6, 0}, {3, 0}, {1, 7}, {1, 10}, {1, 12}, {2, 4}, {2, 0}, {4, 0}, {4, 9}, {4, 16}, {0, 0}}};
  std::array<char, 512> expected;
  for (const Way& way : kWays) {
    std::string written;
    detail::append_fixed(written, value, way.decimals, way.width);
    std::snprintf(expected.data(), expected.size(), "%*.*f", static_cast<int>(way.width), way.decimals,
                  value);
    require(written == expected.data(), "a real is written as printf writes it");
    if (way.width == 0) check_reading(written.c_str());
  }
}

void check_integer(std::uint64_t bits) {
  std::array<char, 32> expected;
  std::string written;
  detail::append_unsigned(written, bits);
  std::snprintf(expected.data(), expected.size(), "%llu", static_cast<unsigned long long>(bits));
  require(written == expected.data(), "an unsigned number is written as printf writes it");
  written.clear();
  detail::append_integer(written, static_cast<std::int64_t>(bits));
  std::snprintf(expected.data(), expected.size(), "%lld", static_cast<long long>(bits));
  require(written == expected.data(), "an integer is written as printf writes it");
}

/// Any bits; fractions of two, where rounding meets ties; and decimals, where it comes close to them.
void check_bits(Input& input) {
  while (!input.empty()) {
    const auto bits = input.number<std::uint64_t>();
    check_integer(bits);
    check_writing(std::bit_cast<double>(bits));
    check_writing(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits))));
    const auto digits = static_cast<double>(static_cast<std::int64_t>(bits) >> 16);
    check_writing(std::ldexp(digits, -static_cast<int>(bits % 64)));
    check_writing(digits / std::pow(10.0, static_cast<double>(bits % 16)));
  }
}

Frame take_frame(Input& input) {
  Frame frame;
  frame.stale = input.byte() % 2 != 0;
  frame.q.resize(input.byte() % 32);
  frame.touch.resize(input.byte() % 32);
  frame.imu.resize(input.byte() % 8);
  frame.seq = input.number<std::uint64_t>();
  frame.t = input.number<double>();
  for (float& value : frame.q) value = input.number<float>();
  for (float& value : frame.touch) value = input.number<float>();
  for (ImuSample& sample : frame.imu) {
    for (float& value : sample.acc) value = input.number<float>();
    for (float& value : sample.gyro) value = input.number<float>();
  }
  return frame;
}

std::string printed_csv_row(const Frame& frame) {
  std::string row = std::to_string(frame.seq) + "," + test::printed(frame.t, 6) + (frame.stale ? ",1" : ",0");
  const auto append = [&row](float value) { row += "," + test::printed(static_cast<double>(value), 6); };
  for (const float value : frame.q) append(value);
  for (const float value : frame.touch) append(value);
  for (const ImuSample& sample : frame.imu) {
    for (const float value : sample.acc) append(value);
    for (const float value : sample.gyro) append(value);
  }
  return row + "\n";
}

/// A frame's line in each of the formats, and back.
void check_line(const Frame& frame) {
  std::string line;
  detail::append_tsl_frame(line, frame);
  const std::string expected = test::printed_tsl_line(frame);
  require(line == expected, "a tsl line is what printf makes of it");

  std::string row;
  detail::append_csv_row(row, frame);
  require(row == printed_csv_row(frame), "a csv row is what printf makes of it");

  std::string document;
  detail::append_json_document(document, frame.t, {}, {frame, frame}, {});
  const std::string object = "    {" + expected.substr(std::string_view(R"({"type":"frame",)").size());
  const std::string both = object.substr(0, object.size() - 1) + ",\n" + object;
  require(document.find("  \"frames\": [\n" + both + "  ],\n") != std::string::npos,
          "a json document holds the frames of tsl lines without their type");

  line.pop_back();
  Frame scanned;
  detail::FrameLineScanner scanner;
  if (scanner.scan(line, scanned)) {
    require(test::same_bits(scanned, detail::frame_by_rules(line)), "the scanner gives what the rules give");
  }
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarsil::fuzz;
  Input input(data, size);
  switch (input.byte() % 3) {
    case 0:
      check_text(input.rest());
      break;
    case 1:
      check_bits(input);
      break;
    default:
      check_line(take_frame(input));
      break;
  }
  return 0;
}
