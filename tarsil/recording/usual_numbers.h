// The digits of a recording's usual numbers, "1.234567" and "-1.234", four numbers at a time.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace tarsil::detail {

/// A list of numbers that are written in the usual way: a minus sign perhaps, one digit, a point and
/// `kDecimals` (3 or 6) digits. They are noted one after the other and converted together.
template <int kDecimals>
class UsualNumbers {
 public:
  static constexpr std::size_t kCapacity = 256;

  void clear() { count_ = 0; }
  [[nodiscard]] std::size_t size() const { return count_; }

  /// Notes that a number begins at `at`, and moves behind where it ends if it is a usual one. False if there
  /// is no room, here or before `end`, for one more.
  bool note(const char*& at, const char* end) {
    if (count_ == kCapacity || end - at < kNeeded) return false;
    const auto first = static_cast<unsigned char>(*at);
    at += kLength + (first < '.' ? 1 : 0);  // a sign, or nothing that convert() accepts
    firsts_[count_] = first;
    begins_[count_] = at - kLength;
    ++count_;
    return true;
  }

  /// Writes the values, as strtof() reads them, and up to three more that are of no use. False if what was
  /// noted were not all usual numbers.
  bool convert(float* values);

 private:
  static constexpr std::ptrdiff_t kLength = 2 + kDecimals;
  /// The sign, and the eight bytes that are looked at.
  static constexpr std::ptrdiff_t kNeeded = 1 + 8;

  std::size_t count_ = 0;
  /// Behind the sign.
  std::array<const char*, kCapacity> begins_;
  std::array<std::int32_t, kCapacity> firsts_;
};

extern template class UsualNumbers<3>;
extern template class UsualNumbers<6>;

/// Whether this machine's byte order is the one that the conversion counts on.
inline constexpr bool kUsualNumbersWork = std::endian::native == std::endian::little;

}  // namespace tarsil::detail
