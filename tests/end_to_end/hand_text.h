// What the tool has to show and to write for each cycle of a virtual glove, worked out from the hand's motion
// and not by the tool's own code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/virtual_glove/config.h"
#include "tools/virtual_glove/motion.h"

namespace tarsil::test {

/// One way of putting a hand into text.
enum class HandStyle {
  row,      ///< the three values of a row of `stream --raw`
  fingers,  ///< the five finger lines of the table
  json,     ///< the members "q", "touch" and "imu" of tsl and json
  csv,      ///< the columns from q_0 on, with the comma before them
};

/// One hand in that style.
[[nodiscard]] std::string text_of(HandStyle style, const virtual_glove::HandSample& hand);

/// The texts of a glove's cycles, from its first on. A glove begins again with cycle 0 whenever a host starts
/// it.
class HandText {
 public:
  HandText(const virtual_glove::GloveConfig& glove, HandStyle style);

  /// The text of a cycle.
  [[nodiscard]] const std::string& at(std::uint64_t cycle);

  /// The first cycle from `begin` on, and before kLastCycle, that reads `text`.
  [[nodiscard]] std::optional<std::uint64_t> find(std::string_view text, std::uint64_t begin = 0);

 private:
  /// Beyond what any test lets a glove send.
  static constexpr std::uint64_t kLastCycle = 20000;

  virtual_glove::HandMotion motion_;
  HandStyle style_;
  std::vector<std::string> texts_;
};

}  // namespace tarsil::test
