// The health analysis once more, written as plainly as its definition reads: every step in a loop of its own,
// every intermediate result in a variable. What holds the fast one to the bit.
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/health/analysis.h"

namespace tarsil::test {

/// The bit pattern of a value. Which of the many patterns stands for "no number" is the processor's affair,
/// so one stands here for all.
inline std::uint32_t bits(float value) {
  constexpr std::uint32_t kNoNumber = 0x7FC00000;
  return std::isnan(value) ? kNoNumber : std::bit_cast<std::uint32_t>(value);
}

inline float plain_clamp(float value) {
  if (value < 1.0F) {
    if (value > 0.0F) return value;
    return 0.0F;
  }
  return 1.0F;
}

inline float plain_noise(const std::vector<float>& x) {
  const auto n = static_cast<float>(x.size());
  float sum = 0.0F;
  for (std::size_t i = 0; i < x.size(); ++i) sum = sum + x[i];
  const float mean = sum / n;
  float squares = 0.0F;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const float difference = x[i] - mean;
    const float square = difference * difference;
    squares = squares + square;
  }
  const float variance = squares / n;
  return std::sqrt(variance);
}

inline float plain_backlash(const std::vector<float>& x) {
  std::vector<float> recorded;
  for (std::size_t i = 2; i < x.size(); ++i) {
    const float d1 = x[i - 1] - x[i - 2];
    const float d2 = x[i] - x[i - 1];
    if (d1 > 0.003F && d2 < -0.003F) recorded.push_back(-d2);
    if (d1 < -0.003F && d2 > 0.003F) recorded.push_back(d2);
  }
  if (recorded.empty()) return 0.0F;
  float sum = 0.0F;
  for (const float size : recorded) sum = sum + size;
  return sum / static_cast<float>(recorded.size());
}

inline std::int32_t plain_dropouts(const std::vector<float>& x) {
  std::int32_t count = 0;
  int run = 1;
  for (std::size_t i = 1; i < x.size(); ++i) {
    const float step = x[i] - x[i - 1];
    if (step < 0.0005F && step > -0.0005F) {
      run = run + 1;
      if (run == 3) count = count + 1;
    } else {
      run = 1;
    }
  }
  return count;
}

inline JointHealth plain_joint(const std::vector<float>& x, std::size_t index, std::size_t frames) {
  JointHealth joint;
  if (x.empty()) return joint;
  joint.dof = static_cast<std::int32_t>(index);
  if (x.size() >= 2) joint.noise_rms = plain_noise(x);
  if (x.size() >= 3) joint.backlash = plain_backlash(x);
  if (x.size() >= 3) joint.dropouts = plain_dropouts(x);
  const float noise_ratio = joint.noise_rms / 0.025F;
  const float backlash_ratio = joint.backlash / 0.06F;
  const float allowance = 0.05F * static_cast<float>(frames);
  const float dropout_ratio = static_cast<float>(joint.dropouts) / allowance;
  const float noise_term = 0.4F * plain_clamp(1.0F - noise_ratio);
  const float backlash_term = 0.35F * plain_clamp(1.0F - backlash_ratio);
  const float dropout_term = 0.25F * plain_clamp(1.0F - dropout_ratio);
  const float first_two = noise_term + backlash_term;
  joint.score = first_two + dropout_term;
  return joint;
}

inline HealthReport plain_analysis(const std::vector<Frame>& frames, std::size_t joints) {
  HealthReport report;
  report.overall_score = 1.0F;
  if (frames.empty() || joints == 0) return report;
  float sum = 0.0F;
  for (std::size_t d = 0; d < joints; ++d) {
    std::vector<float> x;
    for (const Frame& frame : frames) {
      if (frame.q.size() > d) x.push_back(frame.q[d]);
    }
    report.joints.push_back(plain_joint(x, d, frames.size()));
    sum = sum + report.joints[d].score;
  }
  report.overall_score = sum / static_cast<float>(joints);
  return report;
}

}  // namespace tarsil::test
