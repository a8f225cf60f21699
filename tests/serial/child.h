// Hosts in a process of their own: for tests about what a process may do, and about processes that are
// stopped.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <stdexcept>

#include "tests/support/wait.h"

namespace tarsil::test {

/// A forked copy of the test that runs one function and ends with its result. To be made while the test has
/// no other thread. Killed, if it still runs, when the object goes.
class Child {
 public:
  /// Status of a child that an exception has ended.
  static constexpr int kException = 99;

  /// `body` gets a function that tells the parent that the child has come so far.
  explicit Child(const std::function<int(const std::function<void()>& tell)>& body) {
    if (::pipe2(told_.data(), O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("cannot fork");
    if (pid_ > 0) return;
    int status = kException;
    try {
      status = body([this] {
        const char told = 1;
        if (::write(told_[1], &told, 1) != 1) ::_exit(kException);
      });
    } catch (...) {
      // The status tells.
    }
    ::_exit(status);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      wait_for(0);
    }
    for (const int end : told_) ::close(end);
  }

  /// Waits until the child has told; false if it does not.
  [[nodiscard]] bool wait_until_told() const {
    pollfd told{told_[0], POLLIN, 0};
    constexpr int kPatienceMs = std::chrono::milliseconds(kPatience).count();
    char byte = 0;
    return ::poll(&told, 1, kPatienceMs) == 1 && ::read(told_[0], &byte, 1) == 1;
  }

  /// Stops the child with all its threads; returns when none runs any more.
  void stop() const {
    ::kill(pid_, SIGSTOP);
    if (!WIFSTOPPED(wait_for(WUNTRACED))) throw std::runtime_error("the child does not stop");
  }
  void resume() const { ::kill(pid_, SIGCONT); }

  /// Waits for the end of the child; its status, or -1 if a signal has ended it.
  [[nodiscard]] int wait() {
    const int status = wait_for(0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int wait_for(int options) const {
    int status = 0;
    while (::waitpid(pid_, &status, options) < 0 && errno == EINTR) {
    }
    return status;
  }

  std::array<int, 2> told_{-1, -1};
  pid_t pid_ = -1;
};

/// In a child: makes every read of the terminal behind `descriptor` fail from now on, by moving this process
/// to the terminal's background, where it may not read. Reads work again when the object goes.
class ReadsFail {
 public:
  explicit ReadsFail(int descriptor) {
    for (const int signal : {SIGTTIN, SIGTTOU, SIGHUP}) ::signal(signal, SIG_IGN);
    ::setsid();
    bool done = ::ioctl(descriptor, TIOCSCTTY, 0) == 0;
    foreground_ = ::fork();
    if (foreground_ == 0) {
      for (;;) ::pause();
    }
    done = done && ::setpgid(foreground_, foreground_) == 0 && ::tcsetpgrp(descriptor, foreground_) == 0;
    if (!done) throw std::runtime_error("cannot leave the foreground");
  }
  ReadsFail(const ReadsFail&) = delete;
  ReadsFail& operator=(const ReadsFail&) = delete;
  ~ReadsFail() {
    ::kill(foreground_, SIGKILL);
    ::waitpid(foreground_, nullptr, 0);
  }

 private:
  pid_t foreground_ = -1;
};

/// In a child: gives up root's rights, which stand above those that the tests are about.
inline void become_ordinary_user() {
  constexpr uid_t kNobody = 65534;
  if (::geteuid() != 0) return;
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
    throw std::runtime_error("cannot become another user");
}

/// Processor time that this process has used so far, in seconds.
inline double cpu_seconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace tarsil::test
