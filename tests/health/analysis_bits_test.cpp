// The analysis to the bit: hard series with their results as bit patterns, and tens of thousands of random
// ones against the plain analysis.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tarsil/health/analysis.h"
#include "tests/health/plain_analysis.h"

namespace tarsil {

namespace {

using test::bits;
using test::plain_analysis;

struct HardSeries {
  const char* name;
  std::vector<std::uint32_t> samples;
  std::uint32_t noise_rms;
  std::uint32_t backlash;
  std::int32_t dropouts;
  std::uint32_t score;
};

std::vector<HardSeries> hard_series() {
  return {
      {"a sum in which order decides",
       {0x4CBEBC20, 0x3F800000, 0xCCBEBC20, 0x3F800000, 0x4CBEBC20, 0xCCBEBC20, 0x3F800000},
       0x4C902E98,
       0x4CFE502B,
       0,
       0x3E800000},
      {"a mean that rounds away",
       {0x4B800000, 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000,
        0x3F800000, 0x3F800000},
       0x4A999999,
       0x00000000,
       1,
       0x3EB33333},
      {"steps of a tenth",
       {0x3DCCCCCD, 0x3E4CCCCD, 0x3E99999A, 0x3ECCCCCD, 0x3F000000, 0x3F19999A, 0x3F333333, 0x3F4CCCCD,
        0x3F666666, 0x3F800000, 0x3F666666, 0x3F4CCCCD},
       0x3E9250F1,
       0x3DCCCCD0,
       0,
       0x3E800000},
      {"a hand in smooth motion",
       {0x3F000000, 0x3F00D66E, 0x3F019541, 0x3F022777, 0x3F027CF8, 0x3F028C5A, 0x3F0253EB, 0x3F01D9E2,
        0x3F012BAE, 0x3F005C7C, 0x3EFF0638, 0x3EFD6EF7, 0x3EFC200B, 0x3EFB3E52},
       0x3BCD7CE3,
       0x00000000,
       0,
       0x3F665064},
      {"scatter of a milliradian",
       {0x3F331C1C, 0x3F330570, 0x3F3346FC, 0x3F32FB29, 0x3F3337E7, 0x3F332198, 0x3F32F944, 0x3F33342D,
        0x3F32F694, 0x3F332A81, 0x3F32FAD2, 0x3F32FD8E, 0x3F33294E, 0x3F335E0B, 0x3F3301E4, 0x3F330EED},
       0x39F4D5A0,
       0x00000000,
       0,
       0x3F7E1655},
      {"scatter of ten milliradians",
       {0x3F33DA3B, 0x3F357E05, 0x3F339843, 0x3F32ABC7, 0x3F35A370, 0x3F30E0E6, 0x3F35090D, 0x3F321F70,
        0x3F3160EB, 0x3F313E3C, 0x3F32382C, 0x3F34D18E, 0x3F3190B9, 0x3F339E28, 0x3F33E947, 0x3F328BF3},
       0x3BC13BDE,
       0x3C492477,
       0,
       0x3F558332},
      {"zigzag of ten milliradians",
       {0x00000000, 0x3C23D70A, 0x00000000, 0x3C23D70A, 0x00000000, 0x3C23D70A, 0x00000000, 0x3C23D70A,
        0x00000000, 0x3C23D70A, 0x00000000, 0x3C23D70A},
       0x3BA3D70A,
       0x3C23D709,
       0,
       0x3F5C9630},
      {"zigzag that grows",
       {0xBB83126F, 0x3C03126F, 0xBC449BA6, 0x3C83126F, 0xBCA3D70A, 0x3CC49BA6, 0xBCE56042, 0x3D03126F,
        0xBD1374BC, 0x3D23D70A},
       0x3CCAA8AD,
       0x3D449BA6,
       0,
       0x3EA5FB2A},
      {"three stuck stretches",
       {0x3DCCCCCD, 0x3DCCCCCD, 0x3DCCCCCD, 0x3E4CCCCD, 0x3E4CCCCD, 0x3E4CCCCD, 0x3E4CCCCD, 0x3E99999A,
        0x3E99999A, 0x3ECCCCCD, 0x3ECD013B, 0x3ECD35A8, 0x3ECD6A16},
       0x3DEC4341,
       0x00000000,
       3,
       0x3EB33333},
      {"a creep below the stuck step",
       {0x00000000, 0x39D1B717, 0x3A51B717, 0x3A9D4952, 0x3AD1B717, 0x3B03126F, 0x3B1D4952, 0x3B378034,
        0x3B51B717, 0x3B6BEDFA, 0x3B83126F, 0x3B902DE0},
       0x3AB4FCAB,
       0x00000000,
       1,
       0x3F3A581B},
      {"steps of exactly 3 mrad, and one above",
       {0x00000000, 0x3B449BA6, 0x00000000, 0x3B449BA6, 0x00000000, 0x3B449BA7, 0x00000000},
       0x3AC2976B,
       0x3B449BA7,
       0,
       0x3F757064},
      {"steps of exactly half a mrad, and two below",
       {0x00000000, 0x3A03126F, 0x00000000, 0x3A03126F, 0x00000000, 0x3A03126E, 0x00000000, 0x3A03126F},
       0x3983126F,
       0x00000000,
       1,
       0x3F3EF9DB},
      {"denormals",
       {0x00000001, 0x80000001, 0x007FFFFF, 0x00000000, 0x00400000, 0x00000003},
       0x00000000,
       0x00000000,
       1,
       0x3F400000},
      {"denormal squares",
       {0x1E3CE508, 0x9E3CE508, 0x1F0DABC6, 0x99C16D9A, 0x1AF1C901},
       0x1E800C5F,
       0x00000000,
       1,
       0x3F400000},
      {"signed zeros",
       {0x00000000, 0x80000000, 0x00000000, 0x80000000},
       0x00000000,
       0x00000000,
       1,
       0x3F400000},
      {"one that is no number",
       {0x3DCCCCCD, 0x7FC00000, 0x3E99999A, 0x3DCCCCCD, 0x3DCCCCCD, 0x3DCCCCCD},
       0x7FC00000,
       0x00000000,
       1,
       0x3F400000},
      {"nothing but no numbers",
       {0x7FC00000, 0x7FC00000, 0x7FC00000, 0x7FC00000},
       0x7FC00000,
       0x00000000,
       0,
       0x3F800000},
      {"one infinity",
       {0x3DCCCCCD, 0x7F800000, 0x3DCCCCCD, 0x3E4CCCCD, 0x3E4CCCCD, 0x3E4CCCCD},
       0x7FC00000,
       0x7F800000,
       1,
       0x3ECCCCCD},
      {"both infinities",
       {0x7F800000, 0xFF800000, 0x7F800000, 0xFF800000},
       0x7FC00000,
       0x7F800000,
       0,
       0x3F266666},
      {"infinity that stays",
       {0x7F800000, 0x7F800000, 0x7F800000, 0x7F800000},
       0x7FC00000,
       0x00000000,
       0,
       0x3F800000},
      {"squares that overflow", {0x60AD78EC, 0xE0AD78EC, 0x60AD78EC}, 0x7F800000, 0x612D78EC, 0, 0x3E800000},
      {"a sum that overflows",
       {0x7F61B1E6, 0x7F61B1E6, 0xFF61B1E6, 0x00000000},
       0x7F800000,
       0x7F61B1E6,
       0,
       0x3E800000},
      {"differences that overflow",
       {0x7F61B1E6, 0xFF61B1E6, 0x7F61B1E6, 0xFF61B1E6},
       0x7F800000,
       0x7F800000,
       0,
       0x3E800000},
  };
}

std::vector<Frame> frames_of(const std::vector<std::uint32_t>& samples) {
  std::vector<Frame> frames(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) frames[i].q = {std::bit_cast<float>(samples[i])};
  return frames;
}

DeviceInfo glove_with(std::int32_t joints) {
  DeviceInfo info;
  info.n_dofs = joints;
  return info;
}

TEST(AnalysisBits, hard_series_give_these_bits) {
  for (const HardSeries& hard : hard_series()) {
    SCOPED_TRACE(hard.name);
    const HealthReport report = analyze_health(frames_of(hard.samples), glove_with(1));
    ASSERT_EQ(report.joints.size(), 1U);
    const JointHealth& joint = report.joints[0];
    EXPECT_EQ(bits(joint.noise_rms), hard.noise_rms);
    EXPECT_EQ(bits(joint.backlash), hard.backlash);
    EXPECT_EQ(joint.dropouts, hard.dropouts);
    EXPECT_EQ(bits(joint.score), hard.score);
    EXPECT_EQ(bits(report.overall_score), hard.score);
  }
}

/// Writes down a joint that does everything that joints do wrong, in random order.
class WornJoint {
 public:
  explicit WornJoint(std::mt19937& random) : random_(&random), value_(uniform(-1.5F, 1.5F)) {}

