// Every field by its shifts, every byte by its index.
#include "benchmarks/plain_decoder.h"

#include <utility>

namespace tarsil::benchmarks {

namespace {

int read_u16(const std::uint8_t* at) {
  return at[0] | (at[1] << 8);
}

float read_hundredths(const std::uint8_t* at) {
  return static_cast<float>(static_cast<std::int16_t>(read_u16(at))) / 100.0F;
}

}  // namespace

void PlainDecoder::feed(std::span<const std::uint8_t> bytes, double wall, std::deque<Frame>& queue) {
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  std::size_t p = 0;
  while (buffer_.size() - p > 8) {
    if (buffer_[p] != 0x01 || buffer_[p + 1] != 0x02) {
      ++p;
      continue;
    }
    const auto length = static_cast<std::size_t>(read_u16(&buffer_[p + 7]));
    if (length > 4096) {
      ++p;
      continue;
    }
    if (buffer_.size() - p < 9 + length) break;
    handle_packet(&buffer_[p], length, wall, queue);
    p += 9 + length;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(p));
  if (buffer_.size() > 16384) buffer_.erase(buffer_.begin(), buffer_.end() - 8192);
}

void PlainDecoder::handle_packet(const std::uint8_t* packet, std::size_t length, double wall,
                                 std::deque<Frame>& queue) {
  if (packet[3] != 1 || length < 4) return;
  if (!decode_blocks(packet + 9, length) || !joint_data_) return;
  const auto counter = static_cast<std::uint16_t>(read_u16(packet + 5));
  if (counter == last_counter_) return;
  if (counter_seen_) {
    const auto step = static_cast<std::uint16_t>(counter - last_counter_);
    dropped_ += step - 1U;
    latest_.seq += step;
  }
  counter_seen_ = true;
  last_counter_ = counter;
  Frame frame = latest_;
  frame.t = wall;
  queue.push_back(std::move(frame));
}

/// Returns whether there was a joint block.
bool PlainDecoder::decode_blocks(const std::uint8_t* payload, std::size_t length) {
  bool joint_block = false;
  std::vector<Block> blocks;
  std::size_t at = 1;
  for (int left = payload[0]; left > 0 && length - at >= 3; --left) {
    const std::uint8_t* const begin = payload + at;
    const int kind = begin[0];
    if (kind != 0x10 && kind != 0x20 && kind != 0x30) break;
    const std::size_t samples = kind == 0x30 ? 1 : begin[2];
    const std::size_t sample_size = kind == 0x10 ? 8 : 12;
    const std::size_t size = 19 + samples * sample_size;
    if (length - at < size) break;
    at += size;
    joint_block = joint_block || kind == 0x10;
    const Block block{kind, static_cast<std::size_t>(begin[1] >> 4), samples, begin + size - 6 - sample_size};
    if (order_ == Order::as_met) {
      apply(block);
    } else {
      blocks.push_back(block);
    }
  }
  for (const int kind : {0x10, 0x20, 0x30}) {
    for (const Block& block : blocks) {
      if (block.kind == kind) apply(block);
    }
  }
  return joint_block;
}

void PlainDecoder::apply(const Block& block) {
  if (block.samples == 0) return;
  joint_data_ = joint_data_ || block.kind == 0x10;
  if (block.segment > 4) return;
  const std::uint8_t* const sample = block.last_sample;
  if (block.kind == 0x10) {
    for (std::size_t k = 0; k < 4; ++k) {
      latest_.q[4 * block.segment + k] = read_hundredths(sample + 2 * k) * 0.017453292F;
    }
    const std::uint8_t* const trailer = sample + 8;
    latest_.status_lo[block.segment] = trailer[0];
    latest_.status_hi[block.segment] = trailer[3];
  } else if (block.kind == 0x20) {
    for (std::size_t k = 0; k < 3; ++k) {
      latest_.imu[block.segment].acc[k] = read_hundredths(sample + 2 * k);
      latest_.imu[block.segment].gyro[k] = read_hundredths(sample + 6 + 2 * k);
    }
  } else {
    for (std::size_t k = 0; k < 6; ++k) {
      latest_.touch[6 * block.segment + k] = read_hundredths(sample + 2 * k);
    }
  }
}

}  // namespace tarsil::benchmarks
