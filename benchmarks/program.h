// What all benchmark programs have in common: how they start, and the frames they work on.
#pragma once

#include <cstddef>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::benchmarks {

/// Frames that are worked through again and again: many enough that no branch predictor knows them by heart,
/// few enough to stay in the cache.
inline constexpr std::size_t kDistinctFrames = 1024;

/// That many frames of the synthetic source, as fast as it makes them: 20 joints, 30 pads, 5 inertial units,
/// at present-day times.
[[nodiscard]] std::vector<Frame> mock_frames(std::size_t count);

/// Whether everything that a recording keeps of a frame is the same in both, to the bit.
[[nodiscard]] bool same_bits(const Frame& a, const Frame& b);

/// The body of main(): `prepare` checks what will be compared, registers the benchmarks and throws if
/// something is not as it should be; then Google Benchmark takes over. Returns the exit status.
int run_benchmarks(int argc, char** argv, void (*prepare)());

}  // namespace tarsil::benchmarks
