// The clocks of the library. Frames carry wall-clock time; everything that waits goes by the monotonic clock,
// which nobody can set.
#pragma once

#include <chrono>

namespace tarsil::detail {

using SteadyClock = std::chrono::steady_clock;
using SteadyTime = SteadyClock::time_point;

/// Seconds since the Unix epoch: the system clock's nanoseconds divided by 10^9.
[[nodiscard]] double wall_clock_seconds();

/// Seconds as whole nanoseconds, rounded up. Anything below zero and NaN give zero; anything too large to
/// count, infinity included, gives the largest duration.
[[nodiscard]] std::chrono::nanoseconds nanoseconds_rounded_up(double seconds);

/// `start` + `wait` (not negative); a sum beyond the clock's range gives its last time point.
[[nodiscard]] SteadyTime time_after(SteadyTime start, std::chrono::nanoseconds wait);

}  // namespace tarsil::detail
