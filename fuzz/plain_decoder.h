// The packet decoder once more, step by step as docs/wire-protocol.md reads and with that page's numbers.
// What holds the fast one to the bit. (The benchmarks have another one that does not check what it indexes,
// and leaves silences out.)
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tarsil/core/clock.h"
#include "tarsil/core/frame.h"
#include "tarsil/serial/decoder.h"

namespace tarsil::fuzz {

/// Copies whatever it looks at and collects before it applies; for the rest like detail::Decoder.
class PlainDecoder {
 public:
  explicit PlainDecoder(detail::SteadyTime start) : last_data_(start), last_frame_(start) {}

  void feed(std::span<const std::uint8_t> bytes, const detail::Moment& now, std::vector<Frame>& frames);
  [[nodiscard]] bool check_silence(const detail::Moment& now, std::vector<Frame>& frames);

  [[nodiscard]] std::optional<std::int32_t> side() const { return side_; }
  [[nodiscard]] std::uint64_t dropped_cycles() const { return dropped_cycles_; }
  [[nodiscard]] std::size_t buffered() const { return buffer_.size(); }

 private:
  using ByteVector = std::vector<std::uint8_t>;

  void handle(const ByteVector& packet, const detail::Moment& now, std::vector<Frame>& frames);
  void apply_joints(const ByteVector& block);
  void apply_inertial(const ByteVector& block);
  void apply_pressure(const ByteVector& block);
  void emit(const detail::Moment& now, bool stale, std::vector<Frame>& frames);

  ByteVector buffer_;
  std::array<float, 20> q_{};
  std::array<float, 30> touch_{};
  std::array<ImuSample, 5> imu_{};
  std::array<std::uint8_t, 5> status_lo_{0x0F, 0x0F, 0x0F, 0x0F, 0x0F};
  std::array<std::uint8_t, 5> status_hi_{};
  std::optional<std::int32_t> side_;
  bool joint_data_ = false;
  bool counter_seen_ = false;
  std::uint16_t last_counter_ = 65535;
  std::uint64_t seq_ = 0;
  std::uint64_t dropped_cycles_ = 0;
  detail::SteadyTime last_data_;
  detail::SteadyTime last_frame_;
};

}  // namespace tarsil::fuzz
