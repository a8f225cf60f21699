// The stream's rules once more, as plainly as they can be written: what the tool delivers is compared with
// this. It has the whole stream before it, so it needs neither a buffer nor a clock, and shares no code with
// the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::test {

/// A frame that a host has to make of a stream, in the units of the wire.
struct DecodedFrame {
  std::uint64_t seq = 0;
  /// Where in the stream its packet begins.
  std::size_t offset = 0;
  virtual_glove::HandSample hand{};
  /// What the channels became behind the frame, by packets that made none. A repetition may show any of
  /// these.
  std::vector<virtual_glove::HandSample> later;
};

/// The fresh frames of a whole stream. Bytes at its end that wait for more are left out.
[[nodiscard]] std::vector<DecodedFrame> decode_plainly(virtual_glove::ByteView stream);

/// Cycles that the numbers of these frames skip.
[[nodiscard]] std::uint64_t skipped_cycles(const std::vector<DecodedFrame>& frames);

}  // namespace tarsil::test
