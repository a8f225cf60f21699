// Numbers out of text against strtod and strtof.
#include "tarsil/recording/number_reader.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/recording/samples.h"

namespace tarsil::detail {
namespace {

constexpr int kRandomTexts = 300'000;

/// Texts where a reader of numbers may go wrong: what begins a number, what ends it, and where a fast way and
/// an exact one part.
const std::vector<std::string>& odd_texts() {
  static const std::vector<std::string> texts{
      "",
      " ",
      "-",
      "+",
      ".",
      "-.",
      "+.",
      "e",
      "e5",
      "-e5",
      ".e5",
      ",",
      "]",
      "x",
      "--1",
      "+-1",
      "- 1",
      "0",
      "-0",
      "+0",
      "0.",
      "-0.",
      ".0",
      "-.0",
      "00",
      "007",
      "-007.50",
      "0.0",
      "-0.000000",
      "1",
      "-1",
      "+1",
      "1.",
      "1.,",
      ".5",
      "-.5",
      "+.5",
      "1.5.5",
      "1..5",
      "1-1",
      "1 2",
      "1,2",
      "1]",
      "1}",
      " 1",
      "  -1.5",
      "\t2",
      "\n3",
      "\r4",
      "\v5",
      "\f6",
      " \t\n\r\v\f7",
      "\xC2\xA0"
      "8",
      "1e5",
      "1E5",
      "1e+5",
      "1e-5",
      "1e",
      "1e+",
      "1e-",
      "1ex",
      "1.e5",
      "1.5e3]",
      "1.5e3e3",
      "1e05",
      "1e5.5",
      "0x",
      "0X",
      "0x1",
      "0X1F",
      "0x1p3",
      "0x1.8p-1",
      "0x.8",
      "0x1p",
      "0xg",
      "-0x10",
      "0x1.fffffffffffff8p0",
      "10x5",
      "1x",
      "0 x1",
      "1p3",
      "1f",
      "1d",
      "1L",
      "1_000",
      "1'000",
      "1,5",
      "nan",
      "-nan",
      "+nan",
      "NaN",
      "NAN",
      "nan(",
      "nan()",
      "nan(123)",
      "-nan(0x7)",
      "nan(abc",
      "nanx",
      "na",
      "inf",
      "-inf",
      "+inf",
      "Inf",
      "INF",
      "infinity",
      "-INFINITY",
      "infinit",
      "infx",
      "in",
      "1e308",
      "1.7976931348623157e308",
      "1.7976931348623159e308",
      "1e309",
      "-1e309",
      "1e99999",
      "-1e99999",
      "1e-307",
      "2.2250738585072011e-308",
      "4.9e-324",
      "2e-324",
      "-2e-324",
      "1e-400",
      "-1e-99999",
      "3.4028234e38",
      "3.4028235e38",
      "3.4028236e38",
      "3.5e38",
      "-3.5e38",
      "1.17549435e-38",
      "1.4e-45",
      "7e-46",
      "7.1e-46",
      "-1e-50",
      "340282346638528859811704183484516925440.000000",
      "340282366920938463463374607431768211456",
      "16777215",
      "16777216",
      "16777217",
      "16777218",
      "16777219",
      "1677721.7",
      "167772.17",
      "0.16777217",
      "0.016777217",
      "9007199254740991",
      "9007199254740992",
      "9007199254740993",
      "9007199254740994",
      "9007199254740995",
      "90071992547409.93",
      "0.9007199254740993",
      "900719925.4740993",
      "1700000000.123456",
      "1700000000.1234567",
      "18446744073709551615",
      "18446744073709551616",
      "184467440737095516150000000000000000000000000000",
      "0.1",
      "0.2",
      "0.3",
      "0.7000000",
      "0.12345678",
      "0.123456789",
      "0.1234567890123456789",
      "0.000001",
      "0.00000001",
      "0.000000001",
      "1.00000000",
      "1.000000000",
      "1.0000000000000000000000000000000000001",
      "0.00000000000000000000000000000000000000000000000000000000000001",
      "8388608.5",
      "8388609.5",
      "4194304.25",
      "4194304.125",
      "1.00000005960464477539",
      "1.00000017881393432617",
      "1.00000005960464477540",
      "1.0000000596046447753906250000000000000000000001",
      "0.500000029802322387695312",
      "100000000000000000000000",
      "9999999999999999",
      "123456789012345678"};
  return texts;
}

/// A random text that is a number, or nearly one.
std::string random_text(std::mt19937& random) {
  static const std::string characters = "0000111223456789.....---+eExXpnaif ,";
  std::string text;
  const std::size_t length = 1 + random() % 14;
  for (std::size_t i = 0; i < length; ++i) text += characters[random() % characters.size()];
  return text;
}

/// Digits with a point somewhere, as long as the longest that matter.
std::string random_decimal(std::mt19937& random) {
  std::string text = random() % 2 == 0 ? "-" : "";
  const std::size_t whole = random() % 20;
  const std::size_t fraction = random() % 12;
  for (std::size_t i = 0; i < whole; ++i) text += static_cast<char>('0' + random() % 10);
  if (fraction > 0) text += '.';
  for (std::size_t i = 0; i < fraction; ++i) text += static_cast<char>('0' + random() % 10);
  return text;
}

testing::AssertionResult reads_as_strtod(const std::string& text) {
  char* expected_end = nullptr;
  const double expected = std::strtod(text.c_str(), &expected_end);
  const char* end = nullptr;
  const double value = read_double(text.c_str(), end);
  if (end == expected_end && std::bit_cast<std::uint64_t>(value) == std::bit_cast<std::uint64_t>(expected)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "\"" << text << "\" gives " << value << " from " << end - text.c_str()
                                     << " bytes, not " << expected << " from " << expected_end - text.c_str();
}

testing::AssertionResult reads_as_strtof(const std::string& text) {
  char* expected_end = nullptr;
  const float expected = std::strtof(text.c_str(), &expected_end);
  const char* end = nullptr;
  const float value = read_float(text.c_str(), end);
  if (end == expected_end && std::bit_cast<std::uint32_t>(value) == std::bit_cast<std::uint32_t>(expected)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "\"" << text << "\" gives " << value << " from " << end - text.c_str()
                                     << " bytes, not " << expected << " from " << expected_end - text.c_str();
}

TEST(ReadNumber, agrees_with_the_c_library_on_odd_texts) {
  for (const std::string& text : odd_texts()) {
    for (const char* const behind : {"", ",", "]", " ", "}", "e", ".", "x", "0"}) {
      EXPECT_TRUE(reads_as_strtod(text + behind));
      EXPECT_TRUE(reads_as_strtof(text + behind));
    }
  }
}

TEST(ReadNumber, agrees_with_the_c_library_on_random_texts) {
  std::mt19937 random(1);
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = random_text(random);
    ASSERT_TRUE(reads_as_strtod(text));
    ASSERT_TRUE(reads_as_strtof(text));
  }
}

TEST(ReadNumber, agrees_with_the_c_library_on_random_decimals) {
  std::mt19937 random(2);
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = random_decimal(random);
    ASSERT_TRUE(reads_as_strtod(text));
    ASSERT_TRUE(reads_as_strtof(text));
  }
}

TEST(ReadNumber, reads_the_halfway_decimals_between_two_floats_as_the_c_library_does) {
  std::mt19937 random(3);
  for (int i = 0; i < 20'000; ++i) {
    const auto low = std::bit_cast<float>(static_cast<std::uint32_t>(random() % 0x7F7FFFFF));
    const float high = std::nextafter(low, std::numeric_limits<float>::infinity());
    const double middle = (static_cast<double>(low) + static_cast<double>(high)) / 2.0;
    const std::string exact = test::printed(middle, 160);
    ASSERT_TRUE(reads_as_strtof(exact));
    ASSERT_TRUE(reads_as_strtof(exact + "1"));
  }
}

TEST(ReadNumber, stops_behind_the_number) {
  const std::string text = " -12.50,7";
  const char* end = nullptr;
  EXPECT_EQ(read_double(text.c_str(), end), -12.5);
  EXPECT_EQ(end, text.c_str() + 7);
  EXPECT_EQ(read_float(text.c_str(), end), -12.5F);
  EXPECT_EQ(end, text.c_str() + 7);
}

TEST(ReadNumber, stays_where_it_is_without_a_number) {
  const std::string text = "  true";
  const char* end = nullptr;
  EXPECT_EQ(read_double(text.c_str(), end), 0.0);
  EXPECT_EQ(end, text.c_str());
  EXPECT_EQ(read_float(text.c_str(), end), 0.0F);
  EXPECT_EQ(end, text.c_str());
}

TEST(ReadNumber, goes_to_infinity_and_to_zero_out_of_range) {
  const char* end = nullptr;
  EXPECT_EQ(read_double("1e999", end), std::numeric_limits<double>::infinity());
  EXPECT_EQ(read_double("-1e999", end), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(read_double("1e-999", end), 0.0);
  EXPECT_EQ(read_float("3.5e38", end), std::numeric_limits<float>::infinity());
  EXPECT_EQ(read_float("-3.5e38", end), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(read_float("1e-60", end), 0.0F);
  EXPECT_TRUE(std::signbit(read_float("-1e-60", end)));
}

TEST(ReadNumber, reads_hex_and_words) {
  const char* end = nullptr;
  EXPECT_EQ(read_double("0x1.8p1", end), 3.0);
  EXPECT_EQ(read_float("0x10", end), 16.0F);
  EXPECT_EQ(read_double("-infinity", end), -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(read_float("-nan", end)));
  EXPECT_TRUE(std::signbit(read_float("-nan", end)));
}

TEST(ReadNumber, does_not_round_a_float_twice) {
  // Just above the middle of two floats: as a double it is the middle, which a second rounding sends down.
  const std::string text = "1.00000005960464477539062500001";
  const char* end = nullptr;
  EXPECT_EQ(read_float(text.c_str(), end), 1.00000011920928955078125F);
  EXPECT_EQ(static_cast<float>(read_double(text.c_str(), end)), 1.0F);
}

TEST(SequenceNumber, drops_the_fraction) {
  EXPECT_EQ(sequence_number(0.0), 0U);
  EXPECT_EQ(sequence_number(0.99), 0U);
  EXPECT_EQ(sequence_number(42.0), 42U);
  EXPECT_EQ(sequence_number(42.999), 42U);
  EXPECT_EQ(sequence_number(9007199254740992.0), 9007199254740992U);
}

TEST(SequenceNumber, of_what_is_negative_or_no_number_is_zero) {
  EXPECT_EQ(sequence_number(-0.0), 0U);
  EXPECT_EQ(sequence_number(-1.0), 0U);
  EXPECT_EQ(sequence_number(-1e300), 0U);
  EXPECT_EQ(sequence_number(-std::numeric_limits<double>::infinity()), 0U);
  EXPECT_EQ(sequence_number(std::numeric_limits<double>::quiet_NaN()), 0U);
}

TEST(SequenceNumber, beyond_64_bits_is_the_largest) {
  EXPECT_EQ(sequence_number(18446744073709549568.0), 18446744073709549568U);
  EXPECT_EQ(sequence_number(18446744073709551616.0), 18446744073709551615U);
  EXPECT_EQ(sequence_number(1e300), 18446744073709551615U);
  EXPECT_EQ(sequence_number(std::numeric_limits<double>::infinity()), 18446744073709551615U);
}

}  // namespace
}  // namespace tarsil::detail
