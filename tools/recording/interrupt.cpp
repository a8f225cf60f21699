// A signal handler may touch little; this one touches one lock-free atomic.
#include "tools/recording/interrupt.h"

#include <atomic>
#include <csignal>

namespace tarsil::recording_tool {

namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void note_interrupt(int) {
  interrupted = true;
}

// Unlike an ignored signal, a handled one is back at its default in a program that is started.
extern "C" void pass_over(int) {}

}  // namespace

void watch_for_interrupts() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = pass_over;
  sigaction(SIGPIPE, &action, nullptr);
  action.sa_handler = note_interrupt;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    // What nohup or a script's background has switched off stays off.
    struct sigaction before {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
}

void throw_if_interrupted() {
  if (interrupted) throw Interrupted();
}

}  // namespace tarsil::recording_tool
