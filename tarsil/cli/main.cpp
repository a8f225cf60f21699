// Entry point of the tool.
#include "tarsil/cli/output.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/cli/tool.h"

int main(int argc, char** argv) {
  tarsil::cli::occupy_standard_streams();
  tarsil::cli::install_stop_signals();
  return tarsil::cli::run_tool(argc, argv);
}
