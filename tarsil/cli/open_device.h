// From options to a source of frames.
#pragma once

#include <cstdint>

#include "tarsil/cli/options.h"
#include "tarsil/core/device.h"

namespace tarsil::cli {

/// Opens what the options ask for: with "mock" the synthetic source (at the rate "hz"), otherwise the glove
/// on "port", or on a detected one.
///
/// `reconnect`: the source outlives the loss of its glove, and its absence at the start. `queue_depth`: most
/// frames held between the glove and the command. Neither matters for the synthetic source.
///
/// Throws std::invalid_argument or std::out_of_range for a bad rate; without `reconnect`,
/// DeviceNotFoundError.
[[nodiscard]] Device open_device(const Options& options, bool reconnect, std::int32_t queue_depth);

}  // namespace tarsil::cli
