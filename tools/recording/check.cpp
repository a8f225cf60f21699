// tarsil-recording check
#include <array>
#include <cstdint>
#include <string>

#include "tarsil/cli/output.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"
#include "tools/recording/recording_lines.h"

namespace tarsil::recording_tool {

namespace {

/// Enough to see what kind of damage it is.
constexpr std::uint64_t kUsuallyShown = 20;

}  // namespace

int check_command(Words words) {
  constexpr std::array kOptions{Option{.name = "--all"}};
  const CommandLine line(words, kOptions, 1);
  const std::string& path = line.file(0);
  const bool all = line.has("--all");
  RecordingLines lines(path);
  RecordingLine next;
  std::uint64_t count = 0;
  std::uint64_t frames = 0;
  std::uint64_t markers = 0;
  for (; lines.next(next); ++count) {
    if (next.fault == Fault::none) {
      if (next.checked.type == LineType::frame) ++frames;
      if (next.checked.type == LineType::marker) ++markers;
    } else if (all || lines.faults() <= kUsuallyShown) {
      lines.progress().clear();
      cli::write_output(path + ": " + next.complaint + "\n");
    }
  }
  if (count == 0) {
    cli::write_output(path + ": the file is empty\n");
    return kDamaged;
  }
  if (lines.faults() == 0) {
    cli::write_output(path + ": fine, " + std::to_string(frames) + " frames, " + std::to_string(markers) +
                      " markers\n");
    return kDone;
  }
  if (!all && lines.faults() > kUsuallyShown) {
    cli::write_output(path + ": and " + std::to_string(lines.faults() - kUsuallyShown) + " more\n");
  }
  cli::write_output(path + ": damaged, " + std::to_string(lines.faults()) + " of " + std::to_string(count) +
                    " lines\n");
  return kDamaged;
}

}  // namespace tarsil::recording_tool
