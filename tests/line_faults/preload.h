// The tool with a small library in front of the system's: for what a test cannot do to it from outside.
#pragma once

#include <string>

#include "tests/support/process.h"

namespace tarsil::test {

/// Its wall clock is off by the nanoseconds in `offset_file`: eight bytes, looked at anew each time.
[[nodiscard]] ProcessOptions with_shifted_clock(ProcessOptions program, const std::string& offset_file);

/// The file `port` goes in the moment in which it is to be opened.
[[nodiscard]] ProcessOptions with_vanishing_port(ProcessOptions program, const std::string& port);

/// The locale of its environment is in force from the beginning.
[[nodiscard]] ProcessOptions with_users_locale(ProcessOptions program);

}  // namespace tarsil::test
