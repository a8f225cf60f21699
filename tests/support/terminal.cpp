// The master side is the screen, the slave side the line to it.
#include "tests/support/terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/wait.h"

namespace tarsil::test {

Terminal::Terminal() : screen_(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
  if (screen_ < 0 || ::grantpt(screen_) != 0 || ::unlockpt(screen_) != 0) {
    throw std::runtime_error("cannot make a terminal");
  }
  path_ = ::ptsname(screen_);
  line_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings{};
  if (line_ < 0 || ::tcgetattr(line_, &settings) != 0) throw std::runtime_error("cannot open the terminal");
  ::cfmakeraw(&settings);
  ::tcsetattr(line_, TCSANOW, &settings);
}

Terminal::~Terminal() {
  ::close(line_);
  ::close(screen_);
}

const std::string& Terminal::shown() {
  std::array<char, 4096> bytes;
  for (ssize_t count = 0; (count = ::read(screen_, bytes.data(), bytes.size())) > 0;) {
    shown_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return shown_;
}

bool Terminal::wait_for_end(const std::string& text) {
  return eventually([&] { return shown().ends_with(text); });
}

}  // namespace tarsil::test
