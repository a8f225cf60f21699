// How long `tarsil --help` takes from its start to its end, next to a program that does nothing. Prints one
// JSON object for scripts/bench, in microseconds.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// Starts of each program, in turns.
constexpr std::size_t kStarts = 300;

/// Runs a program to its end, with its output thrown away; how long that took, in microseconds.
double run(const std::string& program, const std::string& argument) {
  std::string path = program;
  std::string word = argument;
  const std::array<char*, 3> arguments{path.data(), word.data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = 0;
  const auto begin = std::chrono::steady_clock::now();
  const int error = ::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  const bool ended = error == 0 && ::waitpid(child, &status, 0) == child;
  const auto end = std::chrono::steady_clock::now();
  ::posix_spawn_file_actions_destroy(&actions);
  if (!ended || status != 0) throw std::runtime_error("cannot run " + program);
  return std::chrono::duration<double, std::micro>(end - begin).count();
}

double median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int main() {
  try {
    std::vector<double> tool;
    std::vector<double> empty;
    for (std::size_t i = 0; i < kStarts; ++i) {
      tool.push_back(run(TARSIL_TOOL, "--help"));
      empty.push_back(run(TARSIL_EMPTY_PROGRAM, "--help"));
    }
    std::printf("{\n  \"startup/ours\": %.3f,\n  \"startup/floor\": %.3f\n}\n", median(tool), median(empty));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "startup_benchmark: " << error.what() << '\n';
    return 1;
  }
}
