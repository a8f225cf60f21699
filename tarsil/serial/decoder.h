// The second half of the conversation with a glove: data packets in, frames out. No thread, no descriptor and
// no clock: whoever reads the port passes bytes and time in.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tarsil/core/clock.h"
#include "tarsil/core/frame.h"
#include "tarsil/serial/raw_channels.h"
#include "tarsil/serial/receive_buffer.h"
#include "tarsil/serial/wire.h"

namespace tarsil::detail {

/// One moment on both clocks: frames carry wall-clock time, silence is measured on the monotonic one.
struct Moment {
  SteadyTime steady;
  /// Seconds since the Unix epoch.
  double wall = 0.0;
};

/// Decodes the packets of one stream and keeps the latest value of every channel between them.
class Decoder {
 public:
  /// Silence after which the last frame is repeated, and how often it is repeated then.
  static constexpr std::chrono::milliseconds kStaleInterval{61};
  /// Silence that ends the stream: more than 1500 whole milliseconds.
  static constexpr std::chrono::milliseconds kSilenceLimit{1501};

  /// `start`: when the glove was told to start.
  explicit Decoder(SteadyTime start) : last_data_(start), last_frame_(start) {}

  /// Takes the bytes of one read and appends the frames that they complete to `frames`. The frames of one
  /// read carry its time.
  void feed(std::span<const std::uint8_t> bytes, const Moment& now, std::vector<Frame>& frames);

  /// To be called after every read, empty or not: repeats the last frame, marked as stale, when the glove is
  /// silent. Returns false when it has been silent for so long that the stream is over.
  [[nodiscard]] bool check_silence(const Moment& now, std::vector<Frame>& frames);

  /// 1 (right) or 0 (left) from the first packet on.
  [[nodiscard]] std::optional<std::int32_t> side() const { return side_; }
  /// Hardware cycles that the packets' counter has skipped.
  [[nodiscard]] std::uint64_t dropped_cycles() const { return dropped_cycles_; }
  /// Bytes that wait for the rest of their packet.
  [[nodiscard]] std::size_t buffered() const { return buffer_.size(); }

 private:
  using Bytes = std::span<const std::uint8_t>;

  std::size_t scan(Bytes bytes, const Moment& now, std::vector<Frame>& frames);
  void handle_packet(Bytes packet, const Moment& now, std::vector<Frame>& frames);
  bool apply_payload(Bytes payload);
  inline void apply_joints(std::size_t segment, Bytes block);
  inline void apply_inertial(std::size_t segment, Bytes block);
  inline void apply_pressure(std::size_t segment, Bytes block);
  bool advance_sequence(std::uint16_t counter);
  void add_frame(const Moment& now, bool stale, std::vector<Frame>& frames) const;

  ReceiveBuffer buffer_;

  // The latest known value of every channel.
  RawChannels<wire::kJointsPerSegment> joints_;
  RawChannels<wire::kAxesPerSegment> inertial_;
  RawChannels<wire::kPadsPerSegment> pressure_;
  std::array<std::uint8_t, wire::kSegments> status_lo_ = Frame{}.status_lo;
  std::array<std::uint8_t, wire::kSegments> status_hi_ = Frame{}.status_hi;

  std::optional<std::int32_t> side_;
  bool joint_data_ = false;
  std::uint16_t last_counter_ = 0xFFFF;
  bool counter_seen_ = false;
  std::uint64_t seq_ = 0;
  std::uint64_t dropped_cycles_ = 0;
  SteadyTime last_data_;
  SteadyTime last_frame_;
};

}  // namespace tarsil::detail
