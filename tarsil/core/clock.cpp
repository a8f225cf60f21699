// Clock readings and conversions that no input can make overflow.
#include "tarsil/core/clock.h"

#include <cmath>

namespace tarsil::detail {

double wall_clock_seconds() {
  const std::chrono::nanoseconds since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<double>(since_epoch.count()) / 1e9;
}

std::chrono::nanoseconds nanoseconds_rounded_up(double seconds) {
  const double count = std::ceil(seconds * 1e9);
  if (!(count > 0.0)) return std::chrono::nanoseconds::zero();
  // 2^63: the first double that the count cannot hold.
  if (count >= 9223372036854775808.0) return std::chrono::nanoseconds::max();
  return std::chrono::nanoseconds(static_cast<std::chrono::nanoseconds::rep>(count));
}

SteadyTime time_after(SteadyTime start, std::chrono::nanoseconds wait) {
  if (wait > SteadyTime::max() - start) return SteadyTime::max();
  return start + wait;
}

}  // namespace tarsil::detail
