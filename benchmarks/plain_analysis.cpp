// One pass over the frames for each joint, and a few over its series.
#include "benchmarks/plain_analysis.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace tarsil::benchmarks {

namespace {

float clamp(float value) {
  if (value < 1.0F) return value > 0.0F ? value : 0.0F;
  return 1.0F;
}

float noise_of(const std::vector<float>& x) {
  float sum = 0.0F;
  for (const float value : x) sum += value;
  const float mean = sum / static_cast<float>(x.size());
  float squares = 0.0F;
  for (const float value : x) squares += (value - mean) * (value - mean);
  return std::sqrt(squares / static_cast<float>(x.size()));
}

float backlash_of(const std::vector<float>& x) {
  std::vector<float> steps;
  for (std::size_t i = 2; i < x.size(); ++i) {
    const float before = x[i - 1] - x[i - 2];
    const float after = x[i] - x[i - 1];
    if ((before > 0.003F && after < -0.003F) || (before < -0.003F && after > 0.003F)) {
      steps.push_back(std::fabs(after));
    }
  }
  if (steps.empty()) return 0.0F;
  float sum = 0.0F;
  for (const float step : steps) sum += step;
  return sum / static_cast<float>(steps.size());
}

std::int32_t dropouts_of(const std::vector<float>& x) {
  std::int32_t count = 0;
  int run = 1;
  for (std::size_t i = 1; i < x.size(); ++i) {
    if (std::fabs(x[i] - x[i - 1]) < 0.0005F) {
      if (++run == 3) ++count;
    } else {
      run = 1;
    }
  }
  return count;
}

}  // namespace

HealthReport analyze_plainly(std::span<const Frame> frames, std::int32_t n_dofs) {
  HealthReport report;
  report.overall_score = 1.0F;
  report.frames_analyzed = static_cast<std::int32_t>(frames.size());
  if (frames.empty() || n_dofs <= 0) return report;
  report.joints.resize(static_cast<std::size_t>(n_dofs));
  for (std::size_t d = 0; d < report.joints.size(); ++d) {
    std::vector<float> x;
    x.reserve(frames.size());
    for (const Frame& frame : frames) {
      if (frame.q.size() > d) x.push_back(frame.q[d]);
    }
    if (x.empty()) continue;
    JointHealth& joint = report.joints[d];
    joint.dof = static_cast<std::int32_t>(d);
    if (x.size() >= 2) joint.noise_rms = noise_of(x);
    if (x.size() >= 3) {
      joint.backlash = backlash_of(x);
      joint.dropouts = dropouts_of(x);
    }
    const float allowed = 0.05F * static_cast<float>(report.frames_analyzed);
    const float noise = 0.4F * clamp(1.0F - joint.noise_rms / 0.025F);
    const float backlash = 0.35F * clamp(1.0F - joint.backlash / 0.06F);
    const float dropouts = 0.25F * clamp(1.0F - static_cast<float>(joint.dropouts) / allowed);
    joint.score = noise + backlash + dropouts;
  }
  float sum = 0.0F;
  for (const JointHealth& joint : report.joints) sum += joint.score;
  report.overall_score = sum / static_cast<float>(n_dofs);
  return report;
}

}  // namespace tarsil::benchmarks
