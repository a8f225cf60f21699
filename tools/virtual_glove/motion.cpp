// Curves of the virtual hand: sums of slow waves whose frequencies and phases come from the seed.
#include "tools/virtual_glove/motion.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "tools/virtual_glove/random.h"

namespace tarsil::virtual_glove {
namespace {

constexpr double kHundredths = 100.0;
constexpr double kDegreesPerRadian = 180.0 / std::numbers::pi;

constexpr double kMainShare = 0.85;
constexpr double kMinorShare = 0.15;

constexpr double kAbductionSwing = 15.0;
constexpr double kMcpCentre = 42.0;
constexpr double kMcpSwing = 40.0;
constexpr double kPipCentre = 45.0;
constexpr double kPipSwing = 43.0;
// The tendon that bends the middle joint bends the last one with it, about two thirds as far.
constexpr double kDipPerPip = 2.0 / 3.0;

constexpr double kLargestTilt = 30.0 / kDegreesPerRadian;
constexpr std::uint16_t kSensorsInOrder = 0x0F;
constexpr double kSkinTemperature = 31.0;
constexpr double kTemperatureSwing = 2.0;

// How far from a turn of the joint, in cycles, its play still rattles.
constexpr double kRattleCycles = 2.0;

std::int16_t to_hundredths(double value) {
  const double scaled = std::clamp(value * kHundredths, -32768.0, 32767.0);
  return static_cast<std::int16_t>(std::lround(scaled));
}

}  // namespace

double HandMotion::Wave::at(double seconds) const {
  return std::sin(2.0 * std::numbers::pi * (hz * seconds + phase));
}

double HandMotion::JointCurve::at(double seconds) const {
  return centre + swing * (kMainShare * main.at(seconds) + kMinorShare * minor.at(seconds));
}

HandMotion::HandMotion(std::uint64_t seed, double hz, std::vector<JointDefect> defects)
    : seed_(seed), hz_(hz), defects_(std::move(defects)) {
  Random random(seed);
  const auto wave = [&random](double slowest, double fastest) {
    const double frequency = random.uniform(slowest, fastest);
    return Wave{frequency, random.uniform()};
  };
  const auto curve = [&wave](double centre, double swing) {
    const Wave main = wave(0.5, 0.8);
    return JointCurve{centre, swing, main, wave(1.0, 1.4)};
  };
  for (std::size_t finger = 0; finger < kFingers; ++finger) {
    JointCurve* joint = &joints_[finger * kJointsPerFinger];
    joint[0] = curve(0.0, kAbductionSwing);
    joint[1] = curve(kMcpCentre, kMcpSwing);
    joint[2] = curve(kPipCentre, kPipSwing);
    joint[3] = joint[2];
    joint[3].centre *= kDipPerPip;
    joint[3].swing *= kDipPerPip;
  }
  for (Wave& pad : pads_) pad = wave(0.4, 1.0);
  for (Tilt& tilt : tilts_) {
    tilt.roll = wave(0.05, 0.12);
    tilt.pitch = wave(0.05, 0.12);
  }
}

double HandMotion::joint_degrees(std::size_t joint, std::uint64_t cycle) const {
  double degrees = joints_[joint].at(seconds_at(static_cast<double>(cycle)));
  for (const JointDefect& defect : defects_) {
    if (std::cmp_equal(defect.joint, joint)) degrees = with_defect(defect, degrees, cycle);
  }
  return degrees;
}

double HandMotion::with_defect(const JointDefect& defect, double degrees, std::uint64_t cycle) const {
  switch (defect.kind) {
    case DefectKind::stuck:
      return defect.degrees;
    case DefectKind::noisy: {
      const auto joint = static_cast<std::uint64_t>(defect.joint);
      Random noise(derived_seed(derived_seed(seed_, joint), cycle));
      return degrees + noise.uniform(-defect.degrees, defect.degrees);
    }
    case DefectKind::backlash:
      return degrees + play(defect, cycle);
  }
  return degrees;
}

// Away from its turns the sensor lags behind the joint by half the play. Around a turn nothing holds it, and
// it rattles from end to end with every cycle.
double HandMotion::play(const JointDefect& defect, std::uint64_t cycle) const {
  const JointCurve& curve = joints_[static_cast<std::size_t>(defect.joint)];
  const auto centre = static_cast<double>(cycle);
  const auto rises = [&](double at) {
    return curve.at(seconds_at(at + 0.5)) > curve.at(seconds_at(at - 0.5));
  };
  const double half = defect.degrees / 2.0;
  const bool turning = rises(centre - kRattleCycles) != rises(centre + kRattleCycles);
  if (turning) return cycle % 2 == 0 ? half : -half;
  return rises(centre) ? -half : half;
}

std::array<std::int16_t, kAxesPerUnit> HandMotion::unit_at(std::size_t unit, double seconds) const {
  const Tilt& tilt = tilts_[unit];
  const double roll = kLargestTilt * tilt.roll.at(seconds);
  const double pitch = kLargestTilt * tilt.pitch.at(seconds);
  // The rate of a wave is the same wave a quarter turn ahead, times its angular frequency.
  const auto rate = [seconds](const Wave& wave) {
    const Wave ahead{wave.hz, wave.phase + 0.25};
    return kDegreesPerRadian * kLargestTilt * 2.0 * std::numbers::pi * wave.hz * ahead.at(seconds);
  };
  return {to_hundredths(-std::sin(pitch)),
          to_hundredths(std::cos(pitch) * std::sin(roll)),
          to_hundredths(std::cos(pitch) * std::cos(roll)),
          to_hundredths(rate(tilt.roll)),
          to_hundredths(rate(tilt.pitch)),
          0};
}

HandSample HandMotion::at(std::uint64_t cycle) const {
  const double seconds = seconds_at(static_cast<double>(cycle));
  HandSample sample;
  for (std::size_t joint = 0; joint < kJoints; ++joint) {
    sample.joints[joint] = to_hundredths(joint_degrees(joint, cycle));
  }
  for (std::size_t pad = 0; pad < kPads; ++pad) {
    const double press = std::max(0.0, pads_[pad].at(seconds));
    sample.pads[pad] = to_hundredths(press * press);
  }
  for (std::size_t unit = 0; unit < kFingers; ++unit) {
    sample.imu[unit] = unit_at(unit, seconds);
    const double warmth = static_cast<double>(unit) + kTemperatureSwing * tilts_[unit].roll.at(seconds);
    const auto celsius = static_cast<unsigned>(std::lround(kSkinTemperature + warmth));
    sample.status[unit] = static_cast<std::uint16_t>((celsius << 8U) | kSensorsInOrder);
  }
  return sample;
}

}  // namespace tarsil::virtual_glove
