// Packets carry no check byte: what protects the host is that lengths must fit, and that it starts again one
// byte on when they do not.
#include "tarsil/serial/decoder.h"

#include <array>
#include <cstring>

#include "tarsil/serial/packet_search.h"

namespace tarsil::detail {

namespace {

using Bytes = std::span<const std::uint8_t>;

/// The size of a block of a known kind with so many samples.
constexpr std::size_t block_size(std::size_t samples, std::size_t sample_size) {
  return wire::kBlockHeaderSize + samples * sample_size + wire::kBlockTrailerSize;
}

/// The last sample of a block: the one right before the trailer.
const std::uint8_t* last_sample(Bytes block, std::size_t sample_size) {
  return block.data() + block.size() - wire::kBlockTrailerSize - sample_size;
}

}  // namespace

void Decoder::feed(Bytes bytes, const Moment& now, std::vector<Frame>& frames) {
  if (buffer_.size() == 0) {
    // The usual read ends with a packet's last byte, and leaves nothing to keep.
    buffer_.append(bytes.subspan(scan(bytes, now, frames)));
  } else {
    buffer_.append(bytes);
    buffer_.consume(scan(buffer_.bytes(), now, frames));
  }
  buffer_.cut();
}

/// Handles every whole packet in `bytes`; returns how many bytes are done with.
std::size_t Decoder::scan(Bytes bytes, const Moment& now, std::vector<Frame>& frames) {
  std::size_t p = 0;
  while (true) {
    p = find_packet(bytes, p);
    const Bytes rest = bytes.subspan(p);
    if (rest.size() < wire::kPacketHeaderSize) return p;
    const std::size_t size =
        wire::kPacketHeaderSize + wire::read_u16(rest.data() + wire::kPayloadLengthOffset);
    if (rest.size() < size) return p;
    handle_packet(rest.first(size), now, frames);
    p += size;
  }
}

void Decoder::handle_packet(Bytes packet, const Moment& now, std::vector<Frame>& frames) {
  if (!side_) side_ = packet[wire::kSideOffset] == 0 ? 1 : 0;
  if (packet[wire::kTypeOffset] != wire::kSensorDataType) return;
  const bool joint_block = apply_payload(packet.subspan(wire::kPacketHeaderSize));
  if (!joint_block || !joint_data_) return;
  if (!advance_sequence(wire::read_u16(packet.data() + wire::kCounterOffset))) return;
  add_frame(now, false, frames);
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
  for (int left = payload[wire::kBlockCountOffset]; left > 0 && rest.size() >= wire::kBlockPrefixSize;
       --left) {
    const std::size_t segment = rest[wire::kSegmentOffset] >> 4;
    const std::size_t samples = rest[wire::kSampleCountOffset];
    std::size_t size = 0;
    switch (rest[wire::kKindOffset]) {
      case wire::kJointKind:
        size = block_size(samples, wire::kJointSampleSize);
        if (size > rest.size()) return joint_block;
        joint_block = true;
        if (samples > 0) apply_joints(segment, rest.first(size));
        break;
      case wire::kInertialKind:
        size = block_size(samples, wire::kInertialSampleSize);
        if (size > rest.size()) return joint_block;
        if (samples > 0) apply_inertial(segment, rest.first(size));
        break;
      case wire::kPressureKind:
        size = block_size(1, wire::kPressureSampleSize);  // whatever the sample count says
        if (size > rest.size()) return joint_block;
        apply_pressure(segment, rest.first(size));
        break;
      default:
        return joint_block;
    }
    rest = rest.subspan(size);
  }
  return joint_block;
}

/// A segment beyond the fingers counts as joint data, but has no joints here.
void Decoder::apply_joints(std::size_t segment, Bytes block) {
  joint_data_ = true;
  if (segment >= wire::kSegments) return;
  joints_.set(segment, last_sample(block, wire::kJointSampleSize));
  const Bytes trailer = block.last(wire::kBlockTrailerSize);
  status_lo_[segment] = trailer[wire::kStatusLoInTrailer];
  status_hi_[segment] = trailer[wire::kStatusHiInTrailer];
}

void Decoder::apply_inertial(std::size_t segment, Bytes block) {
  if (segment < wire::kSegments) inertial_.set(segment, last_sample(block, wire::kInertialSampleSize));
}

void Decoder::apply_pressure(std::size_t segment, Bytes block) {
  if (segment < wire::kSegments) pressure_.set(segment, last_sample(block, wire::kPressureSampleSize));
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
    add_frame(now, true, frames);
    last_frame_ = now.steady;
  }
  return true;
}

void Decoder::add_frame(const Moment& now, bool stale, std::vector<Frame>& frames) const {
  Frame& frame = frames.emplace_back();
  frame.t = now.wall;
  auto q = joints_.in_units();
  for (float& angle : q) angle *= wire::kRadiansPerDegree;
  frame.q.assign(q.data(), q.data() + wire::kJoints);
  const auto touch = pressure_.in_units();
  frame.touch.assign(touch.data(), touch.data() + wire::kPads);
  const auto axes = inertial_.in_units();
  std::array<ImuSample, wire::kSegments> imu;
  // A segment's axes stand in the order in which a sample has them.
  static_assert(sizeof(ImuSample) == wire::kAxesPerSegment * sizeof(float));
  std::memcpy(static_cast<void*>(imu.data()), axes.data(), sizeof imu);
  frame.imu.assign(imu.begin(), imu.end());
  frame.stale = stale;
  frame.seq = seq_;
  frame.status_lo = status_lo_;
  frame.status_hi = status_hi_;
}

}  // namespace tarsil::detail
