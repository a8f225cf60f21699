// The packet decoder as one would write it down first: it says what the decoder has to do, and what its care
// is worth.
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
  /// Takes the bytes of one read and queues the frames that they complete, with `wall` as their time.
  void feed(std::span<const std::uint8_t> bytes, double wall, std::deque<Frame>& queue);

 private:
  void handle_packet(const std::uint8_t* packet, std::size_t length, double wall, std::deque<Frame>& queue);
  bool decode_blocks(const std::uint8_t* payload, std::size_t length);

  std::vector<std::uint8_t> buffer_;
  Frame latest_ = {
      .q = std::vector<float>(20), .touch = std::vector<float>(30), .imu = std::vector<ImuSample>(5)};
  bool joint_data_ = false;
  bool counter_seen_ = false;
  std::uint16_t last_counter_ = 0xFFFF;
  std::uint64_t dropped_ = 0;
};

}  // namespace tarsil::benchmarks
