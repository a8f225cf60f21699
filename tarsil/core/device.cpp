// The handle itself; finding gloves needs serial ports and lives with them.
#include "tarsil/core/device.h"

#include <stdexcept>
#include <utility>

namespace tarsil {

namespace {

std::shared_ptr<IDataSource> require_source(std::shared_ptr<IDataSource> source) {
  if (!source) throw std::invalid_argument("Device: no source given");
  return source;
}

}  // namespace

Device::Device(std::shared_ptr<IDataSource> source)
    : source_(require_source(std::move(source))), info_(source_->device_info()) {}

}  // namespace tarsil
