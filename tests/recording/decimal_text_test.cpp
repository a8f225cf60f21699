// The digits of recorded numbers against printf's, above all where rounding is close.
#include "tarsil/recording/decimal_text.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tests/recording/samples.h"

namespace tarsil::detail {
namespace {

template <int kDecimals>
std::string written(std::span<const float> values) {
  using Batch = DecimalBatch<kDecimals>;
  std::array<char, Batch::kCapacity * Batch::kTextSize> text;
  return {text.data(), Batch(values).write(text.data(), 0, values.size())};
}

template <int kDecimals>
std::string written(float value) {
  return written<kDecimals>({&value, 1});
}

std::string time_text(double seconds) {
  std::string text;
  append_time(text, seconds);
  return text;
}

TEST(DecimalBatch, writes_a_comma_behind_each_value) {
  const std::array<float, 3> values{0.25F, -12.0F, 999.5F};
  EXPECT_EQ(written<6>(values), "0.250000,-12.000000,999.500000,");
  EXPECT_EQ(written<3>(values), "0.250,-12.000,999.500,");
}

TEST(DecimalBatch, writes_the_values_asked_for) {
  const std::array<float, 4> values{1.0F, 2.0F, 3.0F, 4.0F};
  const DecimalBatch<3> batch(values);
  std::array<char, 200> text;
  EXPECT_EQ(std::string(text.data(), batch.write(text.data(), 1, 2)), "2.000,3.000,");
}

TEST(DecimalBatch, keeps_the_sign_of_what_rounds_to_zero) {
  EXPECT_EQ(written<6>(0.0F), "0.000000,");
  EXPECT_EQ(written<6>(-0.0F), "-0.000000,");
  EXPECT_EQ(written<3>(-1e-30F), "-0.000,");
}

TEST(DecimalBatch, rounds_a_half_to_the_even_digit) {
  // Halves of a thousandth that a float holds exactly.
  EXPECT_EQ(written<3>(0.0625F), "0.062,");
  EXPECT_EQ(written<3>(0.1875F), "0.188,");
  EXPECT_EQ(written<3>(-0.3125F), "-0.312,");
  // Halves of a millionth.
  EXPECT_EQ(written<6>(0.0078125F), "0.007812,");
  EXPECT_EQ(written<6>(0.0234375F), "0.023438,");
}

TEST(DecimalBatch, carries_into_the_digits_before_the_point) {
  EXPECT_EQ(written<3>(0.9996F), "1.000,");
  EXPECT_EQ(written<3>(9.9996F), "10.000,");
  EXPECT_EQ(written<3>(99.9996F), "100.000,");
  EXPECT_EQ(written<3>(999.9996F), "1000.000,");
}

TEST(DecimalBatch, writes_what_is_large_or_no_number_as_printf_does) {
  const std::array<float, 8> values{999.0F,
                                    1000.0F,
                                    -1e9F,
                                    std::numeric_limits<float>::max(),
                                    0.5F,
                                    std::numeric_limits<float>::infinity(),
                                    -std::numeric_limits<float>::infinity(),
                                    std::numeric_limits<float>::quiet_NaN()};
  EXPECT_EQ(
      written<3>(values),
      "999.000,1000.000,-1000000000.000,340282346638528859811704183484516925440.000,0.500,inf,-inf,nan,");
}

TEST(DecimalBatch, writes_what_printf_writes_around_every_half) {
  // The floats next to each odd multiple of half a unit of the last decimal.
  for (int half = 1; half < 200'000; half += 2) {
    for (const double unit : {0.5e-6, 0.5e-3}) {
      const auto near = static_cast<float>(half * unit);
      for (const float value : {std::nextafter(near, 0.0F), near, std::nextafter(near, 1e3F)}) {
        ASSERT_EQ(written<6>(value), test::printed(static_cast<double>(value), 6) + ',');
        ASSERT_EQ(written<3>(-value), test::printed(static_cast<double>(-value), 3) + ',');
      }
    }
  }
}

TEST(Time, has_six_decimals) {
  EXPECT_EQ(time_text(1763231343.25), "1763231343.250000");
  EXPECT_EQ(time_text(0.5), "0.500000");
  EXPECT_EQ(time_text(-0.0), "-0.000000");
}

TEST(Time, carries_into_the_seconds) {
  EXPECT_EQ(time_text(std::nextafter(1763231344.0, 0.0)), "1763231344.000000");
  EXPECT_EQ(time_text(std::nextafter(8192.0, 0.0)), "8192.000000");
}

TEST(Time, rounds_a_half_to_the_even_digit) {
  EXPECT_EQ(time_text(8192.0078125), "8192.007812");
  EXPECT_EQ(time_text(8193.0234375), "8193.023438");
}

TEST(Time, is_what_printf_writes_at_the_limits_of_the_quick_way) {
  for (const double seconds :
       {8192.0, 1e15, 999'999'999'999'999.9, 4503599627370496.5, -1763231343.25, 1e300,
        std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    for (const double value : {std::nextafter(seconds, 0.0), seconds, std::nextafter(seconds, 1e308)}) {
      EXPECT_EQ(time_text(value), test::printed(value, 6));
    }
  }
}

}  // namespace
}  // namespace tarsil::detail