  float next() {
    if (left_ == 0) {
      habit_ = between(0, kHabits - 1);
      left_ = between(1, 12);
    }
    --left_;
    return step();
  }

 private:
  static constexpr int kHabits = 10;

  int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(*random_); }
  float uniform(float low, float high) { return std::uniform_real_distribution<float>(low, high)(*random_); }
  float sign() { return between(0, 1) == 0 ? -1.0F : 1.0F; }

  float step() {
    constexpr std::array<float, 8> kEdges{0.003F, 0.0005F, 0.0030000003F, 0.00049999997F,
                                          0.025F, 0.06F,   0.0F,          0.01F};
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr std::array<float, 10> kWild{std::numeric_limits<float>::quiet_NaN(),
                                          kInfinity,
                                          -kInfinity,
                                          std::numeric_limits<float>::max(),
                                          std::numeric_limits<float>::lowest(),
                                          std::numeric_limits<float>::min(),
                                          std::numeric_limits<float>::denorm_min(),
                                          -std::numeric_limits<float>::denorm_min(),
                                          -0.0F,
                                          1e20F};
    switch (habit_) {
      case 0:  // smooth motion
      case 1:
        return value_ += uniform(0.0F, 0.02F);
      case 2:  // noise
        return value_ + uniform(-0.03F, 0.03F);
      case 3:  // rattling
        return value_ += sign() * uniform(0.0F, 0.1F);
      case 4:  // stuck
        return value_;
      case 5:  // nearly stuck
        return value_ += uniform(-0.0006F, 0.0006F);
      case 6:  // around nothing, where a difference is exactly the step
        return between(0, 1) == 0 ? 0.0F : sign() * kEdges[static_cast<std::size_t>(between(0, 7))];
      case 7:  // steps at the limits
        return value_ += sign() * kEdges[static_cast<std::size_t>(between(0, 7))];
      case 8:  // any bits at all, seldom
        return between(0, 9) == 0 ? std::bit_cast<float>(static_cast<std::uint32_t>((*random_)())) : value_;
      default:  // what no angle can be, seldom
        return between(0, 9) == 0 ? kWild[static_cast<std::size_t>(between(0, 9))] : value_;
    }
  }

