// Waiting for a condition instead of for a while.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace tarsil::test {

/// How long a test waits for what should happen at once: long enough for a busy machine and a sanitizer.
inline constexpr std::chrono::seconds kPatience{30};

/// Looks at `condition` until it holds, for at most `limit`; returns whether it came to hold.
inline bool eventually(const std::function<bool()>& condition, std::chrono::nanoseconds limit = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tarsil::test
