// A new thread inherits the signal mask of the one that starts it, so the mask is full around the start.
#include "tarsil/core/thread.h"

#include <csignal>
#include <utility>

namespace tarsil::detail {

namespace {

/// Blocks every signal for the calling thread while it lives.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

std::thread start_thread(std::function<void()> body) {
  const SignalsBlocked blocked;
  return std::thread(std::move(body));
}

}  // namespace tarsil::detail
