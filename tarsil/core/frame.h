// One sample of the glove, as every source hands it on and every consumer takes it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace tarsil {

/// One reading of an inertial unit.
struct ImuSample {
  /// Linear acceleration x, y, z in units of standard gravity.
  std::array<float, 3> acc{};
  /// Angular rate about x, y, z.
  std::array<float, 3> gyro{};
};

/// One sample of the glove.
///
/// The lengths of the arrays are not fixed by the type: a frame may carry fewer entries than DeviceInfo
/// announces (a repeated frame before the first real one carries none), so a consumer goes by the lengths it
/// finds.
struct Frame {
  /// Wall-clock time in seconds since the Unix epoch, taken when the frame was made.
  double t = 0.0;
  /// Joint angles in radians, finger-major: entry finger * 4 + joint. Fingers: thumb, index, middle, ring,
  /// pinky; joints: MCP abduction, MCP flexion, PIP, DIP.
  std::vector<float> q = {};
  /// Normalised pressure, one value per finger pad; a glove's finger owns six entries from finger * 6 on.
  std::vector<float> touch = {};
  /// One entry per inertial unit.
  std::vector<ImuSample> imu = {};
  /// True for a repetition of the last known values while the glove is silent.
  bool stale = false;
  /// Consecutive number of the sample; a gap means that samples were lost on the way. A stale frame repeats
  /// the number of the frame before it.
  std::uint64_t seq = 0;
  /// Low byte of each finger segment's status word, thumb to pinky, as the glove last reported it.
  std::array<std::uint8_t, 5> status_lo{0x0F, 0x0F, 0x0F, 0x0F, 0x0F};
  /// High byte of each finger segment's status word.
  std::array<std::uint8_t, 5> status_hi{};
};

}  // namespace tarsil
