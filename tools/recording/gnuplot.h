// gnuplot as a child process.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string_view>

namespace tarsil::recording_tool {

/// Runs one script.
class Gnuplot {
 public:
  /// Starts gnuplot. Throws std::runtime_error with a finished message if that fails, which tells how to get
  /// gnuplot if there is none.
  Gnuplot();
  Gnuplot(const Gnuplot&) = delete;
  Gnuplot& operator=(const Gnuplot&) = delete;
  /// Ends it if it still runs.
  ~Gnuplot();

  /// Hands the script over and what gnuplot prints to `take`, piece by piece, until it ends. Throws
  /// std::runtime_error if gnuplot fails, Interrupted, and what `take` throws.
  void run(std::string_view script, const std::function<void(std::string_view)>& take);

 private:
  void hand_over(std::string_view& script);
  void disconnect();

  pid_t child_ = -1;
  int connection_ = -1;  // to its standard input and output
};

}  // namespace tarsil::recording_tool
