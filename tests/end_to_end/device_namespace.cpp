// System calls only: this runs between fork and exec.
#include "tests/end_to_end/device_namespace.h"

#include <sched.h>
#include <sys/mount.h>

namespace tarsil::test {

bool enter_device_directory(const char* directory, const char* pts) {
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  // What is mounted from here on stays here.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (mount("/dev/pts", pts, nullptr, MS_BIND, nullptr) != 0) return false;
  return mount(directory, "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

}  // namespace tarsil::test
