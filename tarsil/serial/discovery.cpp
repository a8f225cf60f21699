// Finding gloves: every port gets a short-lived source, and a glove is what sends a frame through it.
#include <algorithm>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "tarsil/core/device.h"
#include "tarsil/core/errors.h"
#include "tarsil/serial/port_scan.h"
#include "tarsil/serial/serial_source.h"

namespace tarsil {

namespace {

/// Shorter than the usual wait for a first frame, to keep discovery quick.
constexpr std::int32_t kDiscoveryTimeoutMs = 1000;

constexpr std::string_view kSerialPrefix = "TSL-";

/// Deliberately the serial itself, without any directory: it is taken as the way to the port.
std::string port_of(const std::string& serial) {
  return serial.starts_with(kSerialPrefix) ? serial.substr(kSerialPrefix.size()) : serial;
}

Device open_port(std::string port) {
  return Device(std::make_shared<SerialSource>(SerialConfig{.port = std::move(port)}));
}

}  // namespace

std::vector<DeviceInfo> detail::discover_in(const std::filesystem::path& directory) {
  std::vector<DeviceInfo> gloves;
  for (const auto& port : list_ports_in(directory)) {
    try {
      SerialSource source({.port = port, .timeout_ms = kDiscoveryTimeoutMs});
      // A source whose port could not be opened comes without a frame; this throws then, and never waits.
      source.read_frame();
      gloves.push_back(source.device_info());
    } catch (const std::exception&) {
      // No glove here, or none that answers.
    }
  }
  return gloves;
}

std::vector<DeviceInfo> Device::discover() {
  return detail::discover_in(detail::kDeviceDirectory);
}

Device Device::open(std::optional<std::string> serial, std::optional<std::int32_t> side) {
  if (!serial && !side) return open_port("");
  const auto gloves = discover();
  const auto match = std::find_if(gloves.begin(), gloves.end(), [&](const DeviceInfo& glove) {
    return (!serial || glove.serial == *serial) && (!side || glove.side == *side);
  });
  if (match == gloves.end()) {
    throw DeviceNotFoundError(
        "No Tarsil device found matching the requested serial/side. Use Device::discover() to list connected "
        "devices.");
  }
  return open_port(port_of(match->serial));
}

}  // namespace tarsil
