// tarsil devices
#include "tarsil/cli/commands.h"
#include "tarsil/cli/output.h"
#include "tarsil/core/device.h"

namespace tarsil::cli {

std::string format_device_list(const std::vector<DeviceInfo>& gloves) {
  if (gloves.empty()) return "No devices found. Check USB connection and port permissions.\n";
  std::string text;
  for (const DeviceInfo& glove : gloves) {
    text += glove.serial;
    text += glove.side == 1 ? "  right" : "  left";  // on the console, anything but 1 is deliberately left
    text += "  fw " + glove.firmware + "  " + std::to_string(glove.n_dofs) + " DOFs\n";
  }
  return text;
}

int devices_command(int /*count*/, const char* const* /*arguments*/) {
  write_output(format_device_list(Device::discover()));
  return 0;
}

}  // namespace tarsil::cli
