// The commands of the tool, one file each. Every one takes the arguments after its name and returns the exit
// status; what goes wrong leaves it as an exception with a finished message.
#pragma once

#include <string>
#include <vector>

#include "tarsil/core/device_info.h"

namespace tarsil::cli {

/// tarsil devices: one line for each glove that answers.
int devices_command(int count, const char* const* arguments);

/// tarsil stream: live data, as a table that redraws itself or as rows.
int stream_command(int count, const char* const* arguments);

/// What `devices` prints for what was found.
[[nodiscard]] std::string format_device_list(const std::vector<DeviceInfo>& gloves);

}  // namespace tarsil::cli
