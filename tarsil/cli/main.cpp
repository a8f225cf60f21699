// Entry point of the tool.
#include <csignal>

#include "tarsil/cli/output.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/cli/tool.h"

int main(int argc, char** argv) {
  tarsil::cli::occupy_standard_streams();
  // A file that may not grow any further is a failed write with a message, not the end of the process.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  tarsil::cli::install_stop_signals();
  return tarsil::cli::run_tool(argc, argv);
}
