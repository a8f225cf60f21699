// Loaded into the tool by a test: the wall clock is off by as many nanoseconds as stand in the file that
// TARSIL_TEST_CLOCK names. The file is mapped, so the test steps the clock by writing eight bytes. Other
// clocks go on as they are.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

std::atomic<std::int64_t>* map_offset() {
  const char* path = std::getenv("TARSIL_TEST_CLOCK");
  const int file = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return nullptr;
  void* mapped = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
  ::close(file);
  return mapped == MAP_FAILED ? nullptr : static_cast<std::atomic<std::int64_t>*>(mapped);
}

std::int64_t offset() {
  static const std::atomic<std::int64_t>* const mapped = map_offset();
  return mapped == nullptr ? 0 : mapped->load();
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Function = int (*)(clockid_t, timespec*);
  static const auto original = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = original(clock, time);
  if (result != 0 || clock != CLOCK_REALTIME) return result;
  const std::int64_t shifted = time->tv_sec * kNanoseconds + time->tv_nsec + offset();
  time->tv_sec = static_cast<std::time_t>(shifted / kNanoseconds);
  time->tv_nsec = static_cast<long>(shifted % kNanoseconds);
  return 0;
}
