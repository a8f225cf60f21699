// The loops around open, read and write.
#include "tarsil/core/file_io.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tarsil::detail {

int open_file(const char* path, int flags, mode_t mode) {
  int descriptor = -1;
  do {
    descriptor = ::open(path, flags | O_CLOEXEC, mode);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

ssize_t read_some(int descriptor, void* space, std::size_t size) {
  ssize_t count = -1;
  do {
    count = ::read(descriptor, space, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

namespace {

/// Whether there is room again in a descriptor that had none and is set not to wait for it.
bool wait_for_room(int descriptor) {
  pollfd polled{descriptor, POLLOUT, 0};
  return ::poll(&polled, 1, -1) >= 0 || errno == EINTR;
}

}  // namespace

int write_all(int descriptor, std::string_view bytes, WhenFull when_full) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0) {
      return EIO;  // some file systems in user space do this; asking again could go on for ever
    } else if (errno == EAGAIN && when_full == WhenFull::wait) {
      if (!wait_for_room(descriptor)) return errno;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace tarsil::detail
