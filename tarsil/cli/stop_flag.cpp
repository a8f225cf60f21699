// A signal handler may touch little; this one touches one lock-free atomic.
#include "tarsil/cli/stop_flag.h"

#include <atomic>
#include <csignal>

namespace tarsil::cli {

namespace {

std::atomic<bool> stop_flag = false;
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void set_stop_flag(int) {
  stop_flag.exchange(true);
}

}  // namespace

void install_stop_signals() {
  struct sigaction action {};
  action.sa_handler = set_stop_flag;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool stop_requested() {
  return stop_flag;
}

}  // namespace tarsil::cli
