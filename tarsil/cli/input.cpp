// From before the question on, the stop signals are held back but while ppoll waits: none can slip in between
// asking and waiting, and get lost.
#include "tarsil/cli/input.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tarsil/cli/output.h"
#include "tarsil/cli/signals_held.h"
#include "tarsil/core/file_io.h"

namespace tarsil::cli {

std::optional<std::string> ask(std::string_view question) {
  const SignalsHeld held({SIGINT, SIGTERM});
  write_output(question);
  std::string line;
  while (true) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (ppoll(&input, 1, nullptr, &held.before()) < 0 && errno == EINTR) return std::nullopt;
    std::array<char, 256> bytes;
    const ssize_t count = detail::read_some(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return line;
    line.append(bytes.data(), static_cast<std::size_t>(count));
    if (const auto feed = line.find('\n'); feed != std::string::npos) return line.substr(0, feed);
  }
}

}  // namespace tarsil::cli
