// The clock is asked now and then only: lines are many.
#include "tools/recording/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "tarsil/core/file_io.h"

namespace tarsil::recording_tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kInterval{100};
constexpr unsigned kCallsPerLook = 256;
constexpr std::size_t kWidth = 40;

std::string bar(double share) {
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(kWidth));
  return "\r[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "] " +
         std::to_string(static_cast<int>(share * 100)) + " %\x1b[K";
}

}  // namespace

Progress::Progress() : on_terminal_(::isatty(STDERR_FILENO) != 0), next_(Clock::now() + kPatience) {}

void Progress::show(std::uint64_t done, std::uint64_t all) {
  if (!on_terminal_ || all == 0 || ++skipped_ < kCallsPerLook) return;
  skipped_ = 0;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(all));
  static_cast<void>(detail::write_all(STDERR_FILENO, bar(share)));
}

void Progress::clear() {
  if (shown_) static_cast<void>(detail::write_all(STDERR_FILENO, "\r\x1b[K"));
  shown_ = false;
}

}  // namespace tarsil::recording_tool
