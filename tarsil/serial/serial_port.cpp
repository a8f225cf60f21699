// System calls of a serial line.
#include "tarsil/serial/serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "tarsil/core/file_io.h"

namespace tarsil::detail {

namespace {

/// Tenths of a second, as the line settings want it.
constexpr cc_t kReadTimeoutTenths = SerialPort::kReadTimeout / std::chrono::milliseconds(100);

speed_t speed_code(std::int32_t baud) {
  switch (baud) {
    case 9600:
      return B9600;
    case 19200:
      return B19200;
    case 38400:
      return B38400;
    case 57600:
      return B57600;
    case 230400:
      return B230400;
    case 460800:
      return B460800;
    case 921600:
      return B921600;
    case 1000000:
      return B1000000;
    case 1500000:
      return B1500000;
    case 2000000:
      return B2000000;
    // Deliberately no error: an odd rate gets the one that every adapter has.
    default:
      return B115200;
  }
}

bool set_up_line(int descriptor, speed_t speed) {
  termios line{};
  if (tcgetattr(descriptor, &line) != 0) return false;
  line.c_iflag = 0;
  line.c_oflag = 0;
  line.c_lflag = 0;
  line.c_cflag = CS8 | CREAD | CLOCAL;
  line.c_cc[VTIME] = kReadTimeoutTenths;
  line.c_cc[VMIN] = 0;
  cfsetispeed(&line, speed);
  cfsetospeed(&line, speed);
  return tcsetattr(descriptor, TCSANOW, &line) == 0;
}

}  // namespace

std::optional<SerialPort> SerialPort::open(const std::string& path, std::int32_t baud) {
  const int descriptor = open_file(path.c_str(), O_RDWR | O_NOCTTY);
  if (descriptor < 0) return std::nullopt;
  SerialPort port(descriptor);
  ioctl(descriptor, TIOCEXCL);  // asked for, not insisted on
  if (!set_up_line(descriptor, speed_code(baud))) return std::nullopt;
  return port;
}

SerialPort::SerialPort(SerialPort&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

SerialPort::~SerialPort() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

/// Whether the cable has been pulled.
bool SerialPort::hung_up() const {
  pollfd polled{descriptor_, 0, 0};
  return ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLHUP) != 0;
}

std::optional<std::size_t> SerialPort::read(std::span<std::uint8_t> space) {
  const ssize_t count = read_some(descriptor_, space.data(), space.size());
  // A port that hangs up while it is read from may say so once; from then on it gives 0 like any that has
  // hung up.
  if (count < 0 && errno == EIO && hung_up()) return 0;
  if (count < 0) return std::nullopt;
  return static_cast<std::size_t>(count);
}

void SerialPort::write(std::uint8_t byte) {
  static_cast<void>(write_all(descriptor_, {reinterpret_cast<const char*>(&byte), 1}));
}

}  // namespace tarsil::detail
