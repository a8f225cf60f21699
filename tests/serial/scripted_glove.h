// A glove whose every byte a test decides: a pseudo-terminal with the test on its far side. For what a sane
// glove never does.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tests/serial/wire_bytes.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/descriptor.h"

namespace tarsil::test {

/// The far side of a serial line. It has no thread: what happens on the line is what the test calls. The
/// glove's side stays open when a host leaves; unread bytes stay with it. Not thread-safe.
class ScriptedGlove {
 public:
  ScriptedGlove() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    std::array<char, 64> name{};
    if (master_.get() < 0 || ::grantpt(master_.get()) != 0 || ::unlockpt(master_.get()) != 0 ||
        ::ptsname_r(master_.get(), name.data(), name.size()) != 0) {
      fail("cannot make a pseudo-terminal");
    }
    port_ = name.data();
    slave_ = virtual_glove::Descriptor(::open(port_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (slave_.get() < 0) fail("cannot open the host's side");
    termios raw = settings();
    ::cfmakeraw(&raw);
    apply(raw);
  }

  /// Path of the port, for hosts.
  [[nodiscard]] const std::string& port() const { return port_; }

  /// The line settings as they are now.
  [[nodiscard]] termios settings() const {
    termios line{};
    if (::tcgetattr(slave_.get(), &line) != 0) fail("cannot read the line's settings");
    return line;
  }
  void apply(const termios& line) const {
    if (::tcsetattr(slave_.get(), TCSANOW, &line) != 0) fail("cannot set the line's settings");
  }

  /// Whether a host has asked for exclusive use. On a pseudo-terminal that outlives the host.
  [[nodiscard]] bool exclusive() const {
    int exclusive = 0;
    if (::ioctl(slave_.get(), TIOCGEXCL, &exclusive) != 0) fail("cannot ask for exclusive use");
    return exclusive != 0;
  }
  void end_exclusive_use() const { ::ioctl(slave_.get(), TIOCNXCL); }

  /// Sends bytes to the host; short messages arrive in one piece. Throws if the host does not take them.
  void send(const Bytes& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count = ::write(master_.get(), bytes.data() + sent, bytes.size() - sent);
      if (count > 0) sent += static_cast<std::size_t>(count);
      if (count >= 0 || errno == EINTR) continue;
      pollfd room{master_.get(), POLLOUT, 0};
      constexpr int kPatienceMs = std::chrono::milliseconds(kPatience).count();
      if (errno != EAGAIN || ::poll(&room, 1, kPatienceMs) == 0) fail("cannot send to the host");
    }
  }

  /// Everything that hosts have written so far.
  [[nodiscard]] const Bytes& heard() {
    std::array<std::uint8_t, 256> bytes{};
    for (;;) {
      const ssize_t count = ::read(master_.get(), bytes.data(), bytes.size());
      if (count <= 0) return heard_;
      heard_.insert(heard_.end(), bytes.begin(), bytes.begin() + count);
    }
  }

  /// Plays a sane glove up to the start of the stream, once for each host.
  void start(const std::string& serial = "TSL-T1") {
    wait_for_next_command("the glove is not reset");
    send(identity_frame(serial));
    wait_for_next_command("the glove is not started");
  }

  /// Pulls the plug. A read in which a host waits at this moment may fail; every later one comes back at once
  /// with nothing.
  void unplug() {
    slave_ = virtual_glove::Descriptor();
    master_ = virtual_glove::Descriptor();
  }

  /// The glove's own descriptor of the host's side.
  [[nodiscard]] int slave() const { return slave_.get(); }

 private:
  [[noreturn]] static void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
  }

  void wait_for_next_command(const char* complaint) {
    ++commands_;
    if (!eventually([this] { return heard().size() >= commands_; })) throw std::runtime_error(complaint);
  }

  virtual_glove::Descriptor master_;
  virtual_glove::Descriptor slave_;
  std::string port_;
  Bytes heard_;
  std::size_t commands_ = 0;  // bytes of heard_ that start() has waited for
};

}  // namespace tarsil::test
