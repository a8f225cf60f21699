// No shell: the program gets its words one by one and the script through a pipe.
#include "tools/recording/gnuplot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
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

/// Makes a pipe whose reader has gone a failed write. Unlike an ignored signal, a handled one is back at its
/// default in the program that is started.
void survive_broken_pipes() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = [](int) {};
  sigaction(SIGPIPE, &action, nullptr);
}

/// Takes signals again that this program has blocked.
int unblock_signals(posix_spawnattr_t& attributes) {
  sigset_t none;
  sigemptyset(&none);
  const int error = ::posix_spawnattr_setsigmask(&attributes, &none);
  return error != 0 ? error : ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
}

/// This program's environment, but a locale whose numbers have a decimal point, like those in the script.
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
int start(pid_t& child, int input, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  // Neither can fail in the C library that this is made for: they have nothing to get.
  static_cast<void>(::posix_spawn_file_actions_init(&actions));
  static_cast<void>(::posix_spawnattr_init(&attributes));
  int error = unblock_signals(attributes);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  std::string program = "gnuplot";
  std::string option = kWithoutUserSettings;
  std::string locale = "LC_ALL=C";
  const std::vector<char*> environment = environment_with(locale);
  const std::array<char*, 3> words{program.data(), option.data(), nullptr};
  if (error == 0)
    error = ::posix_spawnp(&child, program.c_str(), &actions, &attributes, words.data(), environment.data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

Gnuplot::Gnuplot(int output) {
  survive_broken_pipes();
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start gnuplot");
  }
  const int error = start(child_, ends[0], output);
  ::close(ends[0]);
  script_ = ends[1];
  if (error == 0) return;
  child_ = -1;
  close_script();
  if (error == ENOENT) {
    throw std::runtime_error("gnuplot is not installed, which draws the pictures (Debian: gnuplot-nox)");
  }
  throw std::system_error(error, std::generic_category(), "cannot start gnuplot");
}

Gnuplot::~Gnuplot() {
  close_script();
  if (child_ < 0) return;
  ::kill(child_, SIGTERM);
  while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Gnuplot::close_script() {
  if (script_ >= 0) ::close(script_);
  script_ = -1;
}

void Gnuplot::run(std::string_view script) {
  // If it does not take all of it, it has failed, and its status says so.
  static_cast<void>(detail::write_all(script_, script));
  close_script();
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
