// Limits of the settings. Comparisons are written so that a value that is not a number fails them.
#include "tools/virtual_glove/config.h"

#include <stdexcept>

namespace tarsil::virtual_glove {
namespace {

void require(bool condition, const char* message) {
  if (!condition) throw std::invalid_argument(message);
}

bool inside(double value, double low, double high) {
  return value >= low && value <= high;
}

bool is_version_number(int number) {
  return number >= 0 && number <= 255;
}

void validate_fault(const Fault& fault) {
  require(inside(fault.rate, 0, 1), "the rate of a fault must be above 0 and at most 1");
  require(inside(fault.at_seconds, 0, kLongestSeconds), "the time of a fault must be 0 to 1000000 seconds");
  require(inside(fault.duration_seconds, 0, kLongestSeconds), "a silence must last 0 to 1000000 seconds");
}

void validate_defect(const JointDefect& defect) {
  require(defect.joint >= 0 && static_cast<std::size_t>(defect.joint) < kJoints, "a joint must be 0 to 19");
  const double least = defect.kind == DefectKind::stuck ? -kLargestDefectDegrees : 0;
  require(inside(defect.degrees, least, kLargestDefectDegrees),
          "the degrees of a defect must be at most 180");
}

}  // namespace

void validate(const GloveConfig& config) {
  require(config.serial.size() <= kLongestSerial, "the serial must have at most 255 bytes");
  require(is_version_number(config.firmware_major) && is_version_number(config.firmware_minor),
          "firmware numbers must be 0 to 255");
  require(inside(config.hz, kSlowestHz, kFastestHz), "the rate must be 0.01 to 20000 Hz");
  if (config.replug) {
    require(
        inside(config.replug->seconds, 0, kLongestSeconds) && inside(config.replug->away, 0, kLongestSeconds),
        "times of a replug must be 0 to 1000000 seconds");
  }
  for (const Fault& fault : config.faults) validate_fault(fault);
  for (const JointDefect& defect : config.defects) validate_defect(defect);
}

}  // namespace tarsil::virtual_glove
