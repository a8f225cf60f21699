// Nothing is buffered here, so nothing is lost or late when a command waits, fails or is killed.
#include "tarsil/cli/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <system_error>

#include "tarsil/core/file_io.h"

namespace tarsil::cli {

void occupy_standard_streams() {
  // open() gives the lowest free number: the one just found closed.
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    const int wrong_way = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (::open("/dev/null", wrong_way) < 0) return;  // deliberately inherited, like what it stands for
  }
}

void write_output(std::string_view text) {
  if (const int error = detail::write_all(STDOUT_FILENO, text); error != 0) {
    throw std::runtime_error("cannot write to standard output: " + std::generic_category().message(error));
  }
}

void write_error(std::string_view text) {
  static_cast<void>(detail::write_all(STDERR_FILENO, text));
}

}  // namespace tarsil::cli
