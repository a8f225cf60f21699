// What ports.h and discovery do, on a directory of the caller's choice.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tarsil/core/device_info.h"

namespace tarsil::detail {

/// Where the system lists its devices.
inline constexpr const char* kDeviceDirectory = "/dev";

/// list_ports() for the entries of `directory`.
[[nodiscard]] std::vector<std::string> list_ports_in(const std::filesystem::path& directory);

/// auto_detect_port() among the entries of `directory`.
[[nodiscard]] std::string auto_detect_port_in(const std::filesystem::path& directory);

/// Device::discover() among the entries of `directory`.
[[nodiscard]] std::vector<DeviceInfo> discover_in(const std::filesystem::path& directory);

}  // namespace tarsil::detail
