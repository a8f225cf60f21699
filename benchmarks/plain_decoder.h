// The packet decoder as one would write it down first, step by step as the protocol describes it: it says
// what the decoder has to do, and what its care is worth.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::benchmarks {

/// Decodes sensor data packets field by field. Frames go straight into a queue.
class PlainDecoder {
 public:
  /// When the blocks of a packet are applied.
  enum class Order {
    /// All of them are read first; then joints, inertial units and pads take theirs, in this order.
    kind_by_kind,
    /// Each as it is met. Nobody can tell the difference, but one has to think of that.
    as_met,
  };

  explicit PlainDecoder(Order order) : order_(order) {}

  /// Takes the bytes of one read and queues the frames that they complete, with `wall` as their time.
  void feed(std::span<const std::uint8_t> bytes, double wall, std::deque<Frame>& queue);

 private:
  void handle_packet(const std::uint8_t* packet, std::size_t length, double wall, std::deque<Frame>& queue);
  /// A block that fits into its payload, and what its header says.
  struct Block {
    int kind;
    std::size_t segment;
    std::size_t samples;
    const std::uint8_t* last_sample;
  };

  bool decode_blocks(const std::uint8_t* payload, std::size_t length);
  void apply(const Block& block);

  Order order_;

  std::vector<std::uint8_t> buffer_;
  Frame latest_ = {
      .q = std::vector<float>(20), .touch = std::vector<float>(30), .imu = std::vector<ImuSample>(5)};
  bool joint_data_ = false;
  bool counter_seen_ = false;
  std::uint16_t last_counter_ = 0xFFFF;
  std::uint64_t dropped_ = 0;
};

}  // namespace tarsil::benchmarks
