// gnuplot as a child process.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace tarsil::recording_tool {

/// Runs one script.
class Gnuplot {
 public:
  /// Starts gnuplot with its standard output to `output`. Throws std::runtime_error with a finished message
  /// if that fails, which tells how to get gnuplot if there is none.
  explicit Gnuplot(int output);
  Gnuplot(const Gnuplot&) = delete;
  Gnuplot& operator=(const Gnuplot&) = delete;
  /// Ends it if it still runs.
  ~Gnuplot();

  /// Hands the script over and waits for the end. Throws std::runtime_error if gnuplot fails, and
  /// Interrupted.
  void run(std::string_view script);

 private:
  void close_script();

  pid_t child_ = -1;
  int script_ = -1;
};

}  // namespace tarsil::recording_tool
