// No shell: the program gets its words one by one and the script through a connection, on which the picture
// comes back. gnuplot does not notice when it cannot write, so it does not write the file.
#include "tools/recording/gnuplot.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tarsil/core/file_io.h"
#include "tools/recording/interrupt.h"

namespace tarsil::recording_tool {

namespace {

/// Settings that a user keeps for gnuplot are not for these pictures.
constexpr const char* kWithoutUserSettings = "-d";

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

/// Takes signals again that this program has blocked.
int unblock_signals(posix_spawnattr_t& attributes) {
  sigset_t none;
  sigemptyset(&none);
  const int error = ::posix_spawnattr_setsigmask(&attributes, &none);
  return error != 0 ? error : ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
}

/// This program's environment, but a locale whose numbers have a decimal point and whose texts are UTF-8,
/// like those in the script.
std::vector<char*> environment_with(std::string& locale) {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with("LC_ALL=")) variables.push_back(*variable);
  }
  variables.push_back(locale.data());
  variables.push_back(nullptr);
  return variables;
}

/// 0, or the error number.
int start(pid_t& child, int connection) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  // Neither can fail in the C library that this is made for: they have nothing to get.
  static_cast<void>(::posix_spawn_file_actions_init(&actions));
  static_cast<void>(::posix_spawnattr_init(&attributes));
  int error = unblock_signals(attributes);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, connection, STDIN_FILENO);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, connection, STDOUT_FILENO);
  std::string program = "gnuplot";
  std::string option = kWithoutUserSettings;
  std::string locale = "LC_ALL=C.UTF-8";
  const std::vector<char*> environment = environment_with(locale);
  const std::array<char*, 3> words{program.data(), option.data(), nullptr};
  if (error == 0)
    error = ::posix_spawnp(&child, program.c_str(), &actions, &attributes, words.data(), environment.data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

Gnuplot::Gnuplot() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start gnuplot");
  }
  const int error = start(child_, ends[1]);
  ::close(ends[1]);
  connection_ = ends[0];
  if (error == 0) return;
  child_ = -1;
  disconnect();
  if (error == ENOENT) {
    throw std::runtime_error("gnuplot is not installed, which draws the pictures (Debian: gnuplot-nox)");
  }
  throw std::system_error(error, std::generic_category(), "cannot start gnuplot");
}

Gnuplot::~Gnuplot() {
  // In this order: it has nothing to say about a connection that is lost.
  if (child_ >= 0) ::kill(child_, SIGTERM);
  disconnect();
  while (child_ >= 0 && ::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Gnuplot::disconnect() {
  if (connection_ >= 0) ::close(connection_);
  connection_ = -1;
}

/// Sends what there is room for of `script` and takes it off.
void Gnuplot::hand_over(std::string_view& script) {
  const ssize_t count = ::send(connection_, script.data(), script.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count > 0) {
    script.remove_prefix(static_cast<std::size_t>(count));
  } else if (errno != EAGAIN && errno != EINTR) {
    // If it does not take all of it, it has failed, and its status says so.
    script = {};
  }
  if (script.empty()) ::shutdown(connection_, SHUT_WR);
}

void Gnuplot::run(std::string_view script, const std::function<void(std::string_view)>& take) {
  constexpr short kReading = POLLIN;
  constexpr short kReadingAndWriting = POLLIN | POLLOUT;
  std::vector<char> piece(kPieceSize);
  while (true) {
    pollfd connection{connection_, script.empty() ? kReading : kReadingAndWriting, 0};
    wait_for(connection);
    if (!script.empty()) hand_over(script);
    if ((connection.revents & ~POLLOUT) == 0) continue;
    const ssize_t count = detail::read_some(connection_, piece.data(), piece.size());
    // It has ended; an error is what comes of a script that it has not read.
    if (count <= 0) break;
    take({piece.data(), static_cast<std::size_t>(count)});
  }
  int status = 0;
  while (::waitpid(child_, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot wait for gnuplot");
  }
  child_ = -1;
  throw_if_interrupted();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("gnuplot could not draw the picture");
  }
}

}  // namespace tarsil::recording_tool
