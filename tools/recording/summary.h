// What there is to know about a recording without its values. Takes one line after the other, and no more
// memory for a long recording than for a short one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/recording/recording_lines.h"

namespace tarsil::recording_tool {

/// A stretch of numbers that are missing, or several.
struct Gaps {
  std::uint64_t count = 0;
  /// Numbers missing in all of them; at most as many as 64 bits can tell.
  std::uint64_t missing = 0;
  std::uint64_t largest = 0;
};

/// Keys and values in file order.
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct MarkedTime {
  double t = 0.0;
  std::string name;
  Pairs data;
};

class Summary {
 public:
  /// More markers than these are counted only.
  static constexpr std::size_t kMostMarkers = 100;

  void add(const RecordingLine& line);

  [[nodiscard]] std::uint64_t frames() const { return frames_; }
  [[nodiscard]] std::uint64_t stale() const { return stale_; }
  [[nodiscard]] double stale_share() const;
  [[nodiscard]] double first_t() const { return first_t_; }
  [[nodiscard]] double last_t() const { return last_t_; }
  /// From the first frame to the last one, in seconds.
  [[nodiscard]] double duration() const { return frames_ < 2 ? 0.0 : last_t_ - first_t_; }
  /// Fresh frames a second; nothing if there is no time between them.
  [[nodiscard]] std::optional<double> rate() const;
  /// Counted as the recorder counts them: a number that repeats or goes back is no gap.
  [[nodiscard]] const Gaps& gaps() const { return gaps_; }
  /// Frames with a value that is no number.
  [[nodiscard]] std::uint64_t with_non_numbers() const { return with_non_numbers_; }
  [[nodiscard]] std::uint64_t damaged() const { return damaged_; }
  [[nodiscard]] std::uint64_t marker_count() const { return marker_count_; }
  [[nodiscard]] const std::vector<MarkedTime>& markers() const { return markers_; }
  /// Whether there was a line that is usable.
  [[nodiscard]] bool knows_anything() const { return has_header_ || frames_ + marker_count_ > 0; }
  /// None without a header.
  [[nodiscard]] const Pairs& metadata() const { return metadata_; }
  [[nodiscard]] bool has_header() const { return has_header_; }
  /// The library's version at the time of recording.
  [[nodiscard]] const std::string& sdk() const { return sdk_; }

 private:
  void add_header(const HeaderParts& header);
  void add_frame(const FrameParts& frame);
  void add_marker(const MarkerParts& marker);

  std::uint64_t frames_ = 0;
  std::uint64_t stale_ = 0;
  std::uint64_t with_non_numbers_ = 0;
  std::uint64_t damaged_ = 0;
  std::uint64_t marker_count_ = 0;
  double first_t_ = 0.0;
  double last_t_ = 0.0;
  double first_fresh_t_ = 0.0;
  double last_fresh_t_ = 0.0;
  std::uint64_t previous_seq_ = 0;
  Gaps gaps_;
  std::vector<MarkedTime> markers_;
  bool has_header_ = false;
  std::string sdk_;
  Pairs metadata_;
};

}  // namespace tarsil::recording_tool
