// Renaming is what makes a file appear at once; whether one is in the way is asked twice, at the beginning to
// save the work and at the end by the call itself.
#include "tools/recording/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tarsil/core/file_io.h"
#include "tools/recording/interrupt.h"

namespace tarsil::recording_tool {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

/// What open(2) would give a new file.
mode_t usual_mode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666U & ~mask;
}

[[noreturn]] void refuse_existing(const std::string& path) {
  throw std::runtime_error(path + " exists; --force replaces it");
}

/// Moves a file to where there is none. 0, or the error number.
int move_without_replacing(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // Some file systems cannot do that; a second name does not replace anything either.
  if (::link(from.c_str(), to.c_str()) != 0) return errno;
  ::unlink(from.c_str());
  return 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, bool replace, const struct stat& source)
    : path_(path), target_(path), replace_(replace) {
  struct stat status {};
  const bool exists = ::stat(path.c_str(), &status) == 0;
  if (!exists && ::lstat(path.c_str(), &status) == 0) {
    throw std::runtime_error(path + " is a link that leads to no file");
  }
  if (exists) {
    if (status.st_dev == source.st_dev && status.st_ino == source.st_ino) {
      throw std::runtime_error(path + " is the recording itself");
    }
    if (S_ISDIR(status.st_mode)) fail(EISDIR);
    if (!S_ISREG(status.st_mode)) {
      descriptor_ = detail::open_file(path.c_str(), O_WRONLY);
      if (descriptor_ < 0) fail(errno);
      return;
    }
    if (!replace) refuse_existing(path);
    std::error_code error;
    target_ = std::filesystem::canonical(path, error);
    if (error) fail(error.value());
  }
  open_beside(exists, status);
}

void OutputFile::open_beside(bool exists, const struct stat& before) {
  watch_for_interrupts();
  // Not longer than the name that it will have: that may be as long as a name can be.
  std::string name = std::filesystem::path(target_).replace_filename(".tarsil-XXXXXX");
  descriptor_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (descriptor_ < 0) fail(errno);
  temporary_ = name;
  ::fchmod(descriptor_, exists ? before.st_mode & 0777U : usual_mode());
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void OutputFile::fail(int error) const {
  throw std::runtime_error("cannot write " + path_ + ": " + std::generic_category().message(error));
}

void OutputFile::write(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kBufferSize) flush();
}

void OutputFile::flush() {
  throw_if_interrupted();
  if (const int error = detail::write_all(descriptor_, buffer_); error != 0) fail(error);
  buffer_.clear();
}

void OutputFile::finish() {
  flush();
  throw_if_interrupted();
  // Some file systems tell only now that there was no room.
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (::close(descriptor) != 0 && errno != EINTR) fail(errno);
  if (temporary_.empty()) return;
  int error = 0;
  if (replace_) {
    error = ::rename(temporary_.c_str(), target_.c_str()) == 0 ? 0 : errno;
  } else {
    error = move_without_replacing(temporary_, target_);
  }
  if (error == EEXIST) refuse_existing(path_);
  if (error != 0) fail(error);
  temporary_.clear();
}

}  // namespace tarsil::recording_tool
