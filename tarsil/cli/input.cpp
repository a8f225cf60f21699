// From before the question on, the stop signals are held back but while ppoll waits: none can slip in between
// asking and waiting, and get lost.
#include "tarsil/cli/input.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tarsil/cli/output.h"
#include "tarsil/core/file_io.h"

namespace tarsil::cli {

namespace {

/// Holds SIGINT and SIGTERM back from this thread while it lives.
class StopSignalsHeld {
 public:
  StopSignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGINT);
    sigaddset(&held, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
  }
  StopSignalsHeld(const StopSignalsHeld&) = delete;
  StopSignalsHeld& operator=(const StopSignalsHeld&) = delete;
  ~StopSignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  [[nodiscard]] const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

}  // namespace

std::optional<std::string> ask(std::string_view question) {
  const StopSignalsHeld held;
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
