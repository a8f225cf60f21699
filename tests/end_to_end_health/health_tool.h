// What the tests of the built commands health and doctor have in common.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

/// "tarsil health" with these further arguments, which uploads to `url`, past every proxy.
[[nodiscard]] ProcessOptions health(const std::vector<std::string>& arguments, const std::string& url = "");

/// A virtual glove behind a path of its own. A pseudo-terminal's number is given away again as soon as its
/// glove has gone, to whoever comes next; the path is not.
class LinkedGlove {
 public:
  explicit LinkedGlove(std::vector<std::string> arguments);

  [[nodiscard]] const std::string& port() const { return program_.port(); }

  /// Ends the glove as if its cable were cut: without a farewell, and its path is gone first.
  void cut();

 private:
  TempDirectory directory_;
  GloveProgram program_;
};

/// One row of the table.
struct HealthRow {
  int dof = 0;
  int score = 0;        // per cent
  double noise = 0;     // milliradians
  double backlash = 0;  // milliradians
  int dropouts = 0;
  std::string mark;
};

/// The rows of the table in the tool's output; throws std::runtime_error if it does not look like a table.
[[nodiscard]] std::vector<HealthRow> health_rows(const std::string& output);

/// The number behind "Frames analyzed: ".
[[nodiscard]] int frames_analyzed(const std::string& output);

/// How often a process has gone to sleep by itself so far: a source that waits for every frame does so once
/// per frame.
[[nodiscard]] std::uint64_t voluntary_waits(pid_t process);

}  // namespace tarsil::test
