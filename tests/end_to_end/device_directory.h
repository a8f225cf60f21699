// A /dev of a test's own, in which the tool finds the ports that the test places there and no others.
#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

/// The directory stays while tools run in it; what is placed or removed shows at once.
class DeviceDirectory {
 public:
  DeviceDirectory();

  /// Path by which the test, and a glove's link, reach the entry that the tool knows as /dev/NAME.
  [[nodiscard]] std::string entry(const std::string& name) const { return directory_.file(name); }

  /// Makes /dev/NAME stand for `target`.
  void link(const std::string& name, const std::string& target) const;

  /// The tool with this directory for its /dev.
  [[nodiscard]] ProcessOptions tool(const std::vector<std::string>& arguments) const;

 private:
  TempDirectory directory_;
};

}  // namespace tarsil::test
