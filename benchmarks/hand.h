// What a moving hand sends: the same bytes in every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarsil/core/frame.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::benchmarks {

/// Cycles per second of the hand.
inline constexpr double kHandHz = 1000.0;
/// Bytes of one packet.
inline constexpr std::size_t kPacketSize = virtual_glove::kHandPacketSize;

/// One packet for each of so many cycles, back to back; each carries all blocks.
[[nodiscard]] std::vector<std::uint8_t> hand_packets(std::size_t cycles);

/// The frames of that hand, at present-day times.
[[nodiscard]] std::vector<Frame> hand_frames(std::size_t cycles);

}  // namespace tarsil::benchmarks
