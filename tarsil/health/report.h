// A health report as text: for the eye, and for the certificate service.
#pragma once

#include <string>

#include "tarsil/core/device_info.h"
#include "tarsil/health/analysis.h"

namespace tarsil {

/// The table for the terminal: scores in per cent, noise and backlash in milliradians.
[[nodiscard]] std::string format_health_report(const HealthReport& report);

/// The JSON document for the certificate service: scores between 0 and 1, noise and backlash in radians. Side
/// and joint count come from `info`. Texts stand in it as they are, without escapes.
[[nodiscard]] std::string health_report_to_json(const HealthReport& report, const DeviceInfo& info);

}  // namespace tarsil
