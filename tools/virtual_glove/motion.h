// The hand inside the virtual glove: what its sensors measure in every cycle. A pure function of seed and
// cycle, so that a test can say what the host has to show without having listened.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarsil::virtual_glove {

constexpr std::size_t kFingers = 5;
constexpr std::size_t kJointsPerFinger = 4;
constexpr std::size_t kPadsPerFinger = 6;
constexpr std::size_t kAxesPerUnit = 6;
constexpr std::size_t kJoints = kFingers * kJointsPerFinger;
constexpr std::size_t kPads = kFingers * kPadsPerFinger;

/// One cycle's readings, in the units of the wire.
struct HandSample {
  /// Joint angles in hundredths of a degree, finger-major (thumb to pinky; abduction, MCP flexion, PIP, DIP).
  std::array<std::int16_t, kJoints> joints{};
  /// Pad pressures in hundredths, 0 to 100, finger-major.
  std::array<std::int16_t, kPads> pads{};
  /// Per inertial unit: accelerometer x, y, z (hundredths of standard gravity), gyroscope x, y, z (hundredths
  /// of a degree per second).
  std::array<std::array<std::int16_t, kAxesPerUnit>, kFingers> imu{};
  /// Segment status words: low byte 0x0F (all four joint sensors in order), high byte the segment's
  /// temperature in degrees Celsius.
  std::array<std::uint16_t, kFingers> status{};

  bool operator==(const HandSample&) const = default;
};

enum class DefectKind {
  stuck,     ///< the joint reads `degrees` whatever the hand does
  noisy,     ///< white noise of at most `degrees` either way is added to every reading
  backlash,  ///< the reading lags by half of `degrees` and rattles through all of it where the joint turns
};

/// A worn joint sensor.
struct JointDefect {
  int joint = 0;  ///< 0 to 19, index into HandSample::joints
  DefectKind kind = DefectKind::stuck;
  double degrees = 0;
};

/// A hand that opens, closes, presses and tilts. Immutable, so that any thread may ask it.
class HandMotion {
 public:
  /// `hz` is the number of cycles per second; defects of the same joint apply in list order, and those of a
  /// joint that does not exist are ignored.
  HandMotion(std::uint64_t seed, double hz, std::vector<JointDefect> defects = {});

  /// The readings of one cycle; equal arguments give equal readings.
  HandSample at(std::uint64_t cycle) const;

 private:
  struct Wave {
    double hz = 0;
    double phase = 0;  // in turns
    double at(double seconds) const;
  };

  // Every joint swings around its centre; a weaker second wave keeps the movement from being a plain sine.
  struct JointCurve {
    double centre = 0;
    double swing = 0;
    Wave main;
    Wave minor;
    double at(double seconds) const;
  };

  // The tilt of one inertial unit, slow enough that gravity dominates its accelerometer.
  struct Tilt {
    Wave roll;
    Wave pitch;
  };

  double seconds_at(double cycle) const { return cycle / hz_; }
  double joint_degrees(std::size_t joint, std::uint64_t cycle) const;
  double with_defect(const JointDefect& defect, double degrees, std::uint64_t cycle) const;
  double play(const JointDefect& defect, std::uint64_t cycle) const;
  std::array<std::int16_t, kAxesPerUnit> unit_at(std::size_t unit, double seconds) const;

  std::uint64_t seed_;
  double hz_;
  std::vector<JointDefect> defects_;
  std::array<JointCurve, kJoints> joints_;
  std::array<Wave, kPads> pads_;
  std::array<Tilt, kFingers> tilts_;
};

}  // namespace tarsil::virtual_glove
