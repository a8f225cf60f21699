// tarsil replay
#include <cstddef>
#include <cstdint>
#include <string>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/options.h"
#include "tarsil/cli/output.h"
#include "tarsil/core/number_text.h"
#include "tarsil/recording/replayer.h"

namespace tarsil::cli {

namespace {

using detail::append_fixed;

/// Of this many frames, one shows in the trace.
constexpr std::uint64_t kTraceInterval = 20;

std::string opening_lines(const std::string& path, const Replayer& replayer, float speed) {
  std::string text = "Replaying " + path + " — " + std::to_string(replayer.frame_count()) + " frames  ";
  append_fixed(text, replayer.duration(), 2);
  text += " s  speed x";
  append_fixed(text, speed, 2);
  text += "\n\n";
  return text;
}

std::string marker_list(const std::vector<Marker>& markers) {
  if (markers.empty()) return {};
  std::string text = std::to_string(markers.size()) + " marker(s) in recording:\n";
  for (const Marker& marker : markers) {
    text += "  t=";
    append_fixed(text, marker.t, 3);
    text += "  " + marker.name + "\n";
  }
  return text + "\n";
}

/// Without joint angles there is no value to show.
std::string trace_line(const Frame& frame) {
  std::string line = "t=";
  append_fixed(line, frame.t, 4);
  line += "  q[0]=";
  if (!frame.q.empty()) append_fixed(line, frame.q.front(), 4);
  return line + "\n";
}

/// Plays to the end of the recording; deliberately it does not look at the stop flag, so a loop ends with the
/// process.
std::uint64_t play(IDataSource& source) {
  std::uint64_t played = 0;
  for (; source.is_open(); ++played) {
    const Frame frame = source.read_frame();
    if (played % kTraceInterval == 0) write_output(trace_line(frame));
  }
  return played;
}

}  // namespace

int replay_command(int count, const char* const* arguments) {
  const Options options = parse_options(count, arguments);
  const std::string path = option_or(options, "0", "");
  if (path.empty()) {
    write_error("Usage: tarsil replay <file.tsl> [--speed 1.0] [--loop]\n");
    return 1;
  }
  ReplayerConfig config;
  config.speed = real_number(option_or(options, "speed", "1.0"));
  config.loop = options.contains("loop");
  Replayer replayer(path, config);
  write_output(opening_lines(path, replayer, config.speed));
  write_output(marker_list(replayer.markers()));
  write_output("\nReplayed " + std::to_string(play(replayer)) + " frames.\n");
  return 0;
}

}  // namespace tarsil::cli
