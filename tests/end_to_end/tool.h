// The two programs as the end-to-end tests start them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace tarsil::test {

/// The built tool with these arguments.
[[nodiscard]] ProcessOptions tool(const std::vector<std::string>& arguments);

/// Runs the tool to its end.
[[nodiscard]] Finished run_tool(const std::vector<std::string>& arguments,
                                std::chrono::nanoseconds limit = kPatience);

/// The virtual glove as a program of its own.
class GloveProgram {
 public:
  /// Starts it and waits until hosts can open its port; throws std::runtime_error if that does not come.
  explicit GloveProgram(const std::vector<std::string>& arguments);

  /// What hosts open.
  [[nodiscard]] const std::string& port() const { return port_; }

  [[nodiscard]] Process& process() { return process_; }

  /// Ends it by SIGTERM, if it runs, and returns its account.
  [[nodiscard]] std::string account();

 private:
  Process process_;
  std::string port_;
};

/// The number behind `name` in an account; throws std::runtime_error if there is none.
[[nodiscard]] std::uint64_t account_value(const std::string& account, const std::string& name);

}  // namespace tarsil::test
