// The virtual hand moves like a hand, and always the same way.
#include "tools/virtual_glove/motion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <set>

namespace tarsil::virtual_glove {
namespace {

constexpr double kHz = 200;
constexpr std::uint64_t kCycles = 4000;

struct Range {
  int lowest = std::numeric_limits<int>::max();
  int highest = std::numeric_limits<int>::min();
  void take(int value) {
    lowest = std::min(lowest, value);
    highest = std::max(highest, value);
  }
};

Range joint_range(const HandMotion& motion, std::size_t joint) {
  Range range;
  for (std::uint64_t cycle = 0; cycle < kCycles; ++cycle) range.take(motion.at(cycle).joints[joint]);
  return range;
}

TEST(Motion, is_the_same_for_the_same_seed_and_cycle) {
  const HandMotion one(7, kHz);
  const HandMotion other(7, kHz);
  for (const std::uint64_t cycle : {0U, 1U, 999U, 123456789U}) EXPECT_EQ(one.at(cycle), other.at(cycle));
}

TEST(Motion, differs_between_seeds) {
  EXPECT_NE(HandMotion(1, kHz).at(100), HandMotion(2, kHz).at(100));
}

TEST(Motion, depends_on_time_and_not_on_the_number_of_cycles) {
  EXPECT_EQ(HandMotion(3, 100).at(50), HandMotion(3, 200).at(100));
}

TEST(Motion, keeps_joints_inside_human_ranges_and_uses_them) {
  const HandMotion motion(1, kHz);
  for (std::size_t joint = 0; joint < kJoints; ++joint) {
    const Range range = joint_range(motion, joint);
    const bool abduction = joint % kJointsPerFinger == 0;
    EXPECT_GE(range.lowest, abduction ? -1500 : 0) << joint;
    EXPECT_LE(range.highest, abduction ? 1500 : 9000) << joint;
    EXPECT_GT(range.highest - range.lowest, abduction ? 2000 : 3000) << joint;
  }
}

TEST(Motion, is_smooth_from_cycle_to_cycle) {
  const HandMotion motion(5, kHz);
  HandSample before = motion.at(0);
  for (std::uint64_t cycle = 1; cycle < kCycles; ++cycle) {
    const HandSample now = motion.at(cycle);
    for (std::size_t joint = 0; joint < kJoints; ++joint) {
      ASSERT_LE(std::abs(now.joints[joint] - before.joints[joint]), 150) << joint << " in cycle " << cycle;
    }
    before = now;
  }
}

TEST(Motion, bends_the_last_joint_with_the_middle_one) {
  const HandMotion motion(9, kHz);
  for (std::uint64_t cycle = 0; cycle < kCycles; cycle += 37) {
    const HandSample sample = motion.at(cycle);
    for (std::size_t finger = 0; finger < kFingers; ++finger) {
      const double pip = sample.joints[finger * kJointsPerFinger + 2];
      const double dip = sample.joints[finger * kJointsPerFinger + 3];
      EXPECT_NEAR(dip, pip * 2 / 3, 1.0);
    }
  }
}

TEST(Motion, presses_and_releases_every_pad) {
  const HandMotion motion(1, kHz);
  std::array<Range, kPads> ranges;
  for (std::uint64_t cycle = 0; cycle < kCycles; ++cycle) {
    const HandSample sample = motion.at(cycle);
    for (std::size_t pad = 0; pad < kPads; ++pad) ranges[pad].take(sample.pads[pad]);
  }
  for (const Range& range : ranges) {
    EXPECT_EQ(range.lowest, 0);
    EXPECT_GE(range.highest, 90);
    EXPECT_LE(range.highest, 100);
  }
}

TEST(Motion, shows_one_gravity_that_tilts_slowly) {
  const HandMotion motion(1, kHz);
  Range roll_rate;
  for (std::uint64_t cycle = 0; cycle < kCycles; cycle += 11) {
    for (const auto& unit : motion.at(cycle).imu) {
      EXPECT_NEAR(std::hypot(unit[0], unit[1], unit[2]), 100.0, 1.5);
      EXPECT_GT(unit[2], 70);
      EXPECT_EQ(unit[5], 0);
      roll_rate.take(unit[3]);
    }
  }
  EXPECT_GT(roll_rate.highest, 500);
  EXPECT_LT(roll_rate.highest, 3000);
  EXPECT_LT(roll_rate.lowest, -500);
}

TEST(Motion, reports_sensors_in_order_and_a_temperature_per_segment) {
  const HandSample sample = HandMotion(1, kHz).at(500);
  for (std::size_t finger = 0; finger < kFingers; ++finger) {
    EXPECT_EQ(sample.status[finger] & 0xFF, 0x0F);
    EXPECT_NEAR(sample.status[finger] >> 8, 31.0 + static_cast<double>(finger), 2.0);
  }
}

TEST(Motion, stuck_joint_reads_one_value_and_leaves_the_others_alone) {
  const HandMotion healthy(1, kHz);
  const HandMotion worn(1, kHz, {{6, DefectKind::stuck, 12.34}});
  for (std::uint64_t cycle = 0; cycle < kCycles; cycle += 101) {
    HandSample expected = healthy.at(cycle);
    expected.joints[6] = 1234;
    EXPECT_EQ(worn.at(cycle), expected);
  }
}

TEST(Motion, noisy_joint_scatters_around_the_true_angle_and_repeats_exactly) {
  const HandMotion healthy(1, kHz);
  const HandMotion worn(1, kHz, {{3, DefectKind::noisy, 2.0}});
  const HandMotion again(1, kHz, {{3, DefectKind::noisy, 2.0}});
  Range error;
  std::set<int> errors;
  for (std::uint64_t cycle = 0; cycle < kCycles; ++cycle) {
    const int difference = worn.at(cycle).joints[3] - healthy.at(cycle).joints[3];
    error.take(difference);
    errors.insert(difference);
    ASSERT_EQ(worn.at(cycle), again.at(cycle));
  }
  EXPECT_GE(error.lowest, -201);
  EXPECT_LT(error.lowest, -180);
  EXPECT_GT(error.highest, 180);
  EXPECT_LE(error.highest, 201);
  EXPECT_GT(errors.size(), 300U);
}

TEST(Motion, joint_with_backlash_lags_by_half_the_play_and_rattles_where_it_turns) {
  const HandMotion healthy(1, kHz);
  const HandMotion worn(1, kHz, {{1, DefectKind::backlash, 4.0}});
  std::uint64_t lagging = 0;
  std::uint64_t reversals = 0;
  int last_step = 0;
  for (std::uint64_t cycle = 1; cycle < kCycles; ++cycle) {
    const int error = worn.at(cycle).joints[1] - healthy.at(cycle).joints[1];
    ASSERT_NEAR(std::abs(error), 200, 1);
    const int motion = healthy.at(cycle).joints[1] - healthy.at(cycle - 1).joints[1];
    if (motion * error < 0) ++lagging;
    const int step = worn.at(cycle).joints[1] - worn.at(cycle - 1).joints[1];
    if (std::abs(step) > 200 && std::abs(last_step) > 200 && (step > 0) != (last_step > 0)) ++reversals;
    last_step = step;
  }
  EXPECT_GT(lagging, kCycles * 9 / 10);
  EXPECT_GT(reversals, 20U);
}

}  // namespace
}  // namespace tarsil::virtual_glove
