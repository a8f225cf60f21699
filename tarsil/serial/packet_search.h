// Where in a stream of bytes a data packet may begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tarsil::detail {

/// The first place from `start`, which is not behind the end, on at which a packet's magic and a payload
/// length that packets have stand. If there is none: the place of the last bytes, which are too few for a
/// packet's header (at most eight).
[[nodiscard]] std::size_t find_packet(std::span<const std::uint8_t> bytes, std::size_t start);

}  // namespace tarsil::detail