  std::mt19937* random_;
  float value_;
  int habit_ = 0;
  int left_ = 0;
};

std::vector<Frame> random_frames(std::mt19937& random, std::size_t joints) {
  const auto draw = [&random](std::size_t low, std::size_t high) {
    return std::uniform_int_distribution<std::size_t>(low, high)(random);
  };
  std::vector<WornJoint> hand(joints, WornJoint(random));
  std::vector<Frame> frames(draw(0, 3) == 0 ? draw(0, 5) : draw(0, 80));
  const bool gaps = draw(0, 1) == 0;
  for (Frame& frame : frames) {
    const std::size_t carried = gaps && draw(0, 4) == 0 ? draw(0, joints) : joints;
    for (std::size_t d = 0; d < carried; ++d) frame.q.push_back(hand[d].next());
  }
  return frames;
}

TEST(AnalysisBits, agree_with_a_plain_analysis_on_random_series) {
  constexpr int kGloves = 4000;
  constexpr std::size_t kJoints = 12;
  std::mt19937 random(20);
  for (int glove = 0; glove < kGloves; ++glove) {
    SCOPED_TRACE("glove " + std::to_string(glove));
    const std::vector<Frame> frames = random_frames(random, kJoints);
    const HealthReport expected = plain_analysis(frames, kJoints);
    const HealthReport report = analyze_health(frames, glove_with(kJoints));
    ASSERT_EQ(report.joints.size(), expected.joints.size());
    for (std::size_t d = 0; d < expected.joints.size(); ++d) {
      SCOPED_TRACE("joint " + std::to_string(d));
      ASSERT_EQ(report.joints[d].dof, expected.joints[d].dof);
      ASSERT_EQ(bits(report.joints[d].noise_rms), bits(expected.joints[d].noise_rms));
      ASSERT_EQ(bits(report.joints[d].backlash), bits(expected.joints[d].backlash));
      ASSERT_EQ(report.joints[d].dropouts, expected.joints[d].dropouts);
      ASSERT_EQ(bits(report.joints[d].score), bits(expected.joints[d].score));
    }
    ASSERT_EQ(bits(report.overall_score), bits(expected.overall_score));
  }
}

}  // namespace

}  // namespace tarsil
