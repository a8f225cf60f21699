// A host as the tests need one: opens the line the way a host does and takes what comes apart, with no code
// in common with the real host.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/wait.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::virtual_glove {

/// Holds the line open, configured like a real host's: exclusive, raw, reads return after a tenth of a
/// second.
class Host {
 public:
  /// Throws std::runtime_error if the line cannot be opened.
  explicit Host(const std::string& port);

  int fd() const { return fd_.get(); }

  void send(std::uint8_t command);

  /// One read; empty after a tenth of a second without data, and at once when the line has hung up.
  Bytes read_once();

  /// Reads until at least `size` bytes have come or `limit` has passed.
  Bytes read_bytes(std::size_t size, std::chrono::milliseconds limit = test::kPatience);

  /// Reads until nothing has come for a fifth of a second.
  Bytes read_rest();

  /// Reads, on top of `bytes`, until they end with `end`; gives up after kPatience.
  Bytes read_until_end(const Bytes& end, Bytes bytes = {});

 private:
  Descriptor fd_;
};

/// The outside of a data packet, and its payload.
struct SeenPacket {
  std::uint8_t side_code = 0;
  std::uint8_t type = 0;
  std::uint16_t counter = 0;
  Bytes payload;
};

/// Takes a stream of whole packets apart; bytes that begin no packet are skipped.
std::vector<SeenPacket> packets_in(const Bytes& stream);

/// The counters of those packets.
std::vector<std::uint16_t> counters_in(const Bytes& stream);

}  // namespace tarsil::virtual_glove
