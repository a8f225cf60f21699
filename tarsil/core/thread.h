// Starting threads that a library may start inside somebody's program.
#pragma once

#include <functional>
#include <thread>

namespace tarsil::detail {

/// Starts a thread that takes no signals: they stay with the threads of the program that uses the library,
/// and none of the thread's system calls is cut short by one. Throws std::system_error if the thread cannot
/// be started.
[[nodiscard]] std::thread start_thread(std::function<void()> body);

}  // namespace tarsil::detail
