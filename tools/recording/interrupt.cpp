// A descriptor tells of the signals, which are blocked: none can slip in between asking and waiting, and get
// lost.
#include "tools/recording/interrupt.h"

#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace tarsil::recording_tool {

namespace {

/// -1 as long as nobody watches: poll(2) passes that over.
int signals_descriptor = -1;

void wait(pollfd& file, int timeout) {
  std::array<pollfd, 2> files{{{signals_descriptor, POLLIN, 0}, file}};
  while (::poll(files.data(), files.size(), timeout) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot wait");
  }
  if (files[0].revents != 0) throw Interrupted();
  file = files[1];
}

}  // namespace

void watch_for_interrupts() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  signals_descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC);
  if (signals_descriptor < 0 || ::pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot receive signals");
  }
}

void throw_if_interrupted() {
  pollfd none{-1, 0, 0};
  wait(none, 0);
}

void wait_for_input(int descriptor) {
  pollfd file{descriptor, POLLIN, 0};
  wait(file, -1);
}

void wait_for(pollfd& file) {
  wait(file, -1);
}

}  // namespace tarsil::recording_tool
