// The recording tool behind its entry point.
#pragma once

namespace tarsil::recording_tool {

/// Runs the command that the arguments name and returns the exit status. Every error is reported here.
int run_tool(int argc, const char* const* argv);

}  // namespace tarsil::recording_tool
