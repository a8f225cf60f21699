// Numbers of a recording as text: the digits of printf's "%.3f" and "%.6f" without a general conversion.
//
// Why the digits are the same. A float has 24 significant bits and 10^6 is 15625 * 2^6 with 14 bits in its
// odd part, so the product of a widened float and 10^6 (or 10^3) has at most 38 and is exact in a double.
// Rounding that product half to even gives an integer whose digits are the ones that printf writes, which
// rounds the exact value half to even as well.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tarsil::detail {

/// Up to kCapacity floats on their way to text with 3 or 6 decimals.
template <int kDecimals>
class DecimalBatch {
 public:
  static constexpr std::size_t kCapacity = 32;
  /// Room for the text of one value: sign, 39 digits, point, decimals, comma.
  static constexpr std::size_t kTextSize = 48;

  /// Takes up to kCapacity values, which have to stay where they are.
  explicit DecimalBatch(std::span<const float> values);

  /// Writes the values from `first` on, a comma behind each; returns where the last comma ends. Needs room
  /// for kTextSize bytes a value.
  char* write(char* out, std::size_t first, std::size_t count) const;

 private:
  std::span<const float> values_;
  /// Whether all of them are of a size whose digits stand in numbers_.
  bool fast_;
  std::array<std::uint32_t, kCapacity> numbers_;
};

extern template class DecimalBatch<3>;
extern template class DecimalBatch<6>;

/// Appends a time in seconds with six decimals.
void append_time(std::string& out, double seconds);

}  // namespace tarsil::detail
