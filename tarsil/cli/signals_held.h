// Puts signals off while something must not be cut in two.
#pragma once

#include <csignal>
#include <initializer_list>

namespace tarsil::cli {

/// Holds signals back from this thread while it lives. What came meanwhile is delivered at its end.
class SignalsHeld {
 public:
  explicit SignalsHeld(std::initializer_list<int> signals);
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld();

  /// The signals that were held back before.
  [[nodiscard]] const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

}  // namespace tarsil::cli
