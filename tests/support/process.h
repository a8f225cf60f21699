// Running the built programs as a person would, and looking at what they do.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/wait.h"

namespace tarsil::test {

/// How a child is started.
struct ProcessOptions {
  /// Program and arguments.
  std::vector<std::string> command;
  /// Variables set on top of this process's environment.
  std::map<std::string, std::string> environment = {};
  /// Working directory; empty: this process's.
  std::string directory = {};
  /// Where the streams go: empty for a pipe that this object reads, otherwise a path that is opened for
  /// writing.
  std::string output_path = {};
  std::string error_path = {};
  /// Called in the child between fork and exec; only what is async-signal-safe.
  std::function<void()> in_child = {};
};

/// How a child ended.
struct ExitStatus {
  /// Exit status, or -1 if a signal ended the child.
  int code = -1;
  /// The signal, or 0.
  int signal = 0;

  friend bool operator==(const ExitStatus&, const ExitStatus&) = default;
};

/// A child process. Its standard output and error are read as they come; its standard input is a pipe.
/// Killed and waited for, if it still runs, when the object goes. One thread uses it.
class Process {
 public:
  explicit Process(ProcessOptions options);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  [[nodiscard]] pid_t pid() const { return pid_; }
  void send_signal(int signal) const;
  void write_input(const std::string& text);
  void close_input();
  /// Closes this side of the child's standard output: its next write meets a broken pipe.
  void close_output();

  /// Everything the child has written so far.
  [[nodiscard]] const std::string& output();
  [[nodiscard]] const std::string& error();

  /// Reads until the child's output contains `text`; false if it does not within `limit` or the child ends
  /// first.
  bool wait_for_output(const std::string& text, std::chrono::nanoseconds limit = kPatience);
  bool wait_for_error(const std::string& text, std::chrono::nanoseconds limit = kPatience);
  /// Reads until `condition` holds for what the child has written.
  bool wait_until(const std::function<bool()>& condition, std::chrono::nanoseconds limit = kPatience);

  /// Waits for the end of the child and of its output. Throws std::runtime_error if it does not come within
  /// `limit`.
  ExitStatus wait(std::chrono::nanoseconds limit = kPatience);

 private:
  struct Stream {
    int descriptor = -1;
    std::string text;
  };
  void start_child(const ProcessOptions& options, int input, int output, int error);
  /// Reads what has come, waiting for at most `wait_ms`.
  void pump(int wait_ms);
  bool reap();

  pid_t pid_ = -1;
  int input_ = -1;
  Stream output_;
  Stream error_;
  std::optional<ExitStatus> status_;
};

/// What a finished child has left.
struct Finished {
  ExitStatus status;
  std::string output;
  std::string error;
};

/// Runs a program to its end, with nothing on its standard input.
[[nodiscard]] Finished run(std::vector<std::string> command, std::chrono::nanoseconds limit = kPatience);
[[nodiscard]] Finished run(ProcessOptions options, std::chrono::nanoseconds limit = kPatience);

}  // namespace tarsil::test
