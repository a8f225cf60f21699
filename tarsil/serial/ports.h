// Which serial ports can hold a glove, and which one does.
#pragma once

#include <string>
#include <vector>

namespace tarsil {

/// Paths of the serial ports that a glove can show up as ("/dev/ttyACM0"), in ascending byte order; empty if
/// there are none. Throws std::filesystem::filesystem_error if the device directory cannot be read.
[[nodiscard]] std::vector<std::string> list_ports();

/// The first port on which a glove announces itself, after listening to each for up to one second; a port
/// that is the only one is taken without an answer. Nothing is written to any port. Throws
/// DeviceNotFoundError if there is no port, or none of several answers.
std::string auto_detect_port();

}  // namespace tarsil
