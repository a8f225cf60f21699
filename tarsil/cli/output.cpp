// Nothing is buffered here, so nothing is lost or late when a command waits, fails or is killed.
#include "tarsil/cli/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tarsil/cli/visible_text.h"
#include "tarsil/core/file_io.h"

namespace tarsil::cli {

namespace {

/// A program that shares the terminal or pipe may have set it not to wait: a slow reader is no error for
/// that. 0, or the number of the error.
int write_patiently(int descriptor, std::string_view text) {
  return detail::write_all(descriptor, text, detail::WhenFull::wait);
}

/// Writes for whoever reads there: a terminal gets no control characters, anything else gets every byte.
/// 0, or the number of the error.
int write_for_reader(int descriptor, std::string_view text) {
  if (may_hold_controls(text) && ::isatty(descriptor) != 0) {
    return write_patiently(descriptor, visible_text(text));
  }
  return write_patiently(descriptor, text);
}

/// For when there is no memory for the visible form: a question mark stands for each byte that might be a
/// control.
void write_masked(int descriptor, std::string_view text) {
  std::array<char, 256> piece;
  while (!text.empty()) {
    const std::string_view now = text.substr(0, piece.size());
    std::ranges::transform(now, piece.begin(), [](char c) { return may_hold_controls({&c, 1}) ? '?' : c; });
    static_cast<void>(write_patiently(descriptor, {piece.data(), now.size()}));
    text.remove_prefix(now.size());
  }
}

void throw_on_error(int error) {
  if (error == 0) return;
  throw std::runtime_error("cannot write to standard output: " + std::generic_category().message(error));
}

}  // namespace

void occupy_standard_streams() {
  // open() gives the lowest free number: the one just found closed.
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    const int wrong_way = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (::open("/dev/null", wrong_way) < 0) return;  // deliberately inherited, like what it stands for
  }
}

void write_output(std::string_view text) {
  throw_on_error(write_for_reader(STDOUT_FILENO, text));
}

void write_screen(std::string_view text) {
  throw_on_error(write_patiently(STDOUT_FILENO, text));
}

void write_error(std::string_view text) {
  try {
    static_cast<void>(write_for_reader(STDERR_FILENO, text));
  } catch (const std::bad_alloc&) {
    write_masked(STDERR_FILENO, text);
  }
}

}  // namespace tarsil::cli
