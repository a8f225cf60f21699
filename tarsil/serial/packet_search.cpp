// Sixteen places at a time, so that a stream of garbage costs about the same whether it is full of bytes that
// begin a magic or has none. Vectors are the compiler's own, which every architecture has.
#include "tarsil/serial/packet_search.h"

#include <cstring>

#include "tarsil/serial/wire.h"

namespace tarsil::detail {

namespace {

using Places [[gnu::vector_size(16)]] = std::uint8_t;
using Halves [[gnu::vector_size(16)]] = std::uint64_t;

Places load(const std::uint8_t* bytes) {
  Places places;
  std::memcpy(&places, bytes, sizeof places);
  return places;
}

/// Whether a packet may begin at one of the 16 bytes from `at` on. Says yes a little too often: the length is
/// judged by its high byte alone.
bool may_begin_within(const std::uint8_t* at) {
  constexpr std::size_t kHighByte = wire::kPayloadLengthOffset + 1;
  constexpr auto kMostHigh = static_cast<std::uint8_t>(wire::kMaxPayload >> 8);
  const auto found =
      (load(at) == wire::kMagic0) & (load(at + 1) == wire::kMagic1) & (load(at + kHighByte) <= kMostHigh);
  const auto halves = reinterpret_cast<Halves>(found);
  return (halves[0] | halves[1]) != 0;
}

bool begins_at(const std::uint8_t* at) {
  return at[0] == wire::kMagic0 && at[1] == wire::kMagic1 &&
         wire::read_u16(at + wire::kPayloadLengthOffset) <= wire::kMaxPayload;
}

}  // namespace

std::size_t find_packet(std::span<const std::uint8_t> bytes, std::size_t start) {
  std::size_t p = start;
  const std::size_t size = bytes.size();
  while (size - p >= wire::kPacketHeaderSize) {
    if (begins_at(bytes.data() + p)) return p;
    ++p;
    constexpr std::size_t kReach = sizeof(Places) + wire::kPacketHeaderSize - 1;
    while (size - p >= kReach && !may_begin_within(bytes.data() + p)) p += sizeof(Places);
  }
  return p;
}

}  // namespace tarsil::detail
