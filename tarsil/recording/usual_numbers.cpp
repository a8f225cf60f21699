// Vectors are the compiler's own, so that every architecture has them. All steps are exact but the last:
// seven digits and the powers of ten are exact in a float, so the one division rounds correctly, as strtof()
// does.
#include "tarsil/recording/usual_numbers.h"

#include <cstring>

namespace tarsil::detail {

namespace {

using Longs [[gnu::vector_size(16)]] = std::uint64_t;
using Bytes [[gnu::vector_size(16)]] = std::uint8_t;
using Words [[gnu::vector_size(16)]] = std::uint16_t;
using Integers [[gnu::vector_size(16)]] = std::int32_t;
using Floats [[gnu::vector_size(16)]] = float;

constexpr std::size_t kLanes = 4;

/// What differs between three and six decimals; a number's eight bytes are two lines of it.
template <int kDecimals>
struct Weights;

/// The bytes are d.dddddd: 1 and 2 digits, then 2 and 2.
template <>
struct Weights<6> {
  static constexpr std::uint64_t kUsed = ~std::uint64_t{0};
  static constexpr Words kTens = {1, 10, 10, 10, 1, 10, 10, 10};
  static constexpr Words kHundreds = {100, 0, 100, 0, 100, 0, 100, 0};
  static constexpr float kFirstHalf = 1e4F;
  static constexpr float kScale = 1e6F;
};

/// The bytes are d.ddd and three that do not matter: 1 and 2 digits, then 1.
template <>
struct Weights<3> {
  static constexpr std::uint64_t kUsed = 0xFF'FFFF'FFFF;
  static constexpr Words kTens = {1, 10, 1, 0, 1, 10, 1, 0};
  static constexpr Words kHundreds = {100, 0, 1, 0, 100, 0, 1, 0};
  static constexpr float kFirstHalf = 1e1F;
  static constexpr float kScale = 1e3F;
};

std::uint64_t load_eight(const char* text) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, text, sizeof bytes);
  return bytes;
}

Longs load(const char* first, const char* second) {
  return Longs{load_eight(first), load_eight(second)};
}

}  // namespace

template <int kDecimals>
bool UsualNumbers<kDecimals>::convert(float* values) {
  using W = Weights<kDecimals>;
  constexpr Longs kUsed = {W::kUsed, W::kUsed};
  constexpr Longs kZeros = Longs{0x3030'3030'3030'2E30, 0x3030'3030'3030'2E30} & kUsed;
  constexpr Longs kSixes = Longs{0x0606'0606'0606'0006, 0x0606'0606'0606'0006} & kUsed;
  constexpr Longs kNoDigit = {0xF0F0'F0F0'F0F0'FFF0, 0xF0F0'F0F0'F0F0'FFF0};

  // Whole groups of four; the last one is filled up with its last number.
  for (std::size_t i = count_; i % kLanes != 0; ++i) {
    begins_[i] = begins_[count_ - 1];
    firsts_[i] = firsts_[count_ - 1];
  }
  Longs wrong_bytes{};
  Integers wrong_signs{};
  // The digits of two numbers, as 32-bit numbers of which each has two.
  const auto halves = [&wrong_bytes](const char* first, const char* second) {
    // Digits become their values and the point 0. A byte is no digit if its high half is not 0, or comes to
    // be other than 0 when 6 is added.
    const Longs bytes = (load(first, second) & kUsed) ^ kZeros;
    wrong_bytes |=
        bytes | reinterpret_cast<Longs>(reinterpret_cast<Bytes>(bytes) + reinterpret_cast<Bytes>(kSixes));
    const auto words = reinterpret_cast<Words>(bytes);
    const Words pairs = (words & 0xFF) * W::kTens + (words >> 8);
    const auto next = reinterpret_cast<Words>(reinterpret_cast<Longs>(pairs) >> 16);
    return reinterpret_cast<Integers>(pairs * W::kHundreds + next) & 0xFFFF;
  };
  for (std::size_t i = 0; i < count_; i += kLanes) {
    const Integers low = halves(begins_[i], begins_[i + 1]);
    const Integers high = halves(begins_[i + 2], begins_[i + 3]);
    const Integers first = __builtin_shufflevector(low, high, 0, 2, 4, 6);
    const Integers second = __builtin_shufflevector(low, high, 1, 3, 5, 7);
    const Floats digits =
        __builtin_convertvector(first, Floats) * W::kFirstHalf + __builtin_convertvector(second, Floats);
    Integers signs;
    std::memcpy(&signs, &firsts_[i], sizeof signs);
    const Integers negative = signs == '-';
    wrong_signs |= (signs < '.') & ~negative;
    const Floats magnitude = digits / W::kScale;
    const Integers result = reinterpret_cast<Integers>(magnitude) | (negative << 31);
    std::memcpy(values + i, &result, sizeof result);
  }
  const Longs wrong = (wrong_bytes & kNoDigit) | reinterpret_cast<Longs>(wrong_signs);
  return (wrong[0] | wrong[1]) == 0;
}

template class UsualNumbers<3>;
template class UsualNumbers<6>;

}  // namespace tarsil::detail
