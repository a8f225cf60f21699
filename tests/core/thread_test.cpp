// A thread of the library takes no signals, and its start leaves the caller's mask alone.
#include "tarsil/core/thread.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <thread>
#include <vector>

namespace tarsil::detail {
namespace {

/// Every signal that can be blocked at all.
std::vector<int> blockable_signals() {
  std::vector<int> signals;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const bool reserved = signal > SIGSYS && signal < SIGRTMIN;
    if (signal != SIGKILL && signal != SIGSTOP && !reserved) signals.push_back(signal);
  }
  return signals;
}

sigset_t current_mask() {
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return mask;
}

TEST(StartThread, runs_the_body_on_another_thread) {
  std::thread::id id;
  std::thread thread = start_thread([&] { id = std::this_thread::get_id(); });
  thread.join();
  EXPECT_NE(id, std::thread::id());
  EXPECT_NE(id, std::this_thread::get_id());
}

TEST(StartThread, blocks_every_signal_in_the_new_thread) {
  sigset_t mask;
  sigemptyset(&mask);
  std::thread thread = start_thread([&] { mask = current_mask(); });
  thread.join();
  for (const int signal : blockable_signals()) EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
}

TEST(StartThread, gives_the_caller_its_mask_back) {
  sigset_t mine;
  sigemptyset(&mine);
  sigaddset(&mine, SIGUSR1);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &mine, &before);
  std::thread thread = start_thread([] {});
  const sigset_t after = current_mask();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  thread.join();
  for (const int signal : blockable_signals()) {
    EXPECT_EQ(sigismember(&after, signal), signal == SIGUSR1 ? 1 : 0) << signal;
  }
}

}  // namespace
}  // namespace tarsil::detail
