// Numbers as text against printf, which is where their form comes from.
#include "tarsil/core/number_text.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <locale>
#include <random>
#include <string>

namespace tarsil::detail {
namespace {

constexpr int kRandomValues = 1'000'000;
constexpr int kMostDecimals = 9;

std::string fixed(double value, int decimals, std::size_t width = 0) {
  std::string text;
  append_fixed(text, value, decimals, width);
  return text;
}

std::string printed(double value, int decimals) {
  std::array<char, 512> text;
  const int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return {text.data(), static_cast<std::size_t>(length)};
}

/// Numbers with a decimal comma and grouped digits.
class CommaNumbers : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

/// Makes it the global locale's way of writing numbers while it lives.
class CommaLocale {
 public:
  CommaLocale() : before_(std::locale::global(std::locale(std::locale::classic(), new CommaNumbers))) {}
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() { std::locale::global(before_); }

 private:
  std::locale before_;
};

TEST(AppendFixed, writes_the_decimals_asked_for) {
  EXPECT_EQ(fixed(3.14159, 0), "3");
  EXPECT_EQ(fixed(3.14159, 1), "3.1");
  EXPECT_EQ(fixed(3.14159, 4), "3.1416");
  EXPECT_EQ(fixed(1700000000.123, 3), "1700000000.123");
  EXPECT_EQ(fixed(0.0, 2), "0.00");
  EXPECT_EQ(fixed(-12.5, 2), "-12.50");
}

TEST(AppendFixed, rounds_the_exact_value_half_to_even) {
  EXPECT_EQ(fixed(0.5, 0), "0");
  EXPECT_EQ(fixed(1.5, 0), "2");
  EXPECT_EQ(fixed(2.5, 0), "2");
  EXPECT_EQ(fixed(0.125, 2), "0.12");
  EXPECT_EQ(fixed(0.375, 2), "0.38");
  EXPECT_EQ(fixed(2.675, 2), "2.67");
  EXPECT_EQ(fixed(0.05, 1), "0.1");
  EXPECT_EQ(fixed(static_cast<double>(0.35F), 1), "0.3");
  EXPECT_EQ(fixed(9.9999, 3), "10.000");
}

TEST(AppendFixed, keeps_the_sign_of_what_rounds_to_zero) {
  EXPECT_EQ(fixed(-0.0, 1), "-0.0");
  EXPECT_EQ(fixed(-0.001, 2), "-0.00");
}

TEST(AppendFixed, writes_what_is_no_number_in_words) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::bit_cast<double>(std::uint64_t{0x7FF8000000000000});
  const double negative_nan = std::bit_cast<double>(std::uint64_t{0xFFF8000000000000});
  EXPECT_EQ(fixed(infinity, 4), "inf");
  EXPECT_EQ(fixed(-infinity, 4), "-inf");
  EXPECT_EQ(fixed(nan, 4), "nan");
  EXPECT_EQ(fixed(negative_nan, 4), "-nan");
}

TEST(AppendFixed, aligns_to_the_right_and_never_cuts) {
  EXPECT_EQ(fixed(1.0, 1, 7), "    1.0");
  EXPECT_EQ(fixed(-1.0, 1, 7), "   -1.0");
  EXPECT_EQ(fixed(12345.6, 1, 7), "12345.6");
  EXPECT_EQ(fixed(123456.7, 1, 7), "123456.7");
  EXPECT_EQ(fixed(std::numeric_limits<double>::infinity(), 1, 7), "    inf");
  EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN(), 2, 4), " nan");
}

TEST(AppendFixed, appends_to_what_is_there) {
  std::string text = "t=";
  append_fixed(text, 1.25, 2, 6);
  append_fixed(text, 2.0, 0);
  EXPECT_EQ(text, "t=  1.252");
}

TEST(AppendFixed, agrees_with_printf_on_edge_values) {
  using Limits = std::numeric_limits<double>;
  using FloatLimits = std::numeric_limits<float>;
  for (const double value : {0.0,
                             1.0,
                             0.1,
                             0.5,
                             1.0 / 3.0,
                             2.0 / 3.0,
                             0.0049999999999999999,
                             0.005,
                             0.0050000000000000001,
                             0.045,
                             99.995,
                             999999.9999999,
                             1e15,
                             9007199254740992.0,
                             9007199254740993.0,
                             1e22,
                             1e23,
                             1e100,
                             1e-5,
                             1e-100,
                             Limits::max(),
                             Limits::min(),
                             Limits::denorm_min(),
                             Limits::epsilon(),
                             Limits::infinity(),
                             Limits::quiet_NaN(),
                             static_cast<double>(FloatLimits::max()),
                             static_cast<double>(FloatLimits::denorm_min()),
                             static_cast<double>(0.1F)}) {
    for (int decimals = 0; decimals <= kMostDecimals; ++decimals) {
      EXPECT_EQ(fixed(value, decimals), printed(value, decimals));
      EXPECT_EQ(fixed(-value, decimals), printed(-value, decimals));
    }
  }
}

TEST(AppendFixed, agrees_with_printf_on_a_million_random_doubles) {
  std::mt19937_64 bits(20240501);
  int different = 0;
  for (int i = 0; i < kRandomValues && different < 10; ++i) {
    const auto value = std::bit_cast<double>(static_cast<std::uint64_t>(bits()));
    const int decimals = i % (kMostDecimals + 1);
    if (fixed(value, decimals) == printed(value, decimals)) continue;
    ++different;
    EXPECT_EQ(fixed(value, decimals), printed(value, decimals)) << decimals << " decimals";
  }
}

TEST(AppendFixed, agrees_with_printf_on_a_million_random_floats) {
  std::mt19937 bits(20240502);
  int different = 0;
  for (int i = 0; i < kRandomValues && different < 10; ++i) {
    const auto value = static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits())));
    const int decimals = i % (kMostDecimals + 1);
    if (fixed(value, decimals) == printed(value, decimals)) continue;
    ++different;
    EXPECT_EQ(fixed(value, decimals), printed(value, decimals)) << decimals << " decimals";
  }
}

TEST(AppendFixed, knows_no_locale) {
  const CommaLocale comma;
  EXPECT_EQ(fixed(1234567.5, 2), "1234567.50");
}

TEST(AppendInteger, writes_plain_decimal) {
  std::string text;
  append_integer(text, 0);
  text += ' ';
  append_integer(text, -42);
  text += ' ';
  append_integer(text, std::numeric_limits<std::int64_t>::max());
  text += ' ';
  append_integer(text, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(text, "0 -42 9223372036854775807 -9223372036854775808");
}

TEST(AppendInteger, knows_no_locale) {
  const CommaLocale comma;
  std::string text;
  append_integer(text, -1234567);
  append_unsigned(text, 7654321);
  EXPECT_EQ(text, "-12345677654321");
}

TEST(AppendUnsigned, never_shows_a_minus_sign) {
  std::string text;
  append_unsigned(text, 0);
  text += ' ';
  append_unsigned(text, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(text, "0 18446744073709551615");
}

TEST(AppendRightAligned, fills_with_blanks_on_the_left) {
  std::string text = "|";
  append_right_aligned(text, "PIP", 8);
  append_right_aligned(text, "", 2);
  append_right_aligned(text, "wider", 3);
  append_right_aligned(text, "fits", 4);
  EXPECT_EQ(text, "|     PIP  widerfits");
}

}  // namespace
}  // namespace tarsil::detail
