// Three defects of an angle signal: noise, backlash, dropouts. Limits and weights are the maker's, from
// physical terms: what a hand at rest or in smooth motion cannot do, the sensor did.
#include "tarsil/health/analysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "tarsil/core/clock.h"

namespace tarsil {

namespace {

// Radians.
constexpr float kNoiseLimit = 0.025F;    // noise that costs its whole term
constexpr float kBacklashLimit = 0.06F;  // backlash that costs its whole term
constexpr float kReversalStep = 0.003F;  // a reversal has larger steps on both sides of the turn
constexpr float kStuckStep = 0.0005F;    // a sample that moves less is stuck
constexpr float kDropoutShare = 0.05F;   // dropouts, as a share of all frames, that cost their whole term
constexpr int kStuckSamples = 3;         // samples that make a stuck stretch a dropout

constexpr float kNoiseWeight = 0.4F;
constexpr float kBacklashWeight = 0.35F;
constexpr float kDropoutWeight = 0.25F;

using Series = std::vector<float>;

/// The samples of one joint, in frame order.
void gather(std::span<const Frame> frames, std::size_t joint, Series& x) {
  x.clear();
  for (const Frame& frame : frames) {
    if (joint < frame.q.size()) x.push_back(frame.q[joint]);
  }
}

float count_as_float(std::size_t count) {
  return static_cast<float>(count);
}

/// Standard deviation over the population: the divisor is n.
float noise_rms(const Series& x) {
  if (x.size() < 2) return 0.0F;
  float sum = 0.0F;
  for (const float value : x) sum += value;
  const float mean = sum / count_as_float(x.size());
  float squares = 0.0F;
  for (const float value : x) {
    const float difference = value - mean;
    squares += difference * difference;
  }
  return std::sqrt(squares / count_as_float(x.size()));
}

float mean_reversal(const Series& x) {
  float sum = 0.0F;
  std::size_t reversals = 0;
  for (std::size_t i = 2; i < x.size(); ++i) {
    const float before = x[i - 1] - x[i - 2];
    const float after = x[i] - x[i - 1];
    const bool peak = before > kReversalStep && after < -kReversalStep;
    const bool trough = before < -kReversalStep && after > kReversalStep;
    if (!peak && !trough) continue;
    sum += std::fabs(after);
    ++reversals;
  }
  return reversals == 0 ? 0.0F : sum / count_as_float(reversals);
}

/// A stretch counts once, however long it lasts.
std::int32_t stuck_stretches(const Series& x) {
  std::int32_t stretches = 0;
  std::size_t run = 1;
  for (std::size_t i = 1; i < x.size(); ++i) {
    run = std::fabs(x[i] - x[i - 1]) < kStuckStep ? run + 1 : 1;
    if (run == kStuckSamples) ++stretches;
  }
  return stretches;
}

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
JointHealth analyze_joint(const Series& x, std::size_t index, float frames) {
  JointHealth joint;
  if (x.empty()) return joint;
  joint.dof = static_cast<std::int32_t>(index);
  joint.noise_rms = noise_rms(x);
  joint.backlash = mean_reversal(x);
  joint.dropouts = stuck_stretches(x);
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
  Series x;
  x.reserve(frames.size());
  float sum = 0.0F;
  for (std::size_t d = 0; d < n_dofs; ++d) {
    gather(frames, d, x);
    report.joints.push_back(analyze_joint(x, d, static_cast<float>(report.frames_analyzed)));
    sum += report.joints.back().score;
  }
  report.overall_score = sum / count_as_float(n_dofs);
  return report;
}

}  // namespace tarsil
