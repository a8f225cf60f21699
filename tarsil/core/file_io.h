// System calls on descriptors, made again when a signal cuts them short.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

namespace tarsil::detail {

/// open(2), never inherited by other programs. The descriptor, which is the caller's to close, or -1 and
/// errno.
[[nodiscard]] int open_file(const char* path, int flags, mode_t mode = 0);

/// read(2): how many bytes have been read into `space`, 0 at the end, or -1 and errno.
[[nodiscard]] ssize_t read_some(int descriptor, void* space, std::size_t size);

/// What to do about a descriptor that has no room and is set not to wait for it (EAGAIN).
enum class WhenFull : bool { fail, wait };

/// Writes everything, in one write(2) where the other end takes it in one. 0, or the error number of the call
/// that failed, EIO for one that took nothing; what went before is written then.
[[nodiscard]] int write_all(int descriptor, std::string_view bytes, WhenFull when_full = WhenFull::fail);

}  // namespace tarsil::detail
