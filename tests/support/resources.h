// What the process holds: for tests that nothing leaks.
#pragma once

#include <cstddef>

namespace tarsil::test {

/// Open file descriptors of this process.
[[nodiscard]] std::size_t open_descriptors();

/// Threads of this process.
[[nodiscard]] std::size_t running_threads();

}  // namespace tarsil::test
