// The calls themselves. Each asks the rules how it goes, and passes on to the definition that it stands
// before.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>

#include "tests/faults/rules.h"

namespace {

using tarsil::test::faults::Call;
using tarsil::test::faults::Outcome;
using tarsil::test::faults::outcome;
namespace faults = tarsil::test::faults;

template <typename Function>
Function next_definition(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Sets errno if the call is to fail.
bool fails(const Outcome& outcome) {
  if (outcome.error != 0) errno = outcome.error;
  return outcome.error != 0;
}

template <typename Open>
int open_as(const char* path, Open open) {
  if (fails(outcome(Call::open, path))) return -1;
  const int descriptor = open();
  faults::opened(descriptor, path);
  return descriptor;
}

/// The third argument is there only if a file may be made.
mode_t mode_of(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

/// What a new thread runs.
struct Start {
  void* (*routine)(void*);
  void* argument;
  bool concerned;
};

extern "C" void* start_here(void* argument) {
  const Start start = *static_cast<Start*>(argument);
  std::free(argument);
  faults::set_concerned(start.concerned);
  return start.routine(start.argument);
}

void* allocate(std::size_t size) {
  if (outcome(Call::memory).error != 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  faults::count_blocks(1);
  return memory;
}

void release(void* memory) {
  if (memory != nullptr) faults::count_blocks(-1);
  std::free(memory);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  static const auto next = next_definition<int (*)(const char*, int, ...)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_as(path, [&] { return next(path, flags, mode); });
}

int open64(const char* path, int flags, ...) {
  static const auto next = next_definition<int (*)(const char*, int, ...)>("open64");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_as(path, [&] { return next(path, flags, mode); });
}

int openat(int directory, const char* path, int flags, ...) {
  static const auto next = next_definition<int (*)(int, const char*, int, ...)>("openat");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_as(path, [&] { return next(directory, path, flags, mode); });
}

int openat64(int directory, const char* path, int flags, ...) {
  static const auto next = next_definition<int (*)(int, const char*, int, ...)>("openat64");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_as(path, [&] { return next(directory, path, flags, mode); });
}

int close(int descriptor) {
  static const auto next = next_definition<int (*)(int)>("close");
  const Outcome how = outcome(Call::close, descriptor);
  faults::closed(descriptor);
  const int result = next(descriptor);
  return fails(how) ? -1 : result;
}

DIR* opendir(const char* path) {
  static const auto next = next_definition<DIR* (*)(const char*)>("opendir");
  if (fails(outcome(Call::opendir, path))) return nullptr;
  DIR* const directory = next(path);
  if (directory != nullptr) faults::opened(dirfd(directory), path);
  return directory;
}

DIR* fdopendir(int descriptor) {
  static const auto next = next_definition<DIR* (*)(int)>("fdopendir");
  return fails(outcome(Call::opendir, descriptor)) ? nullptr : next(descriptor);
}

dirent* readdir(DIR* directory) {
  static const auto next = next_definition<dirent* (*)(DIR*)>("readdir");
  return fails(outcome(Call::readdir, dirfd(directory))) ? nullptr : next(directory);
}

dirent64* readdir64(DIR* directory) {
  static const auto next = next_definition<dirent64* (*)(DIR*)>("readdir64");
  return fails(outcome(Call::readdir, dirfd(directory))) ? nullptr : next(directory);
}

int tcgetattr(int descriptor, termios* line) noexcept {
  static const auto next = next_definition<int (*)(int, termios*)>("tcgetattr");
  return fails(outcome(Call::tcgetattr, descriptor)) ? -1 : next(descriptor, line);
}

int tcsetattr(int descriptor, int when, const termios* line) noexcept {
  static const auto next = next_definition<int (*)(int, int, const termios*)>("tcsetattr");
  return fails(outcome(Call::tcsetattr, descriptor)) ? -1 : next(descriptor, when, line);
}

int cfsetispeed(termios* line, speed_t speed) noexcept {
  static const auto next = next_definition<int (*)(termios*, speed_t)>("cfsetispeed");
  return fails(outcome(Call::cfsetispeed)) ? -1 : next(line, speed);
}

int cfsetospeed(termios* line, speed_t speed) noexcept {
  static const auto next = next_definition<int (*)(termios*, speed_t)>("cfsetospeed");
  return fails(outcome(Call::cfsetospeed)) ? -1 : next(line, speed);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
  static const auto next = next_definition<int (*)(int, unsigned long, ...)>("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return fails(outcome(Call::ioctl, descriptor)) ? -1 : next(descriptor, request, argument);
}

ssize_t read(int descriptor, void* space, std::size_t size) {
  static const auto next = next_definition<ssize_t (*)(int, void*, std::size_t)>("read");
  const Outcome how = outcome(Call::read, descriptor);
  return fails(how) ? -1 : next(descriptor, space, how.of(size));
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static const auto next = next_definition<ssize_t (*)(int, const void*, std::size_t)>("write");
  const Outcome how = outcome(Call::write, descriptor);
  return fails(how) ? -1 : next(descriptor, bytes, how.of(size));
}

int poll(pollfd* polled, nfds_t count, int timeout) {
  static const auto next = next_definition<int (*)(pollfd*, nfds_t, int)>("poll");
  return fails(outcome(Call::poll, count == 0 ? -1 : polled->fd)) ? -1 : next(polled, count, timeout);
}

int ppoll(pollfd* polled, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  static const auto next =
      next_definition<int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
  return fails(outcome(Call::poll, count == 0 ? -1 : polled->fd)) ? -1 : next(polled, count, timeout, mask);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
  static const auto next =
      next_definition<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  // Threads do without errno: the result is the error.
  if (const int error = outcome(Call::thread).error; error != 0) return error;
  auto* const start = static_cast<Start*>(std::malloc(sizeof(Start)));
  if (start == nullptr) return EAGAIN;
  *start = {routine, argument, faults::concerned()};
  const int error = next(thread, attributes, start_here, start);
  if (error != 0) std::free(start);
  return error;
}

}  // extern "C"

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}
