// Packets carry no check byte: what protects the host is that lengths must fit, and that it starts again one
// byte on when they do not.
#include "tarsil/serial/decoder.h"

#include <algorithm>
#include <cstring>

namespace tarsil::detail {

namespace {

using Bytes = std::span<const std::uint8_t>;

float hundredths(const std::uint8_t* raw) {
  return static_cast<float>(wire::read_i16(raw)) / wire::kHundredths;
}

/// The whole block at the front of `rest`; empty if it does not fit or is of a kind that is not known.
Bytes block_at(Bytes rest) {
  if (rest.size() < wire::kBlockPrefixSize) return {};
  const std::size_t samples = rest[wire::kSampleCountOffset];
  std::size_t size = wire::kBlockHeaderSize + wire::kBlockTrailerSize;
  switch (rest[wire::kKindOffset]) {
    case wire::kJointKind:
      size += samples * wire::kJointSampleSize;
      break;
    case wire::kInertialKind:
      size += samples * wire::kInertialSampleSize;
      break;
    case wire::kPressureKind:
      size += wire::kPressureSampleSize;
      break;  // always exactly one
    default:
      return {};
  }
  return size <= rest.size() ? rest.first(size) : Bytes{};
}

/// The last sample of a block: the one right before the trailer.
const std::uint8_t* last_sample(Bytes block, std::size_t sample_size) {
  return block.data() + block.size() - wire::kBlockTrailerSize - sample_size;
}

}  // namespace

void Decoder::feed(Bytes bytes, const Moment& now, std::vector<Frame>& frames) {
  buffer_.append(bytes);
  buffer_.consume(scan(buffer_.bytes(), now, frames));
  buffer_.cut();
}

/// Handles every whole packet in `bytes`; returns how many bytes are done with.
std::size_t Decoder::scan(Bytes bytes, const Moment& now, std::vector<Frame>& frames) {
  std::size_t p = 0;
  while (bytes.size() - p >= wire::kPacketHeaderSize) {
    const std::uint8_t* at = bytes.data() + p;
    if (at[0] != wire::kMagic0 || at[1] != wire::kMagic1) {
      // On to the next byte that can begin a packet.
      const std::size_t rest = bytes.size() - p - (wire::kPacketHeaderSize - 1);
      const void* next = rest > 1 ? std::memchr(at + 1, wire::kMagic0, rest - 1) : nullptr;
      p = next != nullptr ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(next) - bytes.data())
                          : p + rest;
      continue;
    }
    const std::size_t length = wire::read_u16(at + wire::kPayloadLengthOffset);
    if (length > wire::kMaxPayload) {
      ++p;  // no packet is that long: the magic was a coincidence
      continue;
    }
    const std::size_t size = wire::kPacketHeaderSize + length;
    if (bytes.size() - p < size) break;
    handle_packet(bytes.subspan(p, size), now, frames);
    p += size;
  }
  return p;
}

void Decoder::handle_packet(Bytes packet, const Moment& now, std::vector<Frame>& frames) {
  if (!side_) side_ = packet[wire::kSideOffset] == 0 ? 1 : 0;
  if (packet[wire::kTypeOffset] != wire::kSensorDataType) return;
  const bool joint_block = apply_payload(packet.subspan(wire::kPacketHeaderSize));
  if (!joint_block || !joint_data_) return;
  if (!advance_sequence(wire::read_u16(packet.data() + wire::kCounterOffset))) return;
  frames.push_back(make_frame(now, false));
  last_data_ = now.steady;
  last_frame_ = now.steady;
}

/// Brings the channels up to date with the blocks of one payload, up to the first that is unknown or does not
/// fit. Returns whether there was a joint block among them. The kinds write to different channels, so the
/// order of blocks matters only within a kind, where it is the order on the wire.
bool Decoder::apply_payload(Bytes payload) {
  if (payload.size() < wire::kMinPayload) return false;
  bool joint_block = false;
  Bytes rest = payload.subspan(wire::kFirstBlockOffset);
  for (int left = payload[wire::kBlockCountOffset]; left > 0; --left) {
    const Bytes block = block_at(rest);
    if (block.empty()) break;
    rest = rest.subspan(block.size());
    const std::size_t segment = block[wire::kSegmentOffset] >> 4;
    const bool samples = block[wire::kSampleCountOffset] > 0;
    switch (block[wire::kKindOffset]) {
      case wire::kJointKind:
        joint_block = true;
        if (samples) apply_joints(segment, block);
        break;
      case wire::kInertialKind:
        if (samples) apply_inertial(segment, block);
        break;
      default:
        apply_pressure(segment, block);
        break;
    }
  }
  return joint_block;
}

/// A segment beyond the fingers counts as joint data, but has no joints here.
void Decoder::apply_joints(std::size_t segment, Bytes block) {
  joint_data_ = true;
  if (segment >= wire::kSegments) return;
  const std::uint8_t* sample = last_sample(block, wire::kJointSampleSize);
  for (std::size_t k = 0; k < wire::kJointsPerSegment; ++k) {
    q_[segment * wire::kJointsPerSegment + k] = hundredths(sample + 2 * k) * wire::kRadiansPerDegree;
  }
  const Bytes trailer = block.last(wire::kBlockTrailerSize);
  status_lo_[segment] = trailer[wire::kStatusLoInTrailer];
  status_hi_[segment] = trailer[wire::kStatusHiInTrailer];
}

void Decoder::apply_inertial(std::size_t segment, Bytes block) {
  if (segment >= wire::kSegments) return;
  const std::uint8_t* sample = last_sample(block, wire::kInertialSampleSize);
  ImuSample& imu = imu_[segment];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    imu.acc[axis] = hundredths(sample + 2 * axis);
    imu.gyro[axis] = hundredths(sample + 2 * (axis + 3));
  }
}

void Decoder::apply_pressure(std::size_t segment, Bytes block) {
  if (segment >= wire::kSegments) return;
  const std::uint8_t* sample = last_sample(block, wire::kPressureSampleSize);
  for (std::size_t k = 0; k < wire::kPadsPerSegment; ++k) {
    touch_[segment * wire::kPadsPerSegment + k] = hundredths(sample + 2 * k);
  }
}

/// Several packets may carry one hardware cycle; only the first of them makes a frame. The very first counter
/// of a stream starts the numbering, unless it equals the initial value of the last one: then it counts as a
/// repetition. A jump backwards is, deliberately, a long jump forwards.
bool Decoder::advance_sequence(std::uint16_t counter) {
  if (counter == last_counter_) return false;
  if (counter_seen_) {
    const auto step = static_cast<std::uint16_t>(counter - last_counter_);
    dropped_cycles_ += step - 1U;
    seq_ += step;
  }
  counter_seen_ = true;
  last_counter_ = counter;
  return true;
}

bool Decoder::check_silence(const Moment& now, std::vector<Frame>& frames) {
  if (!joint_data_) return true;
  if (now.steady - last_data_ >= kSilenceLimit) return false;
  if (now.steady - last_frame_ >= kStaleInterval) {
    frames.push_back(make_frame(now, true));
    last_frame_ = now.steady;
  }
  return true;
}

Frame Decoder::make_frame(const Moment& now, bool stale) const {
  Frame frame;
  frame.t = now.wall;
  frame.q.assign(q_.begin(), q_.end());
  frame.touch.assign(touch_.begin(), touch_.end());
  frame.imu.assign(imu_.begin(), imu_.end());
  frame.stale = stale;
  frame.seq = seq_;
  frame.status_lo = status_lo_;
  frame.status_hi = status_hi_;
  return frame;
}

}  // namespace tarsil::detail
