// Recordings of a virtual glove, taken apart and compared with what the glove sent.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tools/virtual_glove/config.h"

namespace tarsil::test {

/// A frame as its recording has it.
struct RecordedFrame {
  std::uint64_t seq = 0;
  double t = 0;
  bool stale = false;
  /// The texts of `HandStyle::json` (tsl, json) or `HandStyle::csv`.
  std::string values;
};

/// A recording's text and the frames in it. What is cut off at its end stands in `torn`.
struct Recording {
  /// tsl: the header line; csv: the column names; json: all before the frames.
  std::string head;
  std::vector<RecordedFrame> frames;
  std::string torn;
};

/// Take a recording apart. Every whole line has to be what the format says; the test fails otherwise. A json
/// document has to be complete.
[[nodiscard]] Recording read_tsl(const std::string& text);
[[nodiscard]] Recording read_csv(const std::string& text);
[[nodiscard]] Recording read_json(const std::string& text);

/// The csv format's column names for a glove's frames.
[[nodiscard]] std::string csv_columns();

/// What a sequence of recorded frames amounts to.
struct Tally {
  std::uint64_t fresh = 0;
  std::uint64_t stale = 0;
  /// Numbers missing between the first frame and the last.
  std::uint64_t dropped = 0;
  std::uint64_t last_seq = 0;
};

/// Compares recorded frames with the cycles of the glove: a fresh frame carries the values of cycle
/// `first_cycle` + seq, a stale one number and values of the frame before; numbers begin with 0 and grow,
/// times do not go back.
Tally check_frames(const std::vector<RecordedFrame>& frames, HandText& hand, std::uint64_t first_cycle = 0);

}  // namespace tarsil::test
