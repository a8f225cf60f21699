// In the built tool: the rules come from the environment when the program is loaded, and what is left of it
// when it ends goes into a report.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "tests/faults/rules.h"

namespace {

namespace faults = tarsil::test::faults;

/// Not a status of the tool.
constexpr int kBadRules = 124;

int open_descriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 4096; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) ++count;
  }
  return count;
}

/// The directory of threads has a link to itself, one from above, and one from every entry.
int threads_now() {
  struct stat tasks {};
  return stat("/proc/self/task", &tasks) == 0 ? static_cast<int>(tasks.st_nlink) - 2 : -1;
}

/// A thread that has been joined may be listed for a moment more.
int threads_left() {
  for (int look = 0; look < 1000 && threads_now() > 1; ++look) {
    const timespec moment{0, 1'000'000};
    nanosleep(&moment, nullptr);
  }
  return threads_now();
}

int descriptors_before = 0;

__attribute__((constructor)) void begin() {
  descriptors_before = open_descriptors();
  const char* const rules = std::getenv("TARSIL_FAULTS");
  if (rules != nullptr && !faults::arm_for_all_threads(rules)) _exit(kBadRules);
}

__attribute__((destructor)) void end() {
  const std::size_t count = faults::rules();
  const int descriptors = open_descriptors() - descriptors_before;
  faults::disarm();
  const char* const path = std::getenv("TARSIL_FAULTS_REPORT");
  if (path == nullptr) return;
  std::array<char, 2048> text{};
  int size = std::snprintf(text.data(), text.size(), "%d %d %td %zu", descriptors, threads_left() - 1,
                           faults::blocks(), count);
  for (std::size_t i = 0; i < count; ++i) {
    size += std::snprintf(text.data() + size, text.size() - static_cast<std::size_t>(size), " %zu %zu",
                          faults::calls(i), faults::hits(i));
  }
  const auto report =
      static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  syscall(SYS_write, report, text.data(), size);
}

}  // namespace
