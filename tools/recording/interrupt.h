// Ctrl+C while a file is being written: the command ends in order, and half a file goes with it.
#pragma once

#include <poll.h>

#include <stdexcept>

namespace tarsil::recording_tool {

class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

/// From now on SIGINT, SIGTERM and SIGHUP wait until one of the functions below asks for them. Throws
/// std::runtime_error if that is not possible.
void watch_for_interrupts();

/// Throws Interrupted if one of the signals has come.
void throw_if_interrupted();

/// Waits until `descriptor` can be read. Throws Interrupted if one of the signals comes first.
void wait_for_input(int descriptor);

/// Waits until poll(2) has something to tell of `file`. Throws Interrupted if one of the signals comes first.
void wait_for(pollfd& file);

}  // namespace tarsil::recording_tool
