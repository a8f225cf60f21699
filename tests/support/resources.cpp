// The kernel lists both under /proc/self.
#include "tests/support/resources.h"

#include <filesystem>
#include <iterator>

namespace tarsil::test {

namespace {

std::size_t entries(const char* directory) {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

}  // namespace

// The iteration itself holds one descriptor, each time.
std::size_t open_descriptors() {
  return entries("/proc/self/fd");
}

std::size_t running_threads() {
  return entries("/proc/self/task");
}

}  // namespace tarsil::test
