// The synthetic glove: its numbers, its pacing, and what it makes of odd settings.
#include "tarsil/core/mock_source.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/wait.h"

namespace tarsil {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

/// The tool's mock, as fast as it is asked.
MockConfig unpaced() {
  MockConfig config;
  config.realtime = false;
  return config;
}

MockConfig paced(float hz) {
  MockConfig config;
  config.hz = hz;
  return config;
}

float joint_wave(std::size_t joint, double t) {
  const auto time = static_cast<float>(t);
  return 0.4F * std::sin(0.31F * static_cast<float>(joint) + time) + 0.4F;
}

float pad_wave(std::size_t pad, double t) {
  const auto time = static_cast<float>(t);
  return 0.45F * std::sin(0.7F * static_cast<float>(pad) + 0.4F * time) + 0.5F;
}

/// Mean and standard deviation of what is added.
class Statistics {
 public:
  void add(float value) {
    sum_ += static_cast<double>(value);
    squares_ += static_cast<double>(value) * static_cast<double>(value);
    ++count_;
  }
  [[nodiscard]] double mean() const { return sum_ / count_; }
  [[nodiscard]] double deviation() const { return std::sqrt(squares_ / count_ - mean() * mean()); }

 private:
  double sum_ = 0.0;
  double squares_ = 0.0;
  double count_ = 0.0;
};

std::string refusal_of(const MockConfig& config) {
  try {
    const MockSource source(config);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "accepted";
}

TEST(MockConfig, defaults_to_the_tools_mock) {
  const MockConfig config;
  EXPECT_EQ(config.serial, "MOCK-0001");
  EXPECT_EQ(config.side, 1);
  EXPECT_EQ(config.hz, 100.0F);
  EXPECT_EQ(config.n_dofs, 20);
  EXPECT_EQ(config.n_pads, 30);
  EXPECT_EQ(config.n_imu, 5);
  EXPECT_EQ(config.noise, 0.002F);
  EXPECT_TRUE(config.realtime);
}

TEST(MockSource, has_the_identity_of_the_tools_mock_by_default) {
  const MockSource source(MockConfig{});
  const DeviceInfo info = source.device_info();
  EXPECT_EQ(info.serial, "MOCK-0001");
  EXPECT_EQ(info.side, 1);
  EXPECT_EQ(info.firmware, "mock-0.1.0");
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
}

TEST(MockSource, takes_its_identity_from_the_settings) {
  const MockSource source(MockConfig{"GLOVE-7", 0, 50.0F, 4, -3, 0, 0.1F, false});
  const DeviceInfo info = source.device_info();
  EXPECT_EQ(info.serial, "GLOVE-7");
  EXPECT_EQ(info.side, 0);
  EXPECT_EQ(info.firmware, "mock-0.1.0");
  EXPECT_EQ(info.n_dofs, 4);
  EXPECT_EQ(info.n_pads, -3);
  EXPECT_EQ(info.n_imu, 0);
}

TEST(MockSource, makes_fresh_frames_of_the_configured_lengths) {
  MockSource source(unpaced());
  const Frame frame = source.read_frame();
  EXPECT_EQ(frame.q.size(), 20U);
  EXPECT_EQ(frame.touch.size(), 30U);
  EXPECT_EQ(frame.imu.size(), 5U);
  EXPECT_FALSE(frame.stale);
  EXPECT_EQ(frame.status_lo, (std::array<std::uint8_t, 5>{0x0F, 0x0F, 0x0F, 0x0F, 0x0F}));
  EXPECT_EQ(frame.status_hi, (std::array<std::uint8_t, 5>{}));
}

TEST(MockSource, leaves_arrays_empty_for_counts_of_zero_and_less) {
  for (const std::int32_t count : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    MockConfig config = unpaced();
    config.n_dofs = config.n_pads = config.n_imu = count;
    MockSource source(config);
    const Frame frame = source.read_frame();
    EXPECT_TRUE(frame.q.empty()) << count;
    EXPECT_TRUE(frame.touch.empty()) << count;
    EXPECT_TRUE(frame.imu.empty()) << count;
  }
}

TEST(MockSource, numbers_frames_from_zero_without_gaps) {
  MockSource source(unpaced());
  for (std::uint64_t expected = 0; expected < 1000; ++expected) {
    const Frame frame = source.read_frame();
    ASSERT_EQ(frame.seq, expected);
    ASSERT_FALSE(frame.stale);
  }
}

TEST(MockSource, stamps_frames_with_the_wall_clock) {
  const auto seconds_now = [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  MockSource source(unpaced());
  const double before = seconds_now();
  const Frame frame = source.read_frame();
  EXPECT_GE(frame.t, before - 1e-3);
  EXPECT_LE(frame.t, seconds_now() + 1e-3);
}

TEST(MockSource, follows_the_formula_exactly_without_noise) {
  MockConfig config = unpaced();
  config.noise = 0.0F;
  config.n_dofs = 500;
  MockSource source(config);
  for (int i = 0; i < 20; ++i) {
    const Frame frame = source.read_frame();
    for (std::size_t joint = 0; joint < frame.q.size(); ++joint) {
      ASSERT_EQ(frame.q[joint], joint_wave(joint, frame.t)) << joint;
    }
  }
}

TEST(MockSource, keeps_joints_within_a_few_deviations_of_the_formula) {
  MockSource source(unpaced());
  Statistics noise;
  for (int i = 0; i < 1000; ++i) {
    const Frame frame = source.read_frame();
    for (std::size_t joint = 0; joint < frame.q.size(); ++joint) {
      const float difference = frame.q[joint] - joint_wave(joint, frame.t);
      ASSERT_LT(std::fabs(difference), 0.016F) << joint;
      noise.add(difference);
    }
  }
  EXPECT_NEAR(noise.mean(), 0.0, 0.0002);
  EXPECT_NEAR(noise.deviation(), 0.002, 0.0002);
}

TEST(MockSource, scales_the_joints_noise_as_configured) {
  MockConfig config = unpaced();
  config.noise = 0.5F;
  MockSource source(config);
  Statistics noise;
  for (int i = 0; i < 1000; ++i) {
    const Frame frame = source.read_frame();
    for (std::size_t joint = 0; joint < frame.q.size(); ++joint) {
      noise.add(frame.q[joint] - joint_wave(joint, frame.t));
    }
  }
  EXPECT_NEAR(noise.mean(), 0.0, 0.05);
  EXPECT_NEAR(noise.deviation(), 0.5, 0.05);
}

TEST(MockSource, keeps_pads_near_their_formula_whatever_the_joints_noise) {
  MockConfig config = unpaced();
  config.noise = 0.0F;
  MockSource source(config);
  Statistics noise;
  for (int i = 0; i < 1000; ++i) {
    const Frame frame = source.read_frame();
    for (std::size_t pad = 0; pad < frame.touch.size(); ++pad) {
      const float difference = frame.touch[pad] - pad_wave(pad, frame.t);
      ASSERT_LT(std::fabs(difference), 0.08F) << pad;
      noise.add(difference);
    }
  }
  EXPECT_NEAR(noise.mean(), 0.0, 0.001);
  EXPECT_NEAR(noise.deviation(), 0.01, 0.001);
}

TEST(MockSource, keeps_every_pad_between_0_and_1) {
  MockConfig config = unpaced();
  config.n_pads = 20000;
  MockSource source(config);
  for (int i = 0; i < 20; ++i) {
    const Frame frame = source.read_frame();
    for (const float value : frame.touch) {
      ASSERT_GE(value, 0.0F);
      ASSERT_LE(value, 1.0F);
    }
  }
}

TEST(MockSource, holds_the_inertial_units_still_under_gravity) {
  MockSource source(unpaced());
  std::array<Statistics, 3> acceleration;
  std::array<Statistics, 3> rotation;
  for (int i = 0; i < 2000; ++i) {
    for (const ImuSample& sample : source.read_frame().imu) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        acceleration[axis].add(sample.acc[axis]);
        rotation[axis].add(sample.gyro[axis]);
      }
    }
  }
  EXPECT_NEAR(acceleration[0].mean(), 0.0, 0.01);
  EXPECT_NEAR(acceleration[1].mean(), 0.0, 0.01);
  EXPECT_NEAR(acceleration[2].mean(), 1.0, 0.01);
  EXPECT_NEAR(acceleration[0].deviation(), 0.05, 0.005);
  EXPECT_NEAR(acceleration[1].deviation(), 0.05, 0.005);
  EXPECT_NEAR(acceleration[2].deviation(), 0.02, 0.002);
  for (const Statistics& axis : rotation) {
    EXPECT_NEAR(axis.mean(), 0.0, 0.1);
    EXPECT_NEAR(axis.deviation(), 0.5, 0.05);
  }
}

TEST(MockSource, draws_noise_of_its_own_in_every_source) {
  MockSource first(unpaced());
  MockSource second(unpaced());
  std::vector<float> first_gyro;
  std::vector<float> second_gyro;
  for (const ImuSample& sample : first.read_frame().imu) first_gyro.push_back(sample.gyro[0]);
  for (const ImuSample& sample : second.read_frame().imu) second_gyro.push_back(sample.gyro[0]);
  EXPECT_NE(first_gyro, second_gyro);
}

TEST(MockSource, goes_on_making_frames_after_close) {
  MockSource source(unpaced());
  EXPECT_TRUE(source.is_open());
  EXPECT_EQ(source.read_frame().seq, 0U);
  source.close();
  EXPECT_FALSE(source.is_open());
  EXPECT_EQ(source.read_frame().seq, 1U);
  EXPECT_EQ(source.read_frame().q.size(), 20U);
  source.close();
  EXPECT_FALSE(source.is_open());
  EXPECT_EQ(source.device_info().serial, "MOCK-0001");
}

TEST(MockSource, delays_the_first_frame_by_one_period) {
  MockSource source(paced(10.0F));
  const auto begin = Clock::now();
  source.read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(100));
  EXPECT_LT(Clock::now() - begin, test::kPatience);
}

