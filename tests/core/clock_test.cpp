// Conversions of time at the edges, where arithmetic would overflow.
#include "tarsil/core/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>

namespace tarsil::detail {
namespace {

using std::chrono::nanoseconds;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

TEST(WallClockSeconds, is_the_system_clock_in_seconds_since_the_epoch) {
  const auto seconds_now = [] {
    return static_cast<double>(nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count()) /
           1e9;
  };
  const double before = seconds_now();
  const double now = wall_clock_seconds();
  const double after = seconds_now();
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

TEST(NanosecondsRoundedUp, counts_whole_nanoseconds) {
  EXPECT_EQ(nanoseconds_rounded_up(1.0), nanoseconds(1'000'000'000));
  EXPECT_EQ(nanoseconds_rounded_up(0.5), nanoseconds(500'000'000));
  EXPECT_EQ(nanoseconds_rounded_up(16.0), nanoseconds(16'000'000'000));
  EXPECT_EQ(nanoseconds_rounded_up(static_cast<double>(0.1F)), nanoseconds(100'000'002));
}

TEST(NanosecondsRoundedUp, rounds_up_what_is_left) {
  EXPECT_EQ(nanoseconds_rounded_up(1.5e-9), nanoseconds(2));
  EXPECT_EQ(nanoseconds_rounded_up(0.25e-9), nanoseconds(1));
  EXPECT_EQ(nanoseconds_rounded_up(1e-300), nanoseconds(1));
}

TEST(NanosecondsRoundedUp, takes_times_below_zero_and_no_number_for_zero) {
  EXPECT_EQ(nanoseconds_rounded_up(0.0), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(-0.0), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(-1e-12), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(-1.0), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(-1e300), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(-kInfinity), nanoseconds(0));
  EXPECT_EQ(nanoseconds_rounded_up(kNan), nanoseconds(0));
}

TEST(NanosecondsRoundedUp, gives_the_longest_time_for_what_it_cannot_count) {
  EXPECT_EQ(nanoseconds_rounded_up(kInfinity), nanoseconds::max());
  EXPECT_EQ(nanoseconds_rounded_up(1e300), nanoseconds::max());
  EXPECT_EQ(nanoseconds_rounded_up(1e10), nanoseconds::max());
  // 2^63 nanoseconds and the last double below.
  EXPECT_EQ(nanoseconds_rounded_up(9223372036.854775808), nanoseconds::max());
  EXPECT_EQ(nanoseconds_rounded_up(9223372036.0), nanoseconds(9'223'372'036'000'000'000));
}

TEST(TimeAfter, adds_a_wait_to_a_time) {
  const SteadyTime start(nanoseconds(5));
  EXPECT_EQ(time_after(start, nanoseconds(7)), SteadyTime(nanoseconds(12)));
  EXPECT_EQ(time_after(start, nanoseconds(0)), start);
}

TEST(TimeAfter, stops_at_the_last_time_there_is) {
  const SteadyTime start(nanoseconds(5));
  EXPECT_EQ(time_after(start, nanoseconds::max()), SteadyTime::max());
  EXPECT_EQ(time_after(start, nanoseconds::max() - nanoseconds(4)), SteadyTime::max());
  EXPECT_EQ(time_after(start, nanoseconds::max() - nanoseconds(5)), SteadyTime::max());
  EXPECT_EQ(time_after(start, nanoseconds::max() - nanoseconds(6)), SteadyTime::max() - nanoseconds(1));
  EXPECT_EQ(time_after(SteadyTime::max(), nanoseconds::max()), SteadyTime::max());
  EXPECT_EQ(time_after(SteadyTime::max(), nanoseconds(0)), SteadyTime::max());
}

}  // namespace
}  // namespace tarsil::detail
