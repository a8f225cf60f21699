// A view of the file system in which /dev holds what a test puts there.
#pragma once

namespace tarsil::test {

/// Moves the calling process, which must have one thread only, into a mount namespace of its own, shows
/// `/dev/pts` at `pts`, an empty directory in `directory`, and `directory` in the place of /dev. Works for
/// root and for anybody who may make user namespaces. Async-signal-safe. Returns whether it could be done; if
/// not, the process is good for nothing but to end.
[[nodiscard]] bool enter_device_directory(const char* directory, const char* pts);

}  // namespace tarsil::test
