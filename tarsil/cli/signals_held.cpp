#include "tarsil/cli/signals_held.h"

namespace tarsil::cli {

SignalsHeld::SignalsHeld(std::initializer_list<int> signals) {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : signals) sigaddset(&held, signal);
  pthread_sigmask(SIG_BLOCK, &held, &before_);
}

SignalsHeld::~SignalsHeld() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace tarsil::cli
