// Reading the frame lines that the recorder writes, as fast as they are many.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/recording/usual_numbers.h"

namespace tarsil::detail {

/// Reads frame lines in one pass over each, as long as their keys stand in the order in which the recorder
/// writes them. Its results are those of frame_by_rules(). The memory it needs on the way is used again and
/// again.
class FrameLineScanner {
 public:
  /// Reads `line`, which a zero byte follows in memory. False if it does not look like the recorder's:
  /// `frame` is of no use then, and the line may be anything.
  [[nodiscard]] bool scan(std::string_view line, Frame& frame);

 private:
  class Cursor;

  bool scan_array(Cursor& cursor, std::vector<float>& values);
  bool scan_usual_array(Cursor& cursor, std::vector<float>& values);
  bool scan_samples(Cursor& cursor, std::vector<ImuSample>& samples);
  bool scan_usual_samples(Cursor& cursor, std::vector<ImuSample>& samples);

  UsualNumbers<6> channels_;
  UsualNumbers<3> axes_;
  std::array<float, UsualNumbers<6>::kCapacity> converted_;
  std::vector<float> floats_;
  std::vector<ImuSample> samples_;
};

}  // namespace tarsil::detail
