// Most numbers of a recording are short decimals. Their digits and the power of ten below them are exact, so
// that one division rounds correctly (IEEE 754 division is); everything else is left to the C library.
//
// Rounding the quotient once more, to a float, gives the nearest float as well. It could only fail where the
// quotient rounds to the middle between two floats without being that middle. But a decimal with k decimals
// that is not the middle is away from it by more than the 2^-53 of its value by which the quotient was
// rounded: where the middle has no more than k decimals, by one unit of the last decimal at least, and a
// value has at most 2^53 of those; otherwise by 2^-25 / 5^k of its value, which up to k = 12 is more as well.
#include "tarsil/recording/number_reader.h"

#include <array>
#include <cstdlib>
#include <limits>

#include <locale.h>

namespace tarsil::detail {

namespace {

/// The classic locale; there is one for the whole process, and it is never given back.
locale_t classic_locale() {
  static const locale_t kLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return kLocale;
}

constexpr std::array<double, 13> kPowersOfTen{1e0, 1e1, 1e2, 1e3,  1e4,  1e5, 1e6,
                                              1e7, 1e8, 1e9, 1e10, 1e11, 1e12};
constexpr std::ptrdiff_t kMaxDecimals = kPowersOfTen.size() - 1;
/// Up to here every integer is a double.
constexpr std::uint64_t kMaxDigits = std::uint64_t{1} << std::numeric_limits<double>::digits;

/// A decimal such as "-12.340000" or "42", taken apart.
struct ShortDecimal {
  bool negative = false;
  std::uint64_t digits = 0;
  std::size_t decimals = 0;
  const char* end = nullptr;
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// Whether `text` begins with digits and, behind a point, at most kMaxDecimals more, all of them together no
/// larger than kMaxDigits, and with nothing behind that would make another number of it (an exponent, or
/// "0x").
bool scan_short_decimal(const char* text, ShortDecimal& out) {
  const char* p = text;
  out.negative = *p == '-';
  if (out.negative) ++p;
  if (!is_digit(*p)) return false;
  std::uint64_t digits = 0;
  while (is_digit(*p) && digits <= kMaxDigits) digits = digits * 10 + static_cast<std::uint64_t>(*p++ - '0');
  const char* fraction = p;
  if (*p == '.') {
    fraction = ++p;
    while (is_digit(*p) && digits <= kMaxDigits)
      digits = digits * 10 + static_cast<std::uint64_t>(*p++ - '0');
  }
  const char behind = static_cast<char>(*p | 0x20);  // letters in lower case
  if (digits > kMaxDigits || p - fraction > kMaxDecimals || behind == 'e' || behind == 'x') return false;
  out.digits = digits;
  out.decimals = static_cast<std::size_t>(p - fraction);
  out.end = p;
  return true;
}

double value_of(const ShortDecimal& decimal) {
  const double value = static_cast<double>(decimal.digits) / kPowersOfTen[decimal.decimals];
  return decimal.negative ? -value : value;
}

}  // namespace

double read_double(const char* text, const char*& end) {
  ShortDecimal decimal;
  if (scan_short_decimal(text, decimal)) {
    end = decimal.end;
    return value_of(decimal);
  }
  char* stop = nullptr;
  const double value = strtod_l(text, &stop, classic_locale());
  end = stop;
  return value;
}

float read_float(const char* text, const char*& end) {
  ShortDecimal decimal;
  if (scan_short_decimal(text, decimal)) {
    end = decimal.end;
    return static_cast<float>(value_of(decimal));
  }
  char* stop = nullptr;
  const float value = strtof_l(text, &stop, classic_locale());
  end = stop;
  return value;
}

std::uint64_t sequence_number(double value) {
  if (!(value > 0.0)) return 0;
  // 2^64: the first double that does not fit.
  if (value >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(value);
}

}  // namespace tarsil::detail
