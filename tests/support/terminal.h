// A terminal that a program writes to, and its screen that a test reads.
#pragma once

#include <string>

namespace tarsil::test {

/// A pseudo-terminal that passes every byte on as it comes.
class Terminal {
 public:
  Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  /// What a program opens in order to write to the terminal.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// What has reached the screen so far. Writers wait when there are about 4000 bytes that nobody has read.
  [[nodiscard]] const std::string& shown();

  /// Reads until the screen ends with `text`; false if that does not come to be.
  bool wait_for_end(const std::string& text);

 private:
  int screen_ = -1;
  int line_ = -1;  // held open, so that what was written stays when the writer closes
  std::string path_;
  std::string shown_;
};

}  // namespace tarsil::test
