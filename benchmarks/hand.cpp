// The motion is that of the virtual glove.
#include "benchmarks/hand.h"

#include <span>
#include <stdexcept>

#include "tarsil/core/clock.h"
#include "tarsil/serial/decoder.h"
#include "tools/virtual_glove/motion.h"

namespace tarsil::benchmarks {

std::vector<std::uint8_t> hand_packets(std::size_t cycles) {
  const virtual_glove::HandMotion motion(1, kHandHz);
  std::vector<std::uint8_t> bytes;
  bytes.reserve(cycles * kPacketSize);
  for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
    const auto payload = virtual_glove::encode_payload(virtual_glove::hand_blocks(motion.at(cycle)));
    const auto packet =
        virtual_glove::encode_packet(virtual_glove::kRightSideCode, virtual_glove::kSensorPacketType,
                                     static_cast<std::uint16_t>(cycle), payload);
    if (packet.size() != kPacketSize) throw std::runtime_error("a packet is not of the usual size");
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  return bytes;
}

std::vector<Frame> hand_frames(std::size_t cycles) {
  constexpr double kStart = 1.7e9 + 0.123456;
  const std::vector<std::uint8_t> packets = hand_packets(cycles);
  const std::span<const std::uint8_t> stream(packets);
  detail::Decoder decoder{detail::SteadyTime{}};
  std::vector<Frame> frames;
  for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
    const double wall = kStart + static_cast<double>(cycle) / kHandHz;
    decoder.feed(stream.subspan(cycle * kPacketSize, kPacketSize), {{}, wall}, frames);
  }
  if (frames.size() != cycles) throw std::runtime_error("frames got lost");
  return frames;
}

}  // namespace tarsil::benchmarks
