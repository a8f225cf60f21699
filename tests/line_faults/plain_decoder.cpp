// One packet after the other, one block after the other, byte offsets as the protocol has them.
#include "tests/line_faults/plain_decoder.h"

#include <utility>

namespace tarsil::test {

namespace {

using virtual_glove::ByteView;
using virtual_glove::HandSample;

constexpr std::size_t kHeader = 9;
constexpr std::size_t kMostPayload = 4096;
constexpr std::size_t kSegments = 5;

std::uint16_t word(ByteView bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8U));
}

std::int16_t value(ByteView bytes, std::size_t at) {
  return static_cast<std::int16_t>(word(bytes, at));
}

/// The length of the block at the front of `rest`, or 0 if the walk ends there.
std::size_t block_length(ByteView rest) {
  if (rest.size() < 3) return 0;
  std::size_t length = 0;
  if (rest[0] == 0x10) length = 19 + std::size_t{8} * rest[2];
  if (rest[0] == 0x20) length = 19 + std::size_t{12} * rest[2];
  if (rest[0] == 0x30) length = 31;
  return length <= rest.size() ? length : 0;
}

class PlainDecoder {
 public:
  void packet(ByteView bytes, std::size_t offset) {
    if (bytes[3] != 1) return;
    const bool joint_block = blocks(bytes.subspan(kHeader));
    const std::uint16_t counter = word(bytes, 5);
    if (!joint_block || !joint_data_ || counter == last_counter_) {
      if (!frames_.empty()) frames_.back().later.push_back(hand_);
      return;
    }
    if (counter_seen_) seq_ += static_cast<std::uint16_t>(counter - last_counter_);
    counter_seen_ = true;
    last_counter_ = counter;
    frames_.push_back({seq_, offset, hand_, {}});
  }

  std::vector<DecodedFrame> take() { return std::move(frames_); }

 private:
  /// Whether one of the blocks was a joint block.
  bool blocks(ByteView payload) {
    if (payload.size() < 4) return false;
    bool joint_block = false;
    ByteView rest = payload.subspan(1);
    for (int left = payload[0]; left > 0; --left) {
      const std::size_t length = block_length(rest);
      if (length == 0) break;
      joint_block = joint_block || rest[0] == 0x10;
      block(rest.first(length));
      rest = rest.subspan(length);
    }
    return joint_block;
  }

  void block(ByteView bytes) {
    const std::size_t segment = bytes[1] >> 4U;
    const bool samples = bytes[2] > 0;
    if (bytes[0] == 0x10 && samples) joint_data_ = true;
    if (segment >= kSegments) return;
    const std::size_t end = bytes.size() - 6;
    if (bytes[0] == 0x10 && samples) {
      for (std::size_t k = 0; k < 4; ++k) hand_.joints[4 * segment + k] = value(bytes, end - 8 + 2 * k);
    } else if (bytes[0] == 0x20 && samples) {
      for (std::size_t k = 0; k < 6; ++k) hand_.imu[segment][k] = value(bytes, end - 12 + 2 * k);
    } else if (bytes[0] == 0x30) {
      for (std::size_t k = 0; k < 6; ++k) hand_.pads[6 * segment + k] = value(bytes, 13 + 2 * k);
    }
  }

  HandSample hand_{};
  bool joint_data_ = false;
  bool counter_seen_ = false;
  std::uint16_t last_counter_ = 0xFFFF;
  std::uint64_t seq_ = 0;
  std::vector<DecodedFrame> frames_;
};

}  // namespace

std::vector<DecodedFrame> decode_plainly(ByteView stream) {
  PlainDecoder decoder;
  std::size_t p = 0;
  while (stream.size() - p > 8) {
    const std::size_t payload = word(stream, p + 7);
    if (stream[p] != 0x01 || stream[p + 1] != 0x02 || payload > kMostPayload) {
      ++p;
      continue;
    }
    if (stream.size() - p < kHeader + payload) break;
    decoder.packet(stream.subspan(p, kHeader + payload), p);
    p += kHeader + payload;
  }
  return decoder.take();
}

std::uint64_t skipped_cycles(const std::vector<DecodedFrame>& frames) {
  if (frames.empty()) return 0;
  return frames.back().seq - frames.front().seq + 1 - frames.size();
}

}  // namespace tarsil::test
