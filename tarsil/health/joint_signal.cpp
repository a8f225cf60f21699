// The measurements, one joint at a time and four at a time.
//
// Four joints stand side by side in a vector, each in a lane of its own, and every lane does the operations
// of the plain way in the same order; so the bits are the same. Vectors are the compiler's own, which every
// architecture has.
#include "tarsil/health/joint_signal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace tarsil::detail {

namespace {

// Radians.
constexpr float kReversalStep = 0.003F;  // a reversal has larger steps on both sides of the turn
constexpr float kStuckStep = 0.0005F;    // a sample that moves less is stuck
constexpr int kStuckSamples = 3;         // samples that make a stuck stretch

using Series = std::vector<float>;

/// The samples of one joint, in frame order.
Series gather(std::span<const Frame> frames, std::size_t joint) {
  Series x;
  x.reserve(frames.size());
  for (const Frame& frame : frames) {
    if (joint < frame.q.size()) x.push_back(frame.q[joint]);
  }
  return x;
}

/// The divisor is n.
float noise_rms(const Series& x) {
  if (x.size() < 2) return 0.0F;
  const auto n = static_cast<float>(x.size());
  float sum = 0.0F;
  for (const float value : x) sum += value;
  const float mean = sum / n;
  float squares = 0.0F;
  for (const float value : x) {
    const float difference = value - mean;
    squares += difference * difference;
  }
  return std::sqrt(squares / n);
}

void add_reversals(const Series& x, JointSignal& signal) {
  for (std::size_t i = 2; i < x.size(); ++i) {
    const float before = x[i - 1] - x[i - 2];
    const float after = x[i] - x[i - 1];
    const bool peak = before > kReversalStep && after < -kReversalStep;
    const bool trough = before < -kReversalStep && after > kReversalStep;
    if (!peak && !trough) continue;
    signal.reversal_sum += std::fabs(after);
    ++signal.reversals;
  }
}

std::int32_t stuck_stretches(const Series& x) {
  std::int32_t stretches = 0;
  std::size_t run = 1;
  for (std::size_t i = 1; i < x.size(); ++i) {
    run = std::fabs(x[i] - x[i - 1]) < kStuckStep ? run + 1 : 1;
    if (run == kStuckSamples) ++stretches;
  }
  return stretches;
}

constexpr std::size_t kLanes = 4;
using Floats [[gnu::vector_size(kLanes * sizeof(float))]] = float;
using Masks [[gnu::vector_size(kLanes * sizeof(float))]] = std::int32_t;  // -1 where something holds

Floats load(const float* values) {
  Floats lanes;
  std::memcpy(&lanes, values, sizeof lanes);
  return lanes;
}

Floats spread(float value) {
  return Floats{value, value, value, value};
}

Floats magnitude(Floats values) {
  return reinterpret_cast<Floats>(reinterpret_cast<Masks>(values) & 0x7FFF'FFFF);
}

/// The value where the mask holds, and 0 elsewhere.
Floats where(Masks mask, Floats values) {
  return reinterpret_cast<Floats>(mask & reinterpret_cast<Masks>(values));
}

/// Four joints on their way through the frames.
class Quartet {
 public:
  void add(Floats x) {
    sum_ += x;
    const Floats step = x - last_;
    last_ = x;
    const Masks up = step > kReversalStep;
    const Masks down = step < -kReversalStep;
    const Masks reversal = (was_up_ & down) | (was_down_ & up);
    was_up_ = up;
    was_down_ = down;
    const Floats size = magnitude(step);
    reversal_sum_ += where(reversal, size);  // a 0 changes no bit of a sum that is 0 or more
    reversals_ -= reversal;
    // The second step without movement makes the third sample, unless the one before had none either.
    const Masks still = size < kStuckStep;
    stuck_stretches_ -= still & was_still_ & ~was_still_before_;
    was_still_before_ = was_still_;
    was_still_ = still;
  }

  void end_of_samples(std::size_t samples) { mean_ = sum_ / spread(static_cast<float>(samples)); }

  /// All samples once more, for the noise.
  void add_square(Floats x) {
    const Floats difference = x - mean_;
    squares_ += difference * difference;
  }

  [[nodiscard]] JointSignal signal(std::size_t lane, std::size_t samples) const {
    JointSignal signal;
    signal.samples = samples;
    if (samples >= 2) signal.noise_rms = std::sqrt(squares_[lane] / static_cast<float>(samples));
    signal.reversals = reversals_[lane];
    signal.reversal_sum = reversal_sum_[lane];
    signal.stuck_stretches = stuck_stretches_[lane];
    return signal;
  }

 private:
  Floats sum_{};
  Floats mean_{};
  Floats squares_{};
  /// Before the first sample there is none: a step from it compares as nothing.
  Floats last_ = spread(std::numeric_limits<float>::quiet_NaN());
  Masks was_up_{};
  Masks was_down_{};
  Masks was_still_{};
  Masks was_still_before_{};
  Floats reversal_sum_{};
  Masks reversals_{};
  Masks stuck_stretches_{};
};

/// Calls `add` with each quartet and its samples of each frame. Some frames at a time, so that they stay near
/// while the quartets take turns, and each of those in registers while it goes through them. The next frames
/// are asked for meanwhile: their arrays lie scattered, and nobody else can guess where.
template <typename Add>
void go_through(std::span<const float* const> angles, std::vector<Quartet>& quartets, Add add) {
  constexpr std::size_t kFramesAtATime = 32;
  constexpr std::size_t kValuesOfALine = 64 / sizeof(float);
  while (!angles.empty()) {
    const auto now = angles.first(std::min(angles.size(), kFramesAtATime));
    angles = angles.subspan(now.size());
    for (const float* next : angles.first(std::min(angles.size(), kFramesAtATime))) {
      for (std::size_t i = 0; i < quartets.size() * kLanes; i += kValuesOfALine) __builtin_prefetch(next + i);
    }
    for (std::size_t g = 0; g < quartets.size(); ++g) {
      Quartet quartet = quartets[g];
      for (const float* const frame : now) add(quartet, load(frame + g * kLanes));
      quartets[g] = quartet;
    }
  }
}

}  // namespace

JointSignal measure_joint(std::span<const Frame> frames, std::size_t joint) {
  const Series x = gather(frames, joint);
  JointSignal signal;
  signal.samples = x.size();
  signal.noise_rms = noise_rms(x);
  add_reversals(x, signal);
  signal.stuck_stretches = stuck_stretches(x);
  return signal;
}

std::vector<JointSignal> measure_first_joints(std::span<const Frame> frames, std::size_t limit) {
  std::vector<const float*> angles;
  angles.reserve(frames.size());
  for (const Frame& frame : frames) {
    limit = std::min(limit, frame.q.size());
    angles.push_back(frame.q.data());
  }
  std::vector<Quartet> quartets(frames.empty() ? 0 : limit / kLanes);
  go_through(angles, quartets, [](Quartet& quartet, Floats x) { quartet.add(x); });
  for (Quartet& quartet : quartets) quartet.end_of_samples(frames.size());
  go_through(angles, quartets, [](Quartet& quartet, Floats x) { quartet.add_square(x); });
  std::vector<JointSignal> signals;
  signals.reserve(quartets.size() * kLanes);
  for (const Quartet& quartet : quartets) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) signals.push_back(quartet.signal(lane, frames.size()));
  }
  return signals;
}

}  // namespace tarsil::detail
