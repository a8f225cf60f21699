// The records' own defaults are the values the tool uses; only what the options and the command say is set
// here.
#include "tarsil/cli/open_device.h"

#include <memory>
#include <utility>

#include "tarsil/core/mock_source.h"
#include "tarsil/serial/reconnecting_source.h"
#include "tarsil/serial/serial_source.h"

namespace tarsil::cli {

namespace {

std::shared_ptr<IDataSource> make_mock(const Options& options) {
  MockConfig config;
  if (const auto hz = options.find("hz"); hz != options.end()) config.hz = real_number(hz->second);
  return std::make_shared<MockSource>(std::move(config));
}

std::shared_ptr<IDataSource> make_reconnecting(const SerialConfig& serial) {
  ReconnectingConfig config;
  config.factory = [serial] { return std::make_shared<SerialSource>(serial); };
  return std::make_shared<ReconnectingSource>(std::move(config));
}

}  // namespace

Device open_device(const Options& options, bool reconnect, std::int32_t queue_depth) {
  if (options.contains("mock")) return Device(make_mock(options));
  SerialConfig serial;
  serial.port = option_or(options, "port", "");
  serial.queue_depth = queue_depth;
  if (reconnect) return Device(make_reconnecting(serial));
  return Device(std::make_shared<SerialSource>(std::move(serial)));
}

}  // namespace tarsil::cli
