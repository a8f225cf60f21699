// What the stream command shows, as text: a function of frames and time, without a terminal and without a
// clock.
#pragma once

#include <cstdint>
#include <string>

#include "tarsil/core/clock.h"
#include "tarsil/core/frame.h"

namespace tarsil::cli {

/// The two heading lines of the row format.
[[nodiscard]] std::string raw_heading();

/// One row of the row format: time, first two joint angles in radians, first pad. What the frame lacks shows
/// as 0.
[[nodiscard]] std::string raw_row(const Frame& frame);

/// The table: eight lines with heading, joint angles in degrees and pads, one row a finger. What the frame
/// lacks shows as 0.
[[nodiscard]] std::string table_text(const Frame& frame, std::int64_t frame_number);

/// Decides, frame by frame, what the table display puts on the screen.
class LiveTable {
 public:
  enum class Verdict {
    go_on,    ///< read the next frame
    done,     ///< the limit is reached
    no_data,  ///< the glove has sent nothing but repetitions from the start
  };
  struct Step {
    Verdict verdict = Verdict::go_on;
    /// What to put on the screen now; may be empty.
    std::string screen;
  };

  /// `limit`: how many frames to take, 0 or less for no limit. `start`: now.
  LiveTable(std::int32_t limit, detail::SteadyTime start);

  /// Takes the next frame, at `now`.
  [[nodiscard]] Step take(const Frame& frame, detail::SteadyTime now);

 private:
  [[nodiscard]] std::string redraw(const Frame& frame);

  std::int32_t limit_;
  detail::SteadyTime last_redraw_;
  std::int64_t frames_ = 0;
  int stale_waits_ = 0;
  bool drawn_ = false;
};

}  // namespace tarsil::cli
