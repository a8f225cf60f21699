// Ownership of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace tarsil::virtual_glove {

/// Closes its descriptor when it goes away; -1 means none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace tarsil::virtual_glove