TEST(MockSource, takes_a_second_for_100_frames_at_100_hz) {
  MockSource source(paced(100.0F));
  const auto begin = Clock::now();
  for (int i = 0; i < 100; ++i) source.read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(1000));
  EXPECT_LT(Clock::now() - begin, test::kPatience);
}

TEST(MockSource, truncates_the_period_to_whole_microseconds) {
  MockSource source(paced(3.0F));
  const auto begin = Clock::now();
  for (int i = 0; i < 3; ++i) source.read_frame();
  EXPECT_GE(Clock::now() - begin, microseconds(3 * 333333));
  EXPECT_LT(Clock::now() - begin, test::kPatience);
}

/// A sleep gives the processor away, which the system counts; frames that come at once do not.
TEST(MockSource, delivers_owed_frames_back_to_back) {
  const auto times_slept = [] {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
  };
  MockSource source(paced(100.0F));
  source.read_frame();
  const auto behind = Clock::now() + milliseconds(1000);
  ASSERT_TRUE(test::eventually([&] { return Clock::now() >= behind; }));
  const auto before = times_slept();
  for (int i = 0; i < 90; ++i) source.read_frame();
  EXPECT_LT(times_slept() - before, 45);
}

TEST(MockSource, takes_up_its_pace_again_after_owed_frames) {
  MockSource source(paced(50.0F));
  const auto begin = Clock::now();
  source.read_frame();
  const auto behind = Clock::now() + milliseconds(200);
  ASSERT_TRUE(test::eventually([&] { return Clock::now() >= behind; }));
  for (int i = 1; i < 30; ++i) source.read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(600));
}

