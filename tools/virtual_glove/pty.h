// The line between glove and host: a pseudo-terminal whose master side is the glove. Hosts open the slave
// side as they would open a serial port.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::virtual_glove {

enum class HostEvent { opened, closed };

/// A pseudo-terminal in raw mode. Destroying it is pulling the plug: a host that still has it open sees a
/// line that has hung up.
///
/// The class holds a slave descriptor of its own, because some requests (clearing exclusive use, counting
/// unread bytes) work on that side only. The master therefore never sees a hang-up when a host leaves;
/// comings and goings are watched on the file instead. Not thread-safe.
class Pty {
 public:
  /// Opens a new pseudo-terminal. Throws std::system_error.
  Pty();
  ~Pty() = default;
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  /// Path of the slave, for hosts.
  const std::string& path() const { return path_; }

  /// For poll: readable when a host has written, writable when the line takes more.
  int line_fd() const { return master_.get(); }
  /// For poll: readable when a host has opened or closed the line.
  int events_fd() const { return events_.get(); }

  /// What hosts have written since the last call; never waits. Throws std::system_error.
  Bytes read_commands();

  /// Writes as much as the line takes without waiting and returns how much that was, possibly 0. Throws
  /// std::system_error.
  std::size_t write_some(ByteView bytes);

  /// What hosts have done since the last call, in order; never waits. Throws std::system_error.
  std::vector<HostEvent> read_events();

  /// Bytes that have reached the host's side and that no host has read. The kernel shows at most 4095, and
  /// what it has not yet passed on within the line does not count.
  std::size_t unread() const;

  /// Throws away what no host has read.
  void discard_unread();

  /// Ends a host's exclusive use of the line. A serial port does this by itself when its last user leaves.
  void end_exclusive_use();

 private:
  void make_raw();

  Descriptor master_;
  std::string path_;
  Descriptor slave_;
  Descriptor events_;
  int watch_ = -1;
};

}  // namespace tarsil::virtual_glove
