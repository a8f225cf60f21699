// Ctrl+C while a file is being written: the command ends in order, and half a file goes with it.
#pragma once

#include <stdexcept>

namespace tarsil::recording_tool {

class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

/// From now on SIGINT, SIGTERM and SIGHUP set a flag and cut waiting reads short, and a reader that goes away
/// is a failed write. Programs started from here take them as usual.
void watch_for_interrupts();

/// Throws Interrupted if one of the signals has come.
void throw_if_interrupted();

}  // namespace tarsil::recording_tool