extern "C" void ignore_alarm(int) {}

/// Interrupts this process's system calls every 3 ms while it lives.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = ignore_alarm;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, &before_);
    const itimerval every_3_ms{{0, 3000}, {0, 3000}};
    setitimer(ITIMER_REAL, &every_3_ms, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  ~Interruptions() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }

 private:
  struct sigaction before_ {};
};

TEST(MockSource, sleeps_on_when_a_signal_interrupts_it) {
  const Interruptions interruptions;
  MockSource source(paced(10.0F));
  const auto begin = Clock::now();
  for (int i = 0; i < 3; ++i) source.read_frame();
  EXPECT_GE(Clock::now() - begin, milliseconds(300));
}

TEST(MockSource, delivers_at_once_where_the_period_rounds_to_nothing) {
  for (const float hz : {2e6F, 1e30F, std::numeric_limits<float>::max()}) {
    MockSource source(paced(hz));
    for (std::uint64_t i = 0; i < 1000; ++i) ASSERT_EQ(source.read_frame().seq, i) << hz;
  }
}

/// A read at a rate whose period no clock can count waits: it is still waiting when the alarm ends it.
TEST(MockSourceDeathTest, waits_at_rates_too_low_for_the_clock) {
  for (const float hz : {1e-8F, 1e-10F, 1e-30F, std::numeric_limits<float>::denorm_min()}) {
    EXPECT_EXIT(
        {
          signal(SIGALRM, SIG_DFL);
          MockSource source(paced(hz));
          alarm(1);
          source.read_frame();
          _exit(0);
        },
        testing::KilledBySignal(SIGALRM), "")
        << hz;
  }
}

TEST(MockSource, refuses_to_pace_at_a_rate_that_is_none) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const std::string message = "MockSource: hz must be a positive finite number, got ";
  EXPECT_EQ(refusal_of(paced(0.0F)), message + "0");
  EXPECT_EQ(refusal_of(paced(-0.0F)), message + "-0");
  EXPECT_EQ(refusal_of(paced(-5.0F)), message + "-5");
  EXPECT_EQ(refusal_of(paced(-0.5F)), message + "-0.5");
  EXPECT_EQ(refusal_of(paced(infinity)), message + "inf");
  EXPECT_EQ(refusal_of(paced(-infinity)), message + "-inf");
  EXPECT_EQ(refusal_of(paced(nan)), message + "nan");
}

TEST(MockSource, does_not_mind_any_rate_when_it_does_not_pace) {
  for (const float hz :
       {0.0F, -5.0F, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
    MockConfig config = unpaced();
    config.hz = hz;
    MockSource source(config);
    EXPECT_EQ(source.read_frame().seq, 0U) << hz;
  }
}

}  // namespace
}  // namespace tarsil
