// The replayer's sense of time. Frames never come early; how late they may come depends on the machine, so
// upper bounds are those of a schedule that is wrong altogether.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"

namespace tarsil {
namespace {

using Seconds = std::chrono::duration<double>;

/// The schedule goes by the wall clock, the test by the monotonic one.
constexpr double kClockSlack = 0.005;
constexpr double kPatience = Seconds(test::kPatience).count();

class ReplayerPacing : public testing::Test {
 protected:
  /// A recording of frames at these times.
  std::string recording(const std::vector<double>& times) {
    std::string text;
    for (const double t : times) text += test::printed_tsl_line(test::bare_frame(text.size(), t));
    test::write_file(directory_.file("a.tsl"), text);
    return directory_.file("a.tsl");
  }

 private:
  test::TempDirectory directory_;
};

/// Seconds that it takes to read so many frames.
double time_to_read(Replayer& replayer, int frames) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < frames; ++i) static_cast<void>(replayer.read_frame());
  return Seconds(std::chrono::steady_clock::now() - start).count();
}

TEST_F(ReplayerPacing, keeps_the_recorded_times_by_default) {
  Replayer replayer(recording({1700000000.0, 1700000000.1, 1700000000.3}));
  static_cast<void>(replayer.read_frame());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(replayer.read_frame().t, 1700000000.1);
  EXPECT_GE(Seconds(std::chrono::steady_clock::now() - start).count(), 0.1 - kClockSlack);
  EXPECT_EQ(replayer.read_frame().t, 1700000000.3);
  const double taken = Seconds(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(taken, 0.3 - kClockSlack);
  EXPECT_LT(taken, kPatience);
}

TEST_F(ReplayerPacing, hands_out_frames_in_half_the_time_at_twice_the_speed) {
  Replayer replayer(recording({10.0, 11.0}), {2.0F, false});
  const double taken = time_to_read(replayer, 2);
  EXPECT_GE(taken, 0.5 - kClockSlack);
  EXPECT_LT(taken, kPatience);
}

TEST_F(ReplayerPacing, hands_out_frames_in_twice_the_time_at_half_the_speed) {
  Replayer replayer(recording({10.0, 10.2}), {0.5F, false});
  const double taken = time_to_read(replayer, 2);
  EXPECT_GE(taken, 0.4 - kClockSlack);
  EXPECT_LT(taken, kPatience);
}

TEST_F(ReplayerPacing, makes_short_work_of_an_hour_at_a_high_speed) {
  Replayer replayer(recording({0.0, 1800.0, 3600.0}), {18000.0F, false});
  const double taken = time_to_read(replayer, 3);
  EXPECT_GE(taken, 0.2 - kClockSlack);
  EXPECT_LT(taken, kPatience);
}

TEST_F(ReplayerPacing, does_not_wait_at_speed_zero_or_below) {
  for (const float speed :
       {0.0F, -0.0F, -1.0F, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::infinity()}) {
    Replayer replayer(recording({0.0, 1000.0, 2000.0}), {speed, false});
    EXPECT_LT(time_to_read(replayer, 3), kPatience) << speed;
  }
}

TEST_F(ReplayerPacing, does_not_wait_for_the_first_frame) {
  Replayer replayer(recording({1e9, 1e9}));
  EXPECT_LT(time_to_read(replayer, 2), kPatience);
}

TEST_F(ReplayerPacing, does_not_wait_for_times_that_go_back_or_are_none) {
  Replayer replayer(recording({1000.0, 500.0, -1e300, -std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN(), 1000.0}));
  EXPECT_LT(time_to_read(replayer, 6), kPatience);
}

TEST_F(ReplayerPacing, hands_out_every_late_frame_at_once) {
  // A minute in 0.6 s: a reader who comes after that time finds all of it due.
  constexpr double kWholeSchedule = 0.6;
  std::vector<double> times;
  for (int i = 0; i <= 100; ++i) times.push_back(kWholeSchedule * i);
  const std::string path = recording(times);
  // A schedule that began anew with the late frame would take that long again, at every attempt.
  double shortest = kPatience;
  for (int attempt = 0; attempt < 10 && shortest > kWholeSchedule / 2; ++attempt) {
    Replayer replayer(path, {100.0F, false});
    static_cast<void>(replayer.read_frame());
    std::this_thread::sleep_for(Seconds(kWholeSchedule + kClockSlack));
    shortest = std::min(shortest, time_to_read(replayer, 100));
    EXPECT_FALSE(replayer.is_open());
  }
  EXPECT_LT(shortest, kWholeSchedule / 2);
}

TEST_F(ReplayerPacing, starts_with_the_first_frame_that_is_read) {
  Replayer replayer(recording({100.0, 100.2}));
  std::this_thread::sleep_for(std::chrono::milliseconds(250));
  EXPECT_GE(time_to_read(replayer, 2), 0.2 - kClockSlack);
}

TEST_F(ReplayerPacing, does_not_wait_after_it_has_looped) {
  Replayer replayer(recording({0.0, 0.1, 0.2}), {1.0F, true});
  const double first_pass = time_to_read(replayer, 3);
  EXPECT_GE(first_pass, 0.2 - kClockSlack);
  // Paced, this would be more than three minutes.
  EXPECT_LT(time_to_read(replayer, 3000), kPatience);
}

/// A timer that interrupts this process a hundred times a second while it lives.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) { count_ = count_ + 1; };
    sigaction(SIGALRM, &action, &before_);
    const itimerval timer{{0, 10'000}, {0, 10'000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  ~Interruptions() {
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }

  [[nodiscard]] int count() const { return count_; }

 private:
  static volatile std::sig_atomic_t count_;
  struct sigaction before_ {};
};
volatile std::sig_atomic_t Interruptions::count_ = 0;

TEST_F(ReplayerPacing, goes_on_waiting_when_a_signal_interrupts_it) {
  Replayer replayer(recording({0.0, 0.3}));
  const Interruptions interruptions;
  EXPECT_GE(time_to_read(replayer, 2), 0.3 - kClockSlack);
  EXPECT_GT(interruptions.count(), 0);
}

}  // namespace
}  // namespace tarsil
