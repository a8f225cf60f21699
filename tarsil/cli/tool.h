// The tool as a function: what main() runs.
#pragma once

#include <string_view>

namespace tarsil::cli {

/// The text that explains the command line.
[[nodiscard]] std::string_view usage();

/// Runs the command that the arguments name and returns the exit status. Every std::exception ends here, as
/// one line on standard error and status 1.
[[nodiscard]] int run_tool(int argc, const char* const* argv);

}  // namespace tarsil::cli
