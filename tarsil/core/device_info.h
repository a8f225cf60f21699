// The identity of one glove.
#pragma once

#include <cstdint>
#include <string>

namespace tarsil {

/// Identity of one glove, as sources and discovery report it.
struct DeviceInfo {
  /// Serial number; a real glove's begins with "TSL-".
  std::string serial = {};
  /// Which hand: 1 is right, 0 is left. What other values mean is deliberately each consumer's own rule.
  std::int32_t side = 1;
  /// Firmware version text as the glove reports it.
  std::string firmware = {};
  /// Joint angles per frame (length of Frame::q).
  std::int32_t n_dofs = 0;
  /// Pressure pads per frame (length of Frame::touch).
  std::int32_t n_pads = 0;
  /// Inertial units per frame (length of Frame::imu).
  std::int32_t n_imu = 0;
};

}  // namespace tarsil
