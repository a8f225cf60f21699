// Judging the joint sensors of a glove from a batch of frames.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tarsil/core/device_info.h"
#include "tarsil/core/frame.h"

namespace tarsil {

/// What the signal of one joint angle is like.
struct JointHealth {
  /// Index of the joint; stays 0 for a joint that delivered nothing.
  std::int32_t dof = 0;
  /// 0 (bad) to 1 (good).
  float score = 0.0F;
  /// Scatter around the mean, radians.
  float noise_rms = 0.0F;
  /// Mean size of the steps after sudden reversals, radians.
  float backlash = 0.0F;
  /// Stretches in which the value is stuck.
  std::int32_t dropouts = 0;
};

/// The result for a whole glove.
struct HealthReport {
  /// One entry for each joint, by its index.
  std::vector<JointHealth> joints = {};
  /// Mean of the joints' scores; 1 without joints.
  float overall_score = 0.0F;
  /// Number of frames given to the analysis, those without angles included.
  std::int32_t frames_analyzed = 0;
  /// Time of the analysis, seconds since the Unix epoch.
  double timestamp = 0.0;
  /// Serial number of the glove (DeviceInfo::serial).
  std::string device_serial = {};
  /// Its firmware version (DeviceInfo::firmware).
  std::string device_firmware = {};
};

/// Analyses the joint angles of `frames`, in arrival order, for the joints that `info` announces. A frame
/// that carries fewer angles is no sample of those that it lacks.
///
/// All arithmetic is single precision and every sum is formed in sample order, so the result is the same to
/// the bit on every machine; only the sign of what is no number is the processor's affair. Needs memory for a
/// pointer to each frame, or for one joint's series at a time, and throws only for lack of it.
[[nodiscard]] HealthReport analyze_health(std::span<const Frame> frames, const DeviceInfo& info);

}  // namespace tarsil
