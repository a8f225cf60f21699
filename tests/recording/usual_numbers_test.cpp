// Numbers that are written in the usual way, against the C library, and what only looks like one. (All of
// them: see all_floats.cpp.)
#include "tarsil/recording/usual_numbers.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace tarsil::detail {
namespace {

/// The values of a text of numbers with a comma behind each; nothing if they are not all usual ones.
template <int kDecimals>
std::optional<std::vector<float>> read(const std::string& text) {
  UsualNumbers<kDecimals> numbers;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at + 8 < end) {
    if (!numbers.note(at, end) || *at != ',') return std::nullopt;
    ++at;
  }
  std::array<float, UsualNumbers<kDecimals>::kCapacity> values;
  if (!numbers.convert(values.data())) return std::nullopt;
  return std::vector<float>(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(numbers.size()));
}

/// Bytes behind the last number, so that it can be looked at in one piece.
const std::string kTail = "       ";

bool same_bits(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

/// All of them, or one in so many, a hundred at a time.
template <int kDecimals>
void expect_as_strtof(const char* format, int step) {
  const int count = kDecimals == 6 ? 10'000'000 : 10'000;
  const int scale = count / 10;
  for (int begin = 0; begin < count; begin += 100 * step) {
    std::string text;
    std::vector<float> expected;
    for (int i = begin; i < begin + 100 * step; i += step) {
      std::array<char, 32> number;
      std::snprintf(number.data(), number.size(), format, i % 3 == 1 ? "-" : "", i / scale, i % scale);
      expected.push_back(std::strtof(number.data(), nullptr));
      text += number.data();
      text += ',';
    }
    const auto values = read<kDecimals>(text + kTail);
    ASSERT_TRUE(values.has_value()) << text;
    ASSERT_EQ(values->size(), 100U);
    for (std::size_t i = 0; i < 100; ++i)
      ASSERT_TRUE(same_bits((*values)[i], expected[i])) << text << ' ' << i;
  }
}

TEST(UsualNumbers, with_six_decimals_are_read_as_strtof_does) {
  expect_as_strtof<6>("%s%d.%06d", 25);
}

TEST(UsualNumbers, with_three_decimals_are_all_read_as_strtof_does) {
  expect_as_strtof<3>("%s%d.%03d", 1);
}

TEST(UsualNumbers, may_be_any_number_of_them) {
  for (std::size_t count = 1; count <= 9; ++count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += i % 2 == 0 ? "1.500000," : "-2.250000,";
    const auto values = read<6>(text + kTail);
    ASSERT_TRUE(values.has_value());
    ASSERT_EQ(values->size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ((*values)[i], i % 2 == 0 ? 1.5F : -2.25F);
  }
}

TEST(UsualNumbers, keep_the_sign_of_zero) {
  const auto values = read<6>("-0.000000,0.000000," + kTail);
  ASSERT_TRUE(values.has_value());
  EXPECT_TRUE(same_bits((*values)[0], -0.0F));
  EXPECT_TRUE(same_bits((*values)[1], 0.0F));
}

TEST(UsualNumbers, are_not_more_than_there_is_room_for) {
  std::string text;
  for (std::size_t i = 0; i < UsualNumbers<3>::kCapacity; ++i) text += "1.000,";
  EXPECT_TRUE(read<3>(text + kTail).has_value());
  EXPECT_FALSE(read<3>(text + "1.000," + kTail).has_value());
}

TEST(UsualNumbers, are_not_looked_for_beyond_the_end) {
  UsualNumbers<3> numbers;
  const std::string text = "1.000]}]";
  const char* at = text.data();
  EXPECT_FALSE(numbers.note(at, text.data() + text.size()));
  EXPECT_EQ(at, text.data());
}

/// Each byte of a number in each of the four places, replaced by every other byte.
template <int kDecimals>
void expect_refused(const std::string& number, const std::string& accepted_first) {
  for (std::size_t place = 0; place < 4; ++place) {
    for (std::size_t byte = 0; byte < number.size(); ++byte) {
      for (int c = 0; c < 256; ++c) {
        std::string changed = number;
        changed[byte] = static_cast<char>(c);
        const bool digit = c >= '0' && c <= '9';
        const bool usual = changed == number || (number[byte] >= '0' && number[byte] <= '9' && digit) ||
                           (byte == 0 && accepted_first.find(changed[0]) != std::string::npos);
        std::string text;
        for (std::size_t i = 0; i < 4; ++i) text += (i == place ? changed : number) + ',';
        ASSERT_EQ(read<kDecimals>(text + kTail).has_value(), usual) << "byte " << byte << " is " << c;
      }
    }
  }
}

TEST(UsualNumbers, have_digits_and_a_point_in_their_places) {
  expect_refused<6>("1.234567", "");
  expect_refused<6>("-1.234567", "");
  expect_refused<3>("1.234", "");
  expect_refused<3>("-1.234", "");
}

}  // namespace
}  // namespace tarsil::detail
