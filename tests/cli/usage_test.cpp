// The text that explains the command line, to the byte.
#include <gtest/gtest.h>

#include "tarsil/cli/tool.h"

namespace tarsil::cli {
namespace {

TEST(Usage, is_this_text) {
  EXPECT_EQ(usage(), R"(Usage: tarsil <command> [options]

Commands:
  devices              List connected Tarsil devices
  doctor               Run diagnostics on the connected device
  stream               Stream live data to terminal
    --count <n>          Stop after N frames (default: infinite)
    --raw                Single-row format (q[0] q[1] touch[0])
  record <file>        Record a session (default format: .tsl)
    --frames <n>         Stop after N frames (default: Ctrl+C)
    --format <fmt>       Force format: tsl | csv | json
    --meta key=value     Add metadata field (repeatable)
                           e.g. --meta subject=P01 --meta task=grasp_cup
                         serial, firmware, side, n_dofs saved automatically.
  replay <file>        Replay a .tsl recording
    --speed <f>          Playback speed multiplier (default: 1.0)
    --loop               Loop the recording
  health               Run a health check on the connected device
    --frames <n>         Frames to analyze (default: 500)
    --upload             Upload result and fetch certificate without prompting

Common flags (stream / record / health / doctor):
  --port <port>        Serial port (default: auto-detect)
                         Linux: /dev/ttyACM0   Windows: COM3
  --mock               Use MockSource instead of real hardware
    --hz <rate>          Mock data rate (default: 100 Hz)

)");
}

}  // namespace
}  // namespace tarsil::cli
