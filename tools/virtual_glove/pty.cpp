// Pseudo-terminal calls. Everything is non-blocking; whoever uses the class waits with poll.
#include "tools/virtual_glove/pty.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace tarsil::virtual_glove {
namespace {

constexpr std::size_t kReadSize = 4096;
constexpr std::size_t kPathSize = 128;
constexpr std::uint32_t kWatched = IN_OPEN | IN_CLOSE;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Descriptor open_master() {
  Descriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  if (master.get() < 0 || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) {
    fail("cannot open a pseudo-terminal");
  }
  return master;
}

std::string slave_path(const Descriptor& master) {
  std::array<char, kPathSize> path{};
  if (::ptsname_r(master.get(), path.data(), path.size()) != 0) fail("cannot name the pseudo-terminal");
  return path.data();
}

// Reads what is there without waiting; -1 stands for "nothing there".
ssize_t read_available(int fd, void* buffer, std::size_t size, const char* what) {
  for (;;) {
    const ssize_t got = ::read(fd, buffer, size);
    if (got >= 0 || errno == EAGAIN) return got;
    if (errno != EINTR) fail(what);
  }
}

}  // namespace

Pty::Pty() : master_(open_master()), path_(slave_path(master_)) {
  // Before anyone can open the line: what the glove writes must not be echoed back to it as commands.
  make_raw();
  slave_ = Descriptor(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  if (slave_.get() < 0) fail("cannot open the slave side");
  // The watch begins behind the glove's own opening, which is not to be taken for a host's.
  events_ = Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (events_.get() < 0) fail("cannot watch the line");
  watch_ = ::inotify_add_watch(events_.get(), path_.c_str(), kWatched);
  // The kernel merges an event with an equal one that was not read yet, so that two hosts that open one after
  // the other would count as one. The directory's watch reports each event once more, in between, and so
  // keeps equal ones apart.
  const std::string directory = std::filesystem::path(path_).parent_path();
  if (watch_ < 0 || ::inotify_add_watch(events_.get(), directory.c_str(), kWatched) < 0)
    fail("cannot watch the line");
}

void Pty::make_raw() {
  termios settings{};
  if (::tcgetattr(master_.get(), &settings) != 0) fail("cannot read the line's settings");
  ::cfmakeraw(&settings);
  if (::tcsetattr(master_.get(), TCSANOW, &settings) != 0) fail("cannot set the line's settings");
}

Bytes Pty::read_commands() {
  Bytes commands;
  std::array<std::uint8_t, kReadSize> buffer;
  for (;;) {
    const ssize_t got =
        read_available(master_.get(), buffer.data(), buffer.size(), "cannot read from the line");
    if (got <= 0) return commands;
    commands.insert(commands.end(), buffer.begin(), buffer.begin() + got);
  }
}

std::size_t Pty::write_some(ByteView bytes) {
  for (;;) {
    const ssize_t put = ::write(master_.get(), bytes.data(), bytes.size());
    if (put >= 0) return static_cast<std::size_t>(put);
    if (errno == EAGAIN) return 0;
    if (errno != EINTR) fail("cannot write to the line");
  }
}

std::vector<HostEvent> Pty::read_events() {
  std::vector<HostEvent> events;
  alignas(inotify_event) std::array<char, kReadSize> buffer;
  for (;;) {
    const ssize_t got = read_available(events_.get(), buffer.data(), buffer.size(), "cannot watch the line");
    if (got <= 0) return events;
    for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + at, sizeof event);
      at += sizeof event + event.len;
      if (event.wd != watch_) continue;
      if ((event.mask & IN_OPEN) != 0) events.push_back(HostEvent::opened);
      if ((event.mask & IN_CLOSE) != 0) events.push_back(HostEvent::closed);
    }
  }
}

std::size_t Pty::unread() const {
  int count = 0;
  if (::ioctl(slave_.get(), FIONREAD, &count) != 0) fail("cannot count unread bytes");
  return static_cast<std::size_t>(count);
}

void Pty::discard_unread() {
  // First what is on its way, then what has arrived; the other way round the former would arrive in between.
  ::tcflush(master_.get(), TCOFLUSH);
  ::tcflush(slave_.get(), TCIFLUSH);
}

void Pty::end_exclusive_use() {
  ::ioctl(slave_.get(), TIOCNXCL);
}

}  // namespace tarsil::virtual_glove
