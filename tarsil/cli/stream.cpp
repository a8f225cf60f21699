// tarsil stream
#include <cstdint>
#include <string>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/live_table.h"
#include "tarsil/cli/open_device.h"
#include "tarsil/cli/options.h"
#include "tarsil/cli/output.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/core/clock.h"

namespace tarsil::cli {

namespace {

/// Small, so that the display works on the newest data and a slow terminal makes frames drop rather than pile
/// up.
constexpr std::int32_t kQueueDepth = 2;

/// Rows end at the limit or with the source; deliberately they do not look at the stop flag.
void show_rows(IDataSource& source, std::int32_t limit) {
  write_output(raw_heading());
  for (std::int32_t rows = 0; source.is_open();) {
    write_output(raw_row(source.read_frame()));
    if (limit > 0 && ++rows == limit) return;
  }
}

void show_table(const Device& device, std::int32_t limit) {
  LiveTable table(limit, detail::SteadyClock::now());
  write_output("Connecting to " + device.info().serial + "...\n");
  IDataSource& source = *device.source();
  while (source.is_open()) {
    const Frame frame = source.read_frame();
    if (stop_requested()) return;
    const LiveTable::Step step = table.take(frame, detail::SteadyClock::now());
    write_screen(step.screen);
    if (step.verdict == LiveTable::Verdict::no_data) {
      write_error("\nNo data received. Check that the glove is powered on.\n");
    }
    if (step.verdict != LiveTable::Verdict::go_on) return;
  }
}

}  // namespace

int stream_command(int count, const char* const* arguments) {
  const Options options = parse_options(count, arguments);
  const std::int32_t limit = std::stoi(option_or(options, "count", "0"));
  const Device device = open_device(options, true, kQueueDepth);
  if (options.contains("raw")) {
    show_rows(*device.source(), limit);
  } else {
    show_table(device, limit);
  }
  return 0;
}

}  // namespace tarsil::cli
