// Loaded into the tool by a test: the file that TARSIL_TEST_VANISHES names is there as long as it is only
// looked at, and gone when it is to be opened.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

void vanish(const char* path) {
  const char* name = std::getenv("TARSIL_TEST_VANISHES");
  if (name != nullptr && std::strcmp(path, name) == 0) ::unlink(path);
}

int open_with(const char* function, const char* path, int flags, mode_t mode) {
  using Function = int (*)(const char*, int, ...);
  vanish(path);
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, function))(path, flags, mode);
}

mode_t mode_of(int flags, std::va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

// Which of the two a program calls is decided when it is built.
extern "C" int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_with("open", path, flags, mode);
}

extern "C" int open64(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_with("open64", path, flags, mode);
}
