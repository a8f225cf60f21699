// A glove that one tool after the other reads.
#pragma once

#include <string>

#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {

/// A quick glove behind a path that stays the same.
class GloveOnPort {
 public:
  static constexpr double kHz = 1000;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// Waits until the last host has gone, so that the next one finds the port free.
  [[nodiscard]] bool wait_until_free() {
    return glove_.wait_until([](const auto& account) { return account.hosts_open == 0; }, kPatience);
  }

 private:
  TempDirectory directory_;
  std::string path_ = directory_.file("ttyACM0");
  virtual_glove::VirtualGlove glove_{{.link = path_, .hz = kHz}};
};

}  // namespace tarsil::test
