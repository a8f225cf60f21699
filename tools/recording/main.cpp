// Entry point of the recording tool.
#include <csignal>

#include "tarsil/cli/output.h"
#include "tools/recording/tool.h"

int main(int argc, char** argv) {
  tarsil::cli::occupy_standard_streams();
  // A file that may not grow any further is a failed write with a message, not the end of the process.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  return tarsil::recording_tool::run_tool(argc, argv);
}
