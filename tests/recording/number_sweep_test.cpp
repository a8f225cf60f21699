// Numbers written and read against the C library, on as many random bit patterns as a minute allows.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "tarsil/recording/decimal_text.h"
#include "tarsil/recording/number_reader.h"

namespace tarsil::detail {
namespace {

constexpr int kPatterns = TARSIL_RANDOM_PATTERNS;

using Text = std::array<char, 512>;

bool reads_as_double(const char* text) {
  char* expected_end = nullptr;
  const double expected = std::strtod(text, &expected_end);
  const char* end = nullptr;
  const double value = read_double(text, end);
  return end == expected_end && std::bit_cast<std::uint64_t>(value) == std::bit_cast<std::uint64_t>(expected);
}

bool reads_as_float(const char* text) {
  char* expected_end = nullptr;
  const float expected = std::strtof(text, &expected_end);
  const char* end = nullptr;
  const float value = read_float(text, end);
  return end == expected_end && std::bit_cast<std::uint32_t>(value) == std::bit_cast<std::uint32_t>(expected);
}

/// Whether a float is written as printf writes it; leaves the text in `text`.
template <int kDecimals>
bool float_as_printf(float value, Text& text) {
  std::array<char, DecimalBatch<kDecimals>::kTextSize> written;
  const char* const comma = DecimalBatch<kDecimals>({&value, 1}).write(written.data(), 0, 1) - 1;
  const int length = std::snprintf(text.data(), text.size(), "%.*f", kDecimals, static_cast<double>(value));
  return *comma == ',' && std::string_view(written.data(), comma) ==
                              std::string_view(text.data(), static_cast<std::size_t>(length));
}

/// The same of a time.
bool time_as_printf(double value, Text& text) {
  static std::string written;
  written.clear();
  append_time(written, value);
  const int length = std::snprintf(text.data(), text.size(), "%.6f", value);
  return written == std::string_view(text.data(), static_cast<std::size_t>(length));
}

TEST(NumberSweep, floats_of_any_bits_are_written_as_printf_does_and_read_as_strtof_does) {
  std::mt19937 bits(101);
  Text text;
  for (int i = 0; i < kPatterns; ++i) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(bits()));
    ASSERT_TRUE(float_as_printf<3>(value, text)) << text.data();
    ASSERT_TRUE(reads_as_float(text.data())) << text.data();
    ASSERT_TRUE(float_as_printf<6>(value, text)) << text.data();
    ASSERT_TRUE(reads_as_float(text.data())) << text.data();
  }
}

TEST(NumberSweep, doubles_of_any_bits_are_written_as_printf_does_and_read_as_strtod_does) {
  std::mt19937_64 bits(102);
  Text text;
  for (int i = 0; i < kPatterns; ++i) {
    const auto value = std::bit_cast<double>(static_cast<std::uint64_t>(bits()));
    ASSERT_TRUE(time_as_printf(value, text)) << text.data();
    ASSERT_TRUE(reads_as_double(text.data())) << text.data();
  }
}

/// Beyond these magnitudes there is nothing behind the point, or nothing before it that the decimals show.
TEST(NumberSweep, doubles_with_a_fraction_are_written_as_printf_does_and_read_as_strtod_does) {
  std::mt19937_64 bits(103);
  Text text;
  for (int i = 0; i < kPatterns; ++i) {
    const std::uint64_t exponent = 1023 - 24 + bits() % 80;
    const std::uint64_t pattern = (bits() & 0x800FFFFFFFFFFFFF) | exponent << 52;
    ASSERT_TRUE(time_as_printf(std::bit_cast<double>(pattern), text)) << text.data();
    ASSERT_TRUE(reads_as_double(text.data())) << text.data();
    ASSERT_TRUE(reads_as_float(text.data())) << text.data();
  }
}

TEST(NumberSweep, times_and_angles_are_written_as_printf_does_and_read_as_strtod_does) {
  std::mt19937_64 random(104);
  std::uniform_real_distribution<double> time(1.6e9, 1.8e9);
  std::uniform_real_distribution<float> angle(-4.0F, 4.0F);
  Text text;
  for (int i = 0; i < kPatterns / 4; ++i) {
    ASSERT_TRUE(time_as_printf(time(random), text)) << text.data();
    ASSERT_TRUE(reads_as_double(text.data())) << text.data();
    const float value = angle(random);
    ASSERT_TRUE(float_as_printf<6>(value, text)) << text.data();
    ASSERT_TRUE(reads_as_float(text.data())) << text.data();
  }
}

/// Digits with a point somewhere among them, an exponent behind some: what the recorder never writes, but an
/// editor might.
TEST(NumberSweep, decimals_of_any_length_are_read_as_the_c_library_does) {
  std::mt19937_64 random(105);
  Text text;
  for (int i = 0; i < kPatterns / 4; ++i) {
    std::uint64_t digits = random();
    const std::size_t length = 1 + digits % 19;
    digits /= 19;
    std::size_t at = 0;
    if (random() % 2 == 0) text[at++] = '-';
    const std::size_t point = random() % (length + 1);
    for (std::size_t n = 0; n < length; ++n) {
      if (n == point) text[at++] = '.';
      text[at++] = static_cast<char>('0' + digits % 10);
      digits /= 10;
    }
    text[at] = '\0';
    if (i % 8 == 0) {
      std::snprintf(text.data() + at, 8, "e%d", static_cast<int>(random() % 100) - 50);
    }
    ASSERT_TRUE(reads_as_double(text.data())) << text.data();
    ASSERT_TRUE(reads_as_float(text.data())) << text.data();
  }
}

}  // namespace
}  // namespace tarsil::detail
