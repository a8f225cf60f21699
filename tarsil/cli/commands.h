// The commands of the tool, one file each. Every one takes the arguments after its name and returns the exit
// status; what goes wrong leaves it as an exception with a finished message.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tarsil/core/device_info.h"

namespace tarsil::cli {

/// tarsil devices: one line for each glove that answers.
int devices_command(int count, const char* const* arguments);

/// tarsil doctor: who the glove is, and whether frames come from it.
int doctor_command(int count, const char* const* arguments);

/// tarsil stream: live data, as a table that redraws itself or as rows.
int stream_command(int count, const char* const* arguments);

/// tarsil record: frames from a glove into a file.
int record_command(int count, const char* const* arguments);

/// tarsil replay: a recording back from a file.
int replay_command(int count, const char* const* arguments);

/// tarsil health: a check of the joint sensors and, on request, a certificate.
int health_command(int count, const char* const* arguments);

/// What the arguments' "--meta key=value" pairs say. Of one key the last pair counts; without "=" the value
/// is "1".
[[nodiscard]] std::map<std::string, std::string> meta_options(int count, const char* const* arguments);

/// What `devices` prints for what was found.
[[nodiscard]] std::string format_device_list(const std::vector<DeviceInfo>& gloves);

}  // namespace tarsil::cli
