// Three defects of an angle signal: noise, backlash, dropouts. Limits and weights are the maker's, from
// physical terms: what a hand at rest or in smooth motion cannot do, the sensor did.
#include "tarsil/health/analysis.h"

#include <cstddef>

#include "tarsil/core/clock.h"
#include "tarsil/health/joint_signal.h"

namespace tarsil {

namespace {

// Radians.
constexpr float kNoiseLimit = 0.025F;    // noise that costs its whole term
constexpr float kBacklashLimit = 0.06F;  // backlash that costs its whole term
constexpr float kDropoutShare = 0.05F;   // dropouts, as a share of all frames, that cost their whole term

constexpr float kNoiseWeight = 0.4F;
constexpr float kBacklashWeight = 0.35F;
constexpr float kDropoutWeight = 0.25F;

/// Between 0 and 1. A value that is no number earns the full weight, so "below 1" is asked first.
float clamped(float value) {
  if (!(value < 1.0F)) return 1.0F;
  return value > 0.0F ? value : 0.0F;
}

/// The dropout allowance goes by all frames, deliberately also where the joint had fewer samples.
float score(const JointHealth& joint, float frames) {
  const float noise = kNoiseWeight * clamped(1.0F - joint.noise_rms / kNoiseLimit);
  const float backlash = kBacklashWeight * clamped(1.0F - joint.backlash / kBacklashLimit);
  const float dropouts =
      kDropoutWeight * clamped(1.0F - static_cast<float>(joint.dropouts) / (kDropoutShare * frames));
  return (noise + backlash) + dropouts;
}

/// A joint that never delivered data stays all zero, its index included, and so pulls the overall score down.
JointHealth judge(const detail::JointSignal& signal, std::size_t index, float frames) {
  JointHealth joint;
  if (signal.samples == 0) return joint;
  joint.dof = static_cast<std::int32_t>(index);
  joint.noise_rms = signal.noise_rms;
  joint.backlash = signal.reversals == 0 ? 0.0F : signal.reversal_sum / static_cast<float>(signal.reversals);
  joint.dropouts = signal.stuck_stretches;
  joint.score = score(joint, frames);
  return joint;
}

}  // namespace

HealthReport analyze_health(std::span<const Frame> frames, const DeviceInfo& info) {
  HealthReport report;
  report.frames_analyzed = static_cast<std::int32_t>(frames.size());
  report.timestamp = detail::wall_clock_seconds();
  report.device_serial = info.serial;
  report.device_firmware = info.firmware;
  report.overall_score = 1.0F;
  if (frames.empty() || info.n_dofs <= 0) return report;

  const auto n_dofs = static_cast<std::size_t>(info.n_dofs);
  report.joints.reserve(n_dofs);
  float sum = 0.0F;
  const auto add = [&](const detail::JointSignal& signal) {
    report.joints.push_back(judge(signal, report.joints.size(), static_cast<float>(report.frames_analyzed)));
    sum += report.joints.back().score;
  };
  for (const auto& signal : detail::measure_first_joints(frames, n_dofs)) add(signal);
  while (report.joints.size() < n_dofs) add(detail::measure_joint(frames, report.joints.size()));
  report.overall_score = sum / static_cast<float>(n_dofs);
  return report;
}

}  // namespace tarsil
