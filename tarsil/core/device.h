// A handle on one glove, and the ways to find one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/core/data_source.h"
#include "tarsil/core/device_info.h"

namespace tarsil {

/// Shares ownership of a source and keeps a copy of its identity, taken when the handle was made. Copies of
/// the handle share the source, which lives as long as its last holder.
class Device {
 public:
  /// Throws std::invalid_argument if there is no source.
  explicit Device(std::shared_ptr<IDataSource> source);

  /// The source; never null.
  [[nodiscard]] const std::shared_ptr<IDataSource>& source() const { return source_; }
  /// The source's identity as it was when the handle was made.
  [[nodiscard]] const DeviceInfo& info() const { return info_; }

  /// Every glove that answers on a serial port, in port order. Takes up to about one second for each port
  /// that stays silent. A port that fails is skipped.
  static std::vector<DeviceInfo> discover();

  /// Opens a glove on a serial port: the first one that answers if nothing is asked for, else the first
  /// discovered one with that serial and/or that side (1 is right, 0 is left). Throws DeviceNotFoundError if
  /// there is none or it sends no data.
  static Device open(std::optional<std::string> serial = {}, std::optional<std::int32_t> side = {});

 private:
  std::shared_ptr<IDataSource> source_;
  DeviceInfo info_;
};

}  // namespace tarsil
