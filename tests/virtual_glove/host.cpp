// The tests' host.
#include "tests/virtual_glove/host.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "tests/support/wait.h"

namespace tarsil::virtual_glove {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

Deadline in(std::chrono::milliseconds limit) {
  return std::chrono::steady_clock::now() + limit;
}

bool is_past(Deadline deadline) {
  return std::chrono::steady_clock::now() >= deadline;
}

void append(Bytes& out, const Bytes& bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

bool ends_with(const Bytes& bytes, const Bytes& end) {
  return bytes.size() >= end.size() && std::equal(end.rbegin(), end.rend(), bytes.rbegin());
}

std::uint16_t u16_at(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

// Whoever is not root is kept out of a line until the glove has noticed that the last host left it.
int open_when_free(const std::string& port) {
  int descriptor = -1;
  test::eventually([&] {
    descriptor = ::open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    return descriptor >= 0 || errno != EBUSY;
  });
  return descriptor;
}

}  // namespace

Host::Host(const std::string& port) : fd_(open_when_free(port)) {
  termios settings{};
  if (fd_.get() < 0 || ::ioctl(fd_.get(), TIOCEXCL) != 0 || ::tcgetattr(fd_.get(), &settings) != 0) {
    throw std::runtime_error("cannot open " + port);
  }
  settings.c_iflag = 0;
  settings.c_oflag = 0;
  settings.c_lflag = 0;
  settings.c_cflag = CS8 | CREAD | CLOCAL;
  settings.c_cc[VTIME] = 1;
  settings.c_cc[VMIN] = 0;
  if (::tcsetattr(fd_.get(), TCSANOW, &settings) != 0) throw std::runtime_error("cannot configure " + port);
}

void Host::send(std::uint8_t command) {
  if (::write(fd_.get(), &command, 1) != 1) throw std::runtime_error("cannot write to the line");
}

Bytes Host::read_once() {
  std::array<std::uint8_t, 4096> buffer;
  for (;;) {
    const ssize_t got = ::read(fd_.get(), buffer.data(), buffer.size());
    if (got >= 0) return {buffer.begin(), buffer.begin() + got};
    if (errno != EINTR) return {};
  }
}

Bytes Host::read_bytes(std::size_t size, std::chrono::milliseconds limit) {
  Bytes bytes;
  const Deadline deadline = in(limit);
  while (bytes.size() < size && !is_past(deadline)) append(bytes, read_once());
  return bytes;
}

Bytes Host::read_rest() {
  Bytes bytes;
  for (int silent_reads = 0; silent_reads < 2;) {
    const Bytes more = read_once();
    silent_reads = more.empty() ? silent_reads + 1 : 0;
    append(bytes, more);
  }
  return bytes;
}

Bytes Host::read_until_end(const Bytes& end, Bytes bytes) {
  const Deadline deadline = in(test::kPatience);
  while (!ends_with(bytes, end) && !is_past(deadline)) append(bytes, read_once());
  return bytes;
}

std::vector<SeenPacket> packets_in(const Bytes& stream) {
  std::vector<SeenPacket> packets;
  std::size_t at = 0;
  while (at + 9 <= stream.size()) {
    const std::size_t size = u16_at(stream, at + 7);
    if (stream[at] != 0x01 || stream[at + 1] != 0x02 || at + 9 + size > stream.size()) {
      ++at;
      continue;
    }
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at + 9);
    packets.push_back({stream[at + 2],
                       stream[at + 3],
                       u16_at(stream, at + 5),
                       {begin, begin + static_cast<std::ptrdiff_t>(size)}});
    at += 9 + size;
  }
  return packets;
}

std::vector<std::uint16_t> counters_in(const Bytes& stream) {
  std::vector<std::uint16_t> counters;
  for (const SeenPacket& packet : packets_in(stream)) counters.push_back(packet.counter);
  return counters;
}

}  // namespace tarsil::virtual_glove
