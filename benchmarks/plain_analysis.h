// The health analysis joint by joint, as plainly as its definition reads: it says what the result has to be,
// to the bit.
#pragma once

#include <cstdint>
#include <span>

#include "tarsil/core/frame.h"
#include "tarsil/health/analysis.h"

namespace tarsil::benchmarks {

/// The report without time and device.
[[nodiscard]] HealthReport analyze_plainly(std::span<const Frame> frames, std::int32_t n_dofs);

}  // namespace tarsil::benchmarks
