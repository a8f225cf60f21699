// A stream that outlives a pulled cable, and says what state it is in. A ReconnectingSource never leaves its
// reader waiting for long: while there is nothing new it repeats the last frame and marks it as stale.
//
//   stay_connected PORT [ATTEMPTS]     how often to look for a lost glove before giving up (default 10)
#include <charconv>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "tarsil/tarsil.h"

namespace {

enum class State { waiting, live, silent };

std::string describe(State state, const tarsil::DeviceInfo& glove) {
  switch (state) {
    case State::live:
      return "live: " + glove.serial;
    case State::silent:
      return "silent: " + glove.serial;
    case State::waiting:
      break;
  }
  return "waiting for a glove";
}

State next(State state, const tarsil::Frame& frame) {
  if (!frame.stale) return State::live;
  // A glove that was never there is not missed.
  return state == State::waiting ? State::waiting : State::silent;
}

/// Whether `text` is a whole number, which then is in `number`.
bool read_number(std::string_view text, std::uint32_t& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end;
}

}  // namespace

int main(int argc, char** argv) try {
  std::uint32_t attempts = 10;
  if (argc < 2 || (argc > 2 && !read_number(argv[2], attempts))) {
    std::cerr << "Usage: stay_connected PORT [ATTEMPTS]\n";
    return 2;
  }
  const std::string port = argv[1];
  tarsil::ReconnectingSource glove({
      // Called for every attempt. It may throw, or return a source that is not open: then the attempt has
      // failed.
      .factory =
          [port] { return std::make_shared<tarsil::SerialSource>(tarsil::SerialConfig{.port = port}); },
      .read_timeout_s = 0.5F,
      .initial_backoff_s = 0.1F,
      .max_backoff_s = 0.4F,
      .max_attempts = attempts,
  });

  State state = State::waiting;
  std::cout << describe(state, {}) << std::endl;
  try {
    while (glove.is_open()) {
      const State now = next(state, glove.read_frame());
      if (now != state) std::cout << describe(now, glove.device_info()) << std::endl;
      state = now;
    }
  } catch (const tarsil::StreamUnderrunError&) {
    // It gave up while the read was waiting.
  }
  std::cout << "gone" << std::endl;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
