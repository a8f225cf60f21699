// The health analysis joint by joint, as one would write it down first with an eye on speed: no temporary
// that the definition does not ask for. (The tests have another one, with a variable for every step, which
// would be too easy a rival.)
#pragma once

#include <cstdint>
#include <span>

#include "tarsil/core/frame.h"
#include "tarsil/health/analysis.h"

namespace tarsil::benchmarks {

/// The report without time and device.
[[nodiscard]] HealthReport analyze_plainly(std::span<const Frame> frames, std::int32_t n_dofs);

}  // namespace tarsil::benchmarks
