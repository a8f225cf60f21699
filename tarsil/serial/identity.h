// The first half of the conversation with a glove: it says who it is.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tarsil/serial/receive_buffer.h"

namespace tarsil::detail {

/// What an identity frame tells.
struct Identity {
  /// Serial number as it stands in the frame; may be empty.
  std::string serial;
  /// "major.minor" in decimal, without leading zeros.
  std::string firmware;
};

/// Finds an identity frame in a stream of bytes, whatever comes before it. Pure: bytes in, identity out.
class IdentityExchange {
 public:
  /// Takes the bytes of one read. Gives the identity once a whole frame with the right check byte has
  /// arrived; what follows it in the buffer is dropped, since a glove sends no data that counts before it is
  /// told to start.
  [[nodiscard]] std::optional<Identity> feed(std::span<const std::uint8_t> bytes);

 private:
  bool find_marker();

  ReceiveBuffer buffer_;
};

}  // namespace tarsil::detail
