// Usage, dispatch, and the one place where errors become messages and statuses.
#include "tarsil/cli/tool.h"

#include <array>
#include <exception>
#include <new>
#include <string>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/output.h"

namespace tarsil::cli {

namespace {

struct Command {
  std::string_view name;
  int (*run)(int count, const char* const* arguments);
};

constexpr std::array kCommands{
    Command{"devices", devices_command}, Command{"doctor", doctor_command}, Command{"stream", stream_command},
    Command{"record", record_command},   Command{"replay", replay_command}, Command{"health", health_command},
};

int dispatch(int argc, const char* const* argv) {
  const std::string_view name = argc < 2 ? "--help" : argv[1];
  if (name == "--help" || name == "-h") {
    write_output(usage());
    return 0;
  }
  for (const Command& command : kCommands) {
    if (name == command.name) return command.run(argc - 2, argv + 2);
  }
  write_error("Unknown command: " + std::string(name) + "\n\n");
  write_output(usage());
  return 1;
}

/// One line, written at once; piece by piece if what has run out is the memory to put it together.
void report(const std::exception& error) {
  try {
    write_error("Error: " + std::string(error.what()) + "\n");
  } catch (const std::bad_alloc&) {
    for (const char* const piece : {"Error: ", error.what(), "\n"}) write_error(piece);
  }
}

}  // namespace

std::string_view usage() {
  return "Usage: tarsil <command> [options]\n"
         "\n"
         "Commands:\n"
         "  devices              List connected Tarsil devices\n"
         "  doctor               Run diagnostics on the connected device\n"
         "  stream               Stream live data to terminal\n"
         "    --count <n>          Stop after N frames (default: infinite)\n"
         "    --raw                Single-row format (q[0] q[1] touch[0])\n"
         "  record <file>        Record a session (default format: .tsl)\n"
         "    --frames <n>         Stop after N frames (default: Ctrl+C)\n"
         "    --format <fmt>       Force format: tsl | csv | json\n"
         "    --meta key=value     Add metadata field (repeatable)\n"
         "                           e.g. --meta subject=P01 --meta task=grasp_cup\n"
         "                         serial, firmware, side, n_dofs saved automatically.\n"
         "  replay <file>        Replay a .tsl recording\n"
         "    --speed <f>          Playback speed multiplier (default: 1.0)\n"
         "    --loop               Loop the recording\n"
         "  health               Run a health check on the connected device\n"
         "    --frames <n>         Frames to analyze (default: 500)\n"
         "    --upload             Upload result and fetch certificate without prompting\n"
         "\n"
         "Common flags (stream / record / health / doctor):\n"
         "  --port <port>        Serial port (default: auto-detect)\n"
         "                         Linux: /dev/ttyACM0   Windows: COM3\n"
         "  --mock               Use MockSource instead of real hardware\n"
         "    --hz <rate>          Mock data rate (default: 100 Hz)\n"
         "\n";
}

int run_tool(int argc, const char* const* argv) {
  try {
    return dispatch(argc, argv);
  } catch (const std::exception& error) {
    report(error);
    return 1;
  }
}

}  // namespace tarsil::cli
