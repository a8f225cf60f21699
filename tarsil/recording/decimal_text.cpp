// Two steps over a batch: products and roundings, which the compiler does several at a time, then digits from
// tables of three.
#include "tarsil/recording/decimal_text.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace tarsil::detail {

namespace {

/// Whether doubles are computed as they stand, and not in something wider.
constexpr bool kPlainDoubles = FLT_EVAL_METHOD == 0 || FLT_EVAL_METHOD == 1;

/// "000," to "999,", so that one load and one store do.
consteval std::array<char, 4000> make_fractions() {
  std::array<char, 4000> table{};
  for (std::size_t i = 0; i < 1000; ++i) {
    table[4 * i] = static_cast<char>('0' + i / 100);
    table[4 * i + 1] = static_cast<char>('0' + i / 10 % 10);
    table[4 * i + 2] = static_cast<char>('0' + i % 10);
    table[4 * i + 3] = ',';
  }
  return table;
}

/// What stands before the decimals, in eight bytes so that one load and one store do.
struct Whole {
  std::array<char, 7> text{};
  std::uint8_t size = 0;
};

/// Place of the negative ones in the table of wholes.
constexpr std::uint32_t kNegative = 1024;

/// "0." to "999.", and "-0." to "-999." from kNegative on.
consteval std::array<Whole, kNegative + 1000> make_wholes() {
  std::array<Whole, kNegative + 1000> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    Whole& whole = table[i];
    const auto add = [&whole](char c) { whole.text[whole.size++] = c; };
    const std::uint32_t number = i % kNegative;
    if (i >= kNegative) add('-');
    if (number >= 100) add(static_cast<char>('0' + number / 100 % 10));
    if (number >= 10) add(static_cast<char>('0' + number / 10 % 10));
    add(static_cast<char>('0' + number % 10));
    add('.');
  }
  return table;
}

constexpr auto kFractions = make_fractions();
constexpr auto kWholes = make_wholes();

/// Three digits and a comma; returns where the comma stands.
char* write_fraction(char* out, std::uint32_t number) {
  std::memcpy(out, kFractions.data() + std::size_t{4} * number, 4);
  return out + 3;
}

/// An entry of the table of wholes. Writes eight bytes.
char* write_whole(char* out, std::uint32_t index) {
  const Whole& whole = kWholes[index];
  std::memcpy(out, &whole, sizeof whole);
  return out + whole.size;
}

/// Any value with any decimals, and a comma.
char* write_plain(char* out, char* limit, double value, int decimals) {
  char* const end = std::to_chars(out, limit, value, std::chars_format::fixed, decimals).ptr;
  *end = ',';
  return end + 1;
}

/// The nearest integer, half to even, of a value from 0 to below 2^32: the last bit of the sum is worth 1, so
/// the addition rounds, and the integer stands in the sum's low bits.
std::uint32_t nearest_integer(double value) {
  constexpr double kShift = 0x1p52;
  return static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value + kShift));
}

/// What is below this in magnitude has three digits before the point at the most, also after rounding.
constexpr float kFastLimit = 999.0F;

/// Whether all values are below kFastLimit. Magnitudes are ordered as the integers of their bits, and what is
/// no number is above all that are.
bool all_fast(std::span<const float> values) {
  constexpr auto kLimitBits = std::bit_cast<std::int32_t>(kFastLimit);
  std::int32_t differences = -1;
  for (const float value : values) {
    const auto magnitude = static_cast<std::int32_t>(std::bit_cast<std::uint32_t>(value) & 0x7FFF'FFFFU);
    differences &= magnitude - kLimitBits;
  }
  return differences < 0;
}

template <int kDecimals>
constexpr std::uint32_t kScale = kDecimals == 3 ? 1000 : 1'000'000;

template <int kDecimals>
char* write_number(char* out, std::uint32_t number, std::uint32_t bits) {
  const std::uint32_t sign = (bits >> 31) * kNegative;
  out = write_whole(out, number / kScale<kDecimals> + sign);
  std::uint32_t fraction = number % kScale<kDecimals>;
  if constexpr (kDecimals == 6) {
    out = write_fraction(out, fraction / 1000);
    fraction %= 1000;
  }
  return write_fraction(out, fraction) + 1;
}

}  // namespace

template <int kDecimals>
DecimalBatch<kDecimals>::DecimalBatch(std::span<const float> values)
    : values_(values), fast_(kPlainDoubles && all_fast(values)) {
  if (!fast_) return;
  for (std::size_t i = 0; i < values.size(); ++i) {
    numbers_[i] = nearest_integer(std::fabs(static_cast<double>(values[i])) * kScale<kDecimals>);
  }
}

template <int kDecimals>
char* DecimalBatch<kDecimals>::write(char* out, std::size_t first, std::size_t count) const {
  for (std::size_t i = first; i < first + count; ++i) {
    out = fast_ ? write_number<kDecimals>(out, numbers_[i], std::bit_cast<std::uint32_t>(values_[i]))
                : write_plain(out, out + kTextSize, values_[i], kDecimals);
  }
  return out;
}

template class DecimalBatch<3>;
template class DecimalBatch<6>;

/// From 2^13 on the fraction has at most 39 bits, so that its product with 10^6 is exact in a double; what
/// stands before the point changes nothing in how it rounds, since 10^6 is even.
void append_time(std::string& out, double seconds) {
  constexpr double kLeast = 0x1p13;
  constexpr double kMost = 1e15;
  // The largest double has 309 digits.
  std::array<char, 320> text;
  char* end = text.data();
  char* const limit = text.data() + text.size();
  if (!kPlainDoubles || !(seconds >= kLeast && seconds < kMost)) {
    out.append(text.data(), write_plain(end, limit, seconds, 6) - 1);
    return;
  }
  auto whole = static_cast<std::uint64_t>(seconds);
  std::uint32_t fraction = nearest_integer((seconds - static_cast<double>(whole)) * 1e6);
  if (fraction == 1'000'000) {
    fraction = 0;
    ++whole;
  }
  end = std::to_chars(end, limit, whole).ptr;
  *end++ = '.';
  end = write_fraction(write_fraction(end, fraction / 1000), fraction % 1000);
  out.append(text.data(), end);
}

}  // namespace tarsil::detail
