// No names for offsets, no views, no early exits that save work.
#include "fuzz/plain_decoder.h"

#include <chrono>

namespace tarsil::fuzz {

namespace {

using std::chrono::nanoseconds;

unsigned u16(const std::vector<std::uint8_t>& bytes, std::size_t at) {
  return bytes.at(at) + 256U * bytes.at(at + 1);
}

/// The hundredths that stand at `at`, as a number.
float value(const std::vector<std::uint8_t>& bytes, std::size_t at) {
  const int raw = static_cast<int>(u16(bytes, at));
  return static_cast<float>(raw < 32768 ? raw : raw - 65536) / 100.0F;
}

std::vector<std::uint8_t> piece(const std::vector<std::uint8_t>& bytes, std::size_t at, std::size_t length) {
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  return {begin, begin + static_cast<std::ptrdiff_t>(length)};
}

}  // namespace

void PlainDecoder::feed(std::span<const std::uint8_t> bytes, const detail::Moment& now,
                        std::vector<Frame>& frames) {
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  std::size_t p = 0;
  while (buffer_.size() - p > 8) {
    if (buffer_[p] != 0x01 || buffer_[p + 1] != 0x02) {
      ++p;
      continue;
    }
    const std::size_t length = u16(buffer_, p + 7);
    if (length > 4096) {
      ++p;
      continue;
    }
    if (buffer_.size() - p < 9 + length) break;
    handle(piece(buffer_, p, 9 + length), now, frames);
    p += 9 + length;
  }
  buffer_ = piece(buffer_, p, buffer_.size() - p);
  if (buffer_.size() > 16384) buffer_ = piece(buffer_, buffer_.size() - 8192, 8192);
}

void PlainDecoder::handle(const ByteVector& packet, const detail::Moment& now, std::vector<Frame>& frames) {
  if (!side_) side_ = packet[2] == 0 ? 1 : 0;
  if (packet[3] != 1) return;
  const ByteVector payload = piece(packet, 9, packet.size() - 9);
  if (payload.size() < 4 || payload[0] == 0) return;

  std::vector<ByteVector> joint_blocks;
  std::vector<ByteVector> inertial_blocks;
  std::vector<ByteVector> pressure_blocks;
  std::size_t at = 1;
  for (int i = 0; i < payload[0]; ++i) {
    const std::size_t left = payload.size() - at;
    if (left < 3) break;
    const unsigned kind = payload[at];
    const std::size_t samples = payload[at + 2];
    if (kind != 0x10 && kind != 0x20 && kind != 0x30) break;
    const std::size_t length = kind == 0x10 ? 19 + 8 * samples : kind == 0x20 ? 19 + 12 * samples : 31;
    if (length > left) break;
    auto& blocks = kind == 0x10 ? joint_blocks : kind == 0x20 ? inertial_blocks : pressure_blocks;
    blocks.push_back(piece(payload, at, length));
    at += length;
  }
  for (const ByteVector& block : joint_blocks) apply_joints(block);
  for (const ByteVector& block : inertial_blocks) apply_inertial(block);
  for (const ByteVector& block : pressure_blocks) apply_pressure(block);

  if (joint_blocks.empty() || !joint_data_) return;
  const unsigned counter = u16(packet, 5);
  if (counter == last_counter_) return;
  if (counter_seen_) {
    const unsigned d = (counter + 65536 - last_counter_) % 65536;
    if (d != 1) dropped_cycles_ += d - 1;
    seq_ += d;
  }
  counter_seen_ = true;
  last_counter_ = static_cast<std::uint16_t>(counter);
  emit(now, false, frames);
  last_data_ = now.steady;
}

void PlainDecoder::apply_joints(const ByteVector& block) {
  const std::size_t segment = block[1] / 16;
  const std::size_t samples = block[2];
  if (samples == 0) return;
  joint_data_ = true;
  if (segment > 4) return;
  const std::size_t last = 13 + 8 * (samples - 1);
  for (std::size_t k = 0; k < 4; ++k) q_.at(4 * segment + k) = value(block, last + 2 * k) * 0.017453292F;
  status_lo_.at(segment) = block.at(block.size() - 6);
  status_hi_.at(segment) = block.at(block.size() - 3);
}

void PlainDecoder::apply_inertial(const ByteVector& block) {
  const std::size_t segment = block[1] / 16;
  const std::size_t samples = block[2];
  if (samples == 0 || segment > 4) return;
  const std::size_t last = 13 + 12 * (samples - 1);
  for (std::size_t k = 0; k < 3; ++k) imu_.at(segment).acc.at(k) = value(block, last + 2 * k);
  for (std::size_t k = 0; k < 3; ++k) imu_.at(segment).gyro.at(k) = value(block, last + 6 + 2 * k);
}

void PlainDecoder::apply_pressure(const ByteVector& block) {
  const std::size_t segment = block[1] / 16;
  if (segment > 4) return;
  for (std::size_t k = 0; k < 6; ++k) touch_.at(6 * segment + k) = value(block, 13 + 2 * k);
}

bool PlainDecoder::check_silence(const detail::Moment& now, std::vector<Frame>& frames) {
  if (!joint_data_) return true;
  if (now.steady - last_data_ >= nanoseconds(1'501'000'000)) return false;
  if (now.steady - last_frame_ >= nanoseconds(61'000'000)) emit(now, true, frames);
  return true;
}

void PlainDecoder::emit(const detail::Moment& now, bool stale, std::vector<Frame>& frames) {
  Frame frame;
  frame.t = now.wall;
  frame.q = {q_.begin(), q_.end()};
  frame.touch = {touch_.begin(), touch_.end()};
  frame.imu = {imu_.begin(), imu_.end()};
  frame.stale = stale;
  frame.seq = seq_;
  frame.status_lo = status_lo_;
  frame.status_hi = status_hi_;
  frames.push_back(frame);
  last_frame_ = now.steady;
}

}  // namespace tarsil::fuzz
