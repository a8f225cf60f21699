// Tells the build whether tests may have a /dev of their own on this machine: ends with 0 if so.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/end_to_end/device_namespace.h"

int main() {
  std::string directory = "/tmp/tarsil-probe-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) return 1;
  const std::string pts = directory + "/pts";
  mkdir(pts.c_str(), 0755);
  // The mounts end with the child, so that the directories can go.
  const pid_t child = fork();
  if (child == 0) _exit(tarsil::test::enter_device_directory(directory.c_str(), pts.c_str()) ? 0 : 1);
  int status = 1;
  if (child > 0) waitpid(child, &status, 0);
  rmdir(pts.c_str());
  rmdir(directory.c_str());
  return status == 0 ? 0 : 1;
}
