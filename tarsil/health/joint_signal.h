// What is measured of a joint's angles before it is judged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::detail {

struct JointSignal {
  std::size_t samples = 0;
  /// Standard deviation over the population, in radians; 0 with fewer than two samples.
  float noise_rms = 0.0F;
  /// How often the joint turned round with large steps on both sides, and the sum of the steps after the
  /// turn.
  std::int32_t reversals = 0;
  float reversal_sum = 0.0F;
  /// Stretches of samples that hardly move; one counts once, however long it lasts.
  std::int32_t stuck_stretches = 0;
};

/// Measures one joint, from the frames that have it.
[[nodiscard]] JointSignal measure_joint(std::span<const Frame> frames, std::size_t joint);

/// Measures, as measure_joint() does and to the same bits (but for the sign of what is no number), the first
/// joints of a hand: as many of the first `limit` as can be measured four at a time because every frame has
/// them.
[[nodiscard]] std::vector<JointSignal> measure_first_joints(std::span<const Frame> frames, std::size_t limit);

}  // namespace tarsil::detail
