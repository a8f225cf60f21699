// What the analysis says about joints whose defects are known.
#include "tarsil/health/analysis.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

namespace tarsil {

namespace {

/// Frames of a glove with one joint.
std::vector<Frame> frames_of(const std::vector<float>& samples) {
  std::vector<Frame> frames(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) frames[i].q = {samples[i]};
  return frames;
}

DeviceInfo glove_with(std::int32_t joints) {
  DeviceInfo info;
  info.serial = "TSL-R-000042";
  info.firmware = "2.7";
  info.n_dofs = joints;
  return info;
}

/// The only joint of a glove that delivered this.
JointHealth joint_of(const std::vector<float>& samples) {
  return analyze_health(frames_of(samples), glove_with(1)).joints.at(0);
}

/// Turns back and forth with every sample.
std::vector<float> zigzag(float low, float high, std::size_t count) {
  std::vector<float> samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = i % 2 == 0 ? low : high;
  return samples;
}

double seconds_now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

TEST(Analysis, no_frames_give_no_joints_and_a_full_overall_score) {
  const HealthReport report = analyze_health({}, glove_with(20));
  EXPECT_TRUE(report.joints.empty());
  EXPECT_EQ(report.overall_score, 1.0F);
  EXPECT_EQ(report.frames_analyzed, 0);
  EXPECT_EQ(report.device_serial, "TSL-R-000042");
  EXPECT_EQ(report.device_firmware, "2.7");
}

TEST(Analysis, no_announced_joints_give_no_joints_and_a_full_overall_score) {
  const HealthReport report = analyze_health(frames_of({0.1F, 0.2F, 0.3F}), glove_with(0));
  EXPECT_TRUE(report.joints.empty());
  EXPECT_EQ(report.overall_score, 1.0F);
  EXPECT_EQ(report.frames_analyzed, 3);
}

TEST(Analysis, names_the_glove_and_the_time) {
  const double before = seconds_now();
  const HealthReport report = analyze_health(frames_of({0.1F}), glove_with(1));
  const double after = seconds_now();
  EXPECT_GE(report.timestamp, before - 1e-3);
  EXPECT_LE(report.timestamp, after + 1e-3);
  EXPECT_EQ(report.frames_analyzed, 1);
  EXPECT_EQ(report.device_serial, "TSL-R-000042");
  EXPECT_EQ(report.device_firmware, "2.7");
}

TEST(Analysis, time_carries_a_fraction) {
  bool fraction = false;
  for (int i = 0; i < 20; ++i) {
    const double time = analyze_health({}, glove_with(1)).timestamp;
    if (time != std::floor(time)) fraction = true;
  }
  EXPECT_TRUE(fraction);
}

TEST(Analysis, takes_part_of_a_larger_collection) {
  const std::vector<Frame> frames = frames_of({9.0F, 0.5F, 0.5F, 0.5F, 9.0F});
  const HealthReport report = analyze_health(std::span(frames).subspan(1, 3), glove_with(1));
  EXPECT_EQ(report.frames_analyzed, 3);
  EXPECT_EQ(report.joints.at(0).noise_rms, 0.0F);
  EXPECT_EQ(frames[0].q[0], 9.0F);
}

TEST(Analysis, joints_stand_in_the_order_of_their_indices) {
  Frame frame;
  frame.q = {0.1F, 0.2F, 0.3F};
  const HealthReport report = analyze_health(std::vector(4, frame), glove_with(3));
  ASSERT_EQ(report.joints.size(), 3U);
  for (std::int32_t d = 0; d < 3; ++d) EXPECT_EQ(report.joints[static_cast<std::size_t>(d)].dof, d);
}

TEST(Analysis, angles_beyond_the_announced_joints_are_not_looked_at) {
  Frame frame;
  frame.q = {0.1F, 0.2F, 0.3F};
  EXPECT_EQ(analyze_health(std::vector(4, frame), glove_with(2)).joints.size(), 2U);
}

TEST(Analysis, joint_without_data_stays_all_zero_its_index_included) {
  Frame frame;
  frame.q = {0.1F, 0.2F};
  const HealthReport report = analyze_health(std::vector{frame}, glove_with(5));
  ASSERT_EQ(report.joints.size(), 5U);
  EXPECT_EQ(report.joints[1].dof, 1);
  EXPECT_EQ(report.joints[1].score, 1.0F);
  for (std::size_t d = 2; d < 5; ++d) {
    EXPECT_EQ(report.joints[d].dof, 0);
    EXPECT_EQ(report.joints[d].score, 0.0F);
    EXPECT_EQ(report.joints[d].noise_rms, 0.0F);
    EXPECT_EQ(report.joints[d].backlash, 0.0F);
    EXPECT_EQ(report.joints[d].dropouts, 0);
  }
}

TEST(Analysis, joints_without_data_pull_the_overall_score_down) {
  Frame frame;
  frame.q = {0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0.7F, 0.8F};
  EXPECT_EQ(analyze_health(std::vector{frame}, glove_with(10)).overall_score, 0.8F);
}

TEST(Analysis, single_sample_scores_exactly_one) {
  const JointHealth joint = joint_of({0.7F});
  EXPECT_EQ(joint.score, 1.0F);
  EXPECT_EQ(joint.noise_rms, 0.0F);
  EXPECT_EQ(joint.backlash, 0.0F);
  EXPECT_EQ(joint.dropouts, 0);
  EXPECT_EQ(joint_of({std::numeric_limits<float>::quiet_NaN()}).score, 1.0F);
}

TEST(Analysis, two_samples_can_only_be_noisy) {
  const JointHealth still = joint_of({0.5F, 0.5F});
  EXPECT_EQ(still.score, 1.0F);
  EXPECT_EQ(still.dropouts, 0);
  const JointHealth joint = joint_of({0.0F, 0.01F});
  EXPECT_EQ(joint.noise_rms, 0.005F);
  EXPECT_EQ(joint.backlash, 0.0F);
  EXPECT_EQ(joint.dropouts, 0);
  EXPECT_EQ(joint.score, 0.92F);
}

TEST(Analysis, noise_is_the_standard_deviation_over_the_population) {
  // Mean 0.5, squared differences 0.25, 0, 0.25 and 0: a variance of 0.125.
  EXPECT_EQ(joint_of({0.0F, 0.5F, 1.0F, 0.5F}).noise_rms, 0.35355339F);
}

TEST(Analysis, constant_series_is_one_dropout) {
  const JointHealth joint = joint_of(std::vector(500, 0.5F));
  EXPECT_EQ(joint.noise_rms, 0.0F);
  EXPECT_EQ(joint.backlash, 0.0F);
  EXPECT_EQ(joint.dropouts, 1);
  EXPECT_EQ(joint.score, 0.99F);
}

TEST(Analysis, alternating_series_reverses_with_every_sample_from_the_third_on) {
  const JointHealth joint = joint_of(zigzag(0.0F, 0.01F, 500));
  EXPECT_NEAR(joint.backlash, 0.01F, 1e-7F);
  EXPECT_EQ(joint.dropouts, 0);
  // Noise of 5 mrad costs 0.08, backlash of 10 mrad a sixth of 0.35.
  EXPECT_NEAR(joint.score, 0.4F * 0.8F + 0.35F * (1.0F - 0.01F / 0.06F) + 0.25F, 1e-6F);
  // Exact sizes, for a step that has no rounding.
  EXPECT_EQ(joint_of(zigzag(0.0F, 0.03125F, 100)).backlash, 0.03125F);
}

TEST(Analysis, backlash_is_the_mean_step_after_the_turns) {
  // Turns at 0.5 and at 0.25; the steps after them are 0.25 and 0.125.
  EXPECT_EQ(joint_of({0.0F, 0.5F, 0.25F, 0.375F, 0.5F}).backlash, 0.1875F);
}

TEST(Analysis, steps_on_both_sides_of_a_turn_have_to_be_large) {
  EXPECT_EQ(joint_of({0.0F, 0.5F, 0.498F}).backlash, 0.0F);
  EXPECT_EQ(joint_of({0.0F, 0.002F, -0.5F}).backlash, 0.0F);
  EXPECT_EQ(joint_of({0.0F, 0.5F, 0.5F, 0.0F}).backlash, 0.0F);
  EXPECT_EQ(joint_of({0.0F, 0.25F, 0.5F, 0.75F}).backlash, 0.0F);
}

TEST(Analysis, steps_of_exactly_three_milliradians_are_no_reversal) {
  EXPECT_EQ(joint_of({0.0F, 0.003F, 0.0F}).backlash, 0.0F);
  EXPECT_EQ(joint_of({0.0F, -0.003F, 0.0F}).backlash, 0.0F);
  const float more = std::nextafter(0.003F, 1.0F);
  EXPECT_EQ(joint_of({0.0F, more, 0.0F}).backlash, more);
  EXPECT_EQ(joint_of({0.0F, -more, 0.0F}).backlash, more);
}

TEST(Analysis, steps_of_exactly_half_a_milliradian_are_not_stuck) {
  EXPECT_EQ(joint_of({0.0F, 0.0005F, 0.0F, 0.0005F}).dropouts, 0);
  const float less = std::nextafter(0.0005F, 0.0F);
  EXPECT_EQ(joint_of({0.0F, less, 0.0F}).dropouts, 1);
  EXPECT_EQ(joint_of({0.0F, -less, 0.0F}).dropouts, 1);
}

TEST(Analysis, two_flat_steps_make_a_dropout) {
  EXPECT_EQ(joint_of({0.1F, 0.2F, 0.2F, 0.3F}).dropouts, 0);
  EXPECT_EQ(joint_of({0.1F, 0.2F, 0.2F, 0.2F, 0.3F}).dropouts, 1);
}

TEST(Analysis, stuck_stretch_counts_once_however_long_it_lasts) {
  EXPECT_EQ(joint_of(std::vector(1000, 0.2F)).dropouts, 1);
}

TEST(Analysis, every_stuck_stretch_counts) {
  EXPECT_EQ(joint_of({0.1F, 0.1F, 0.1F, 0.2F, 0.2F, 0.2F, 0.3F, 0.3F, 0.4F, 0.4F, 0.4F, 0.4F}).dropouts, 3);
}

TEST(Analysis, stuck_is_a_matter_of_neighbours) {
  // Creeps away from where it started, but never far from its predecessor.
  EXPECT_EQ(joint_of({0.0F, 0.0004F, 0.0008F, 0.0012F, 0.0016F}).dropouts, 1);
}

TEST(Analysis, one_dropout_in_ten_frames_costs_the_whole_term) {
  EXPECT_EQ(joint_of(std::vector(10, 0.5F)).score, 0.75F);
}

TEST(Analysis, dropout_allowance_goes_by_all_frames) {
  // The joint is in half of the 40 frames: one dropout of an allowance of two, not of one.
  std::vector<Frame> frames = frames_of(std::vector(20, 0.5F));
  frames.resize(40);
  const HealthReport report = analyze_health(frames, glove_with(1));
  EXPECT_EQ(report.frames_analyzed, 40);
  EXPECT_EQ(report.joints.at(0).dropouts, 1);
  EXPECT_EQ(report.joints.at(0).score, 0.875F);
}

TEST(Analysis, noise_from_the_limit_on_costs_the_whole_term) {
  EXPECT_EQ(joint_of({0.0F, 0.05F}).noise_rms, 0.025F);
  EXPECT_EQ(joint_of({0.0F, 0.05F}).score, 0.6F);
  EXPECT_EQ(joint_of({0.0F, 1.5F}).score, 0.6F);
}

TEST(Analysis, backlash_from_the_limit_on_costs_the_whole_term) {
  // Three samples so far apart are noise as well: what remains is the term of the dropouts.
  const JointHealth at_limit = joint_of({0.0F, 0.06F, 0.0F});
  EXPECT_EQ(at_limit.backlash, 0.06F);
  EXPECT_EQ(at_limit.score, 0.25F);
  EXPECT_EQ(joint_of({0.0F, 0.75F, 0.0F}).score, 0.25F);
}

TEST(Analysis, frames_that_lack_the_joint_are_neither_samples_nor_dropouts) {
  std::vector<Frame> frames;
  for (const float value : {0.25F, 0.5F, 0.25F, 0.5F}) {
    frames.emplace_back().q = {0.0F, value};
    frames.emplace_back().q = {0.0F};
    frames.emplace_back();
  }
  const HealthReport report = analyze_health(frames, glove_with(2));
  EXPECT_EQ(report.joints.at(0).dropouts, 1);
  EXPECT_EQ(report.joints.at(1).dropouts, 0);
  EXPECT_EQ(report.joints.at(1).noise_rms, 0.125F);
  EXPECT_EQ(report.joints.at(1).backlash, 0.25F);
}

TEST(Analysis, stale_frames_are_samples_like_others) {
  std::vector<Frame> frames = frames_of({0.1F, 0.2F, 0.2F, 0.2F});
  for (std::size_t i = 2; i < 4; ++i) frames[i].stale = true;
  const HealthReport report = analyze_health(frames, glove_with(1));
  EXPECT_EQ(report.frames_analyzed, 4);
  EXPECT_EQ(report.joints.at(0).dropouts, 1);
}

TEST(Analysis, ratio_that_is_no_number_earns_its_whole_term) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const JointHealth joint = joint_of({0.1F, nan, 0.3F, 0.5F});
  EXPECT_TRUE(std::isnan(joint.noise_rms));
  EXPECT_EQ(joint.backlash, 0.0F);
  EXPECT_EQ(joint.dropouts, 0);
  EXPECT_EQ(joint.score, 1.0F);
}

TEST(Analysis, overall_score_is_the_mean_of_the_joints) {
  std::vector<Frame> frames;
  for (int i = 0; i < 10; ++i) {
    const float step = static_cast<float>(i % 2);
    frames.emplace_back().q = {0.5F, step, 0.5F, 0.5F};
  }
  const HealthReport report = analyze_health(frames, glove_with(4));
  EXPECT_EQ(report.joints.at(0).score, 0.75F);
  EXPECT_EQ(report.joints.at(1).score, 0.25F);
  EXPECT_EQ(report.overall_score, 0.625F);
}

TEST(Analysis, forgets_one_batch_before_the_next) {
  const std::vector<Frame> noisy = frames_of(zigzag(0.0F, 1.0F, 50));
  const std::vector<Frame> still = frames_of({0.5F, 0.5F});
  EXPECT_LT(analyze_health(noisy, glove_with(1)).overall_score, 0.5F);
  EXPECT_EQ(analyze_health(still, glove_with(1)).overall_score, 1.0F);
}

}  // namespace

}  // namespace tarsil
