// fork, exec, pipes and poll.
#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace tarsil::test {

namespace {

std::array<int, 2> make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  return ends;
}

void close_once(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

int open_for_writing(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (descriptor < 0) throw std::runtime_error("cannot open " + path);
  return descriptor;
}

}  // namespace

Process::Process(ProcessOptions options) {
  auto input = make_pipe();
  input_ = input[1];
  auto redirect = [](const std::string& path, Stream& stream) {
    if (!path.empty()) return open_for_writing(path);
    const auto ends = make_pipe();
    stream.descriptor = ends[0];
    return ends[1];
  };
  int output = redirect(options.output_path, output_);
  int error = redirect(options.error_path, error_);
  start_child(options, input[0], output, error);
  close_once(input[0]);
  close_once(output);
  close_once(error);
}

void Process::start_child(const ProcessOptions& options, int input, int output, int error) {
  std::vector<char*> arguments;
  for (const auto& argument : options.command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ > 0) return;
  // A whole run of tests can have every program that it starts loaded with a library of its choice.
  if (const char* library = getenv("TARSIL_TEST_PRELOAD")) setenv("LD_PRELOAD", library, 1);
  for (const auto& [name, value] : options.environment) setenv(name.c_str(), value.c_str(), 1);
  if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) _exit(126);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(error, STDERR_FILENO);
  if (options.in_child) options.in_child();
  execvp(arguments[0], arguments.data());
  _exit(127);
}

Process::~Process() {
  if (!status_ && pid_ > 0 && !reap()) {
    kill(pid_, SIGKILL);
    int ignored = 0;
    while (waitpid(pid_, &ignored, 0) < 0 && errno == EINTR) {
    }
  }
  close_once(input_);
  close_once(output_.descriptor);
  close_once(error_.descriptor);
}

void Process::send_signal(int signal) const {
  if (!status_) kill(pid_, signal);
}

void Process::write_input(const std::string& text) {
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("cannot write to the child");
  }
}

void Process::close_input() {
  close_once(input_);
}

void Process::close_output() {
  close_once(output_.descriptor);
}

const std::string& Process::output() {
  pump(0);
  return output_.text;
}

const std::string& Process::error() {
  pump(0);
  return error_.text;
}

void Process::pump(int wait_ms) {
  std::array<Stream*, 2> streams{&output_, &error_};
  std::array<pollfd, 2> polled{};
  for (std::size_t i = 0; i < streams.size(); ++i) polled[i] = {streams[i]->descriptor, POLLIN, 0};
  poll(polled.data(), polled.size(), wait_ms);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (polled[i].fd < 0 || polled[i].revents == 0) continue;
    std::array<char, 65536> bytes;
    const ssize_t count = ::read(streams[i]->descriptor, bytes.data(), bytes.size());
    if (count > 0) streams[i]->text.append(bytes.data(), static_cast<std::size_t>(count));
    if (count == 0) close_once(streams[i]->descriptor);
  }
}

bool Process::reap() {
  if (status_) return true;
  int raw = 0;
  const pid_t ended = waitpid(pid_, &raw, WNOHANG);
  if (ended != pid_) return false;
  status_ = WIFEXITED(raw) ? ExitStatus{WEXITSTATUS(raw), 0} : ExitStatus{-1, WTERMSIG(raw)};
  return true;
}

bool Process::wait_until(const std::function<bool()>& condition, std::chrono::nanoseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    const bool over = output_.descriptor < 0 && error_.descriptor < 0;
    if (over || std::chrono::steady_clock::now() >= deadline) return false;
    pump(20);
  }
  return true;
}

bool Process::wait_for_output(const std::string& text, std::chrono::nanoseconds limit) {
  return wait_until([&] { return output_.text.find(text) != std::string::npos; }, limit);
}

bool Process::wait_for_error(const std::string& text, std::chrono::nanoseconds limit) {
  return wait_until([&] { return error_.text.find(text) != std::string::npos; }, limit);
}

ExitStatus Process::wait(std::chrono::nanoseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!reap()) {
    if (std::chrono::steady_clock::now() >= deadline) throw std::runtime_error("the child does not end");
    pump(10);
  }
  // What it wrote last may still be in the pipes. Grandchildren may hold them open: nothing more is waited
  // for then.
  for (std::size_t before = SIZE_MAX; before != output_.text.size() + error_.text.size();) {
    before = output_.text.size() + error_.text.size();
    pump(0);
  }
  return *status_;
}

Finished run(std::vector<std::string> command, std::chrono::nanoseconds limit) {
  ProcessOptions options;
  options.command = std::move(command);
  return run(std::move(options), limit);
}

Finished run(ProcessOptions options, std::chrono::nanoseconds limit) {
  Process process(std::move(options));
  process.close_input();
  const ExitStatus status = process.wait(limit);
  return {status, process.output(), process.error()};
}

}  // namespace tarsil::test
