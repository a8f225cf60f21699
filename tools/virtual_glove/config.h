// How a virtual glove is set up: the one record that the command line fills and tests write by hand.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/virtual_glove/faults.h"
#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::virtual_glove {

/// Limits of the settings below, all included. Times are bounded so that they fit the clock with room to
/// spare.
constexpr double kSlowestHz = 0.01;
constexpr double kFastestHz = 20000;
constexpr double kLongestSeconds = 1e6;
constexpr double kLargestDefectDegrees = 180;

/// The glove vanishes and comes back on its own.
struct Replug {
  double seconds = 0;       ///< after streaming began; with every start command anew
  double away = 1;          ///< how long it stays away
  std::uint64_t times = 0;  ///< how often it comes back before it stays for good; 0 for no limit
};

/// Everything about one virtual glove.
struct GloveConfig {
  std::string link = {};                  ///< path of a symbolic link to the line; empty for none
  std::string serial = "TSL-VG000001";    ///< at most kLongestSerial bytes
  bool left = false;                      ///< which hand
  int firmware_major = 1;                 ///< 0 to 255
  int firmware_minor = 4;                 ///< 0 to 255
  double hz = 200;                        ///< cycles per second
  std::uint64_t seed = 1;                 ///< of the motion and of the faults
  bool announce = false;                  ///< repeat the identity unasked until started
  std::uint64_t frames = 0;               ///< cycles after which the glove falls silent; 0 for no limit
  bool overrun = false;                   ///< a full line loses cycles instead of delaying them
  std::optional<Replug> replug = {};      ///< nothing: it stays
  std::vector<Fault> faults = {};         ///< of the transmission
  std::vector<JointDefect> defects = {};  ///< of the joint sensors
  std::uint16_t first_counter = 0;        ///< cycle counter of the first packet after a start command
};

/// Throws std::invalid_argument, saying what is wrong, unless every setting is inside its limits.
void validate(const GloveConfig& config);

}  // namespace tarsil::virtual_glove
