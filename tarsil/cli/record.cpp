// tarsil record
#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/open_device.h"
#include "tarsil/cli/options.h"
#include "tarsil/cli/output.h"
#include "tarsil/cli/signals_held.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/core/number_text.h"
#include "tarsil/recording/recorder.h"

namespace tarsil::cli {

namespace {

/// Deep enough that a busy disk costs no frame.
constexpr std::int32_t kQueueDepth = 4096;

/// What the user and the glove say about the session. What the tool knows by itself wins over what the user
/// says.
Recorder::Metadata session_metadata(int count, const char* const* arguments, const Options& options,
                                    const DeviceInfo& info) {
  Recorder::Metadata metadata = meta_options(count, arguments);
  metadata["source"] = options.contains("mock") ? "mock" : "serial";
  metadata["serial"] = info.serial;
  metadata["firmware"] = info.firmware;
  metadata["side"] =
      info.side == 0 ? "left" : "right";  // deliberately unlike the console: only 0 is left here
  metadata["n_dofs"] = std::to_string(info.n_dofs);
  metadata["n_pads"] = std::to_string(info.n_pads);
  metadata["n_imu"] = std::to_string(info.n_imu);
  return metadata;
}

Recorder::Format chosen_format(const std::string& option, const std::string& path) {
  if (option.empty()) return recording_format_for(path);
  if (option == "csv") return Recorder::Format::csv;
  if (option == "json") return Recorder::Format::json;
  return Recorder::Format::tsl;
}

std::string opening_line(const std::string& path, Recorder::Format format, std::int32_t limit) {
  std::string line = "Recording to " + path + "  format: ";
  line += default_extension(format);
  line += limit != 0 ? "  (" + std::to_string(limit) + " frames)\n" : "  (Ctrl+C to stop)\n";
  return line;
}

/// Counts the hardware cycles that are missing between the frames it is shown.
class GapCounter {
 public:
  void show(std::uint64_t seq) {
    // A number that repeats (a stale frame) or goes back is no gap.
    if (previous_ && *previous_ + 1 < seq) dropped_ += seq - *previous_ - 1;
    previous_ = seq;
  }
  [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

 private:
  std::optional<std::uint64_t> previous_;
  std::uint64_t dropped_ = 0;
};

/// Records until the limit, if it is positive, a request to stop, or the end of the source. Returns how many
/// hardware cycles are missing.
std::uint64_t record_frames(IDataSource& source, Recorder& recorder, std::int32_t limit) {
  GapCounter gaps;
  for (std::int32_t recorded = 0; source.is_open();) {
    const Frame frame = source.read_frame();
    if (stop_requested()) break;
    recorder.write_frame(frame);
    gaps.show(frame.seq);
    if (limit > 0 && ++recorded == limit) break;
  }
  return gaps.dropped();
}

void warn_of_gaps(std::uint64_t dropped) {
  write_error("WARNING: " + std::to_string(dropped) +
              " hardware cycle(s) were dropped on the USB link during this recording (gaps in frame.seq).\n"
              "         The data is NOT complete. Check cabling / USB port / load.\n");
}

void print_summary(const Recorder& recorder, std::uint64_t dropped) {
  std::string line = "Saved " + std::to_string(recorder.frames_written()) + " frames  ";
  detail::append_fixed(line, recorder.duration(), 2);
  try {
    write_output(line + " s\n");
  } catch (...) {
    // The two go to different places: that nobody reads the one is no reason to keep the other back.
    if (dropped > 0) warn_of_gaps(dropped);
    throw;
  }
  if (dropped > 0) {
    warn_of_gaps(dropped);
  } else {
    write_output("USB integrity: OK — no dropped hardware cycles.\n");
  }
}

}  // namespace

std::map<std::string, std::string> meta_options(int count, const char* const* arguments) {
  std::map<std::string, std::string> metadata;
  for (int i = 0; i + 1 < count; ++i) {
    if (std::string_view(arguments[i]) != "--meta") continue;
    const std::string pair = arguments[i + 1];
    const std::size_t equals = pair.find('=');
    metadata[pair.substr(0, equals)] = equals == std::string::npos ? "1" : pair.substr(equals + 1);
  }
  return metadata;
}

int record_command(int count, const char* const* arguments) {
  const Options options = parse_options(count, arguments);
  const std::string path = option_or(options, "0", "session.tsl");
  const std::int32_t limit = std::stoi(option_or(options, "frames", "0"));
  const Recorder::Format format = chosen_format(option_or(options, "format", ""), path);
  const Device device = open_device(options, false, kQueueDepth);
  // Whoever reads the messages may leave before the last of them. That ends the program as it ends any other,
  // but not before the recorder is gone: it writes a json document as the last thing it does.
  const SignalsHeld held({SIGPIPE});
  Recorder recorder(path, format, session_metadata(count, arguments, options, device.info()));
  write_output(opening_line(path, format, limit));
  const std::uint64_t dropped = record_frames(*device.source(), recorder, limit);
  print_summary(recorder, dropped);
  return 0;
}

}  // namespace tarsil::cli
