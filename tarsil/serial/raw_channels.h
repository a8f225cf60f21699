// The latest raw values of one kind of channel. They are kept as the glove sends them and brought to their
// unit when a frame is made: all of a kind together, which the compiler does several at a time.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tarsil/serial/wire.h"

namespace tarsil::detail {

/// `kPerSegment` signed 16-bit values for each finger segment.
template <std::size_t kPerSegment>
class RawChannels {
 public:
  static constexpr std::size_t kSize = wire::kSegments * kPerSegment;
  /// With as many zeros behind the values as fill the last vector.
  static constexpr std::size_t kPaddedSize = (kSize + 7) / 8 * 8;

  /// Takes the values of a segment, below wire::kSegments, as they stand in a sample.
  void set(std::size_t segment, const std::uint8_t* sample) {
    std::int16_t* const values = values_.data() + segment * kPerSegment;
    if constexpr (std::endian::native == std::endian::little) {
      std::memcpy(values, sample, kPerSegment * sizeof *values);
    } else {
      for (std::size_t k = 0; k < kPerSegment; ++k) values[k] = wire::read_i16(sample + 2 * k);
    }
  }

  /// All values, which are in hundredths, in their unit.
  [[nodiscard]] std::array<float, kPaddedSize> in_units() const {
    std::array<float, kPaddedSize> values;
    for (std::size_t i = 0; i < kPaddedSize; ++i) {
      values[i] = static_cast<float>(values_[i]) / wire::kHundredths;
    }
    return values;
  }

 private:
  std::array<std::int16_t, kPaddedSize> values_{};
};

}  // namespace tarsil::detail
