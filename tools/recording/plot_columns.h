// A recording as wide as a picture: for each column of pixels the smallest and the largest value of every
// channel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::recording_tool {

/// What has to be known before columns can be filled.
struct Extent {
  std::uint64_t frames = 0;
  /// Smallest and largest time of the frames.
  double first_t = 0.0;
  double last_t = 0.0;
  /// Channels of the frame that has most of them, as far as they are drawn.
  std::size_t joints = 0;
  std::size_t pads = 0;
  std::size_t units = 0;

  void add(const Frame& frame);
  [[nodiscard]] double duration() const { return last_t - first_t; }
};

/// Values that fall into one column.
struct Range {
  float low = std::numeric_limits<float>::infinity();
  float high = -std::numeric_limits<float>::infinity();

  void add(float value);
  [[nodiscard]] bool empty() const { return !(low <= high); }
};

/// Columns side by side, the last one included.
using Stretch = std::pair<std::size_t, std::size_t>;

class PlotColumns {
 public:
  // A glove's channels. What a file has beyond them is not drawn.
  static constexpr std::size_t kMostJoints = 20;
  static constexpr std::size_t kMostPads = 30;
  static constexpr std::size_t kMostUnits = 5;

  PlotColumns(const Extent& extent, std::size_t columns);

  /// Adds the frames one after the other, in file order.
  void add(const Frame& frame);

  [[nodiscard]] std::size_t size() const { return stale_.size(); }
  [[nodiscard]] const Extent& extent() const { return extent_; }
  /// The time of a column's middle, in seconds from the first frame on.
  [[nodiscard]] double time_of(std::size_t column) const;

  // A channel's columns.
  [[nodiscard]] const std::vector<Range>& joint(std::size_t index) const { return joints_[index]; }
  [[nodiscard]] const std::vector<Range>& pad(std::size_t index) const { return pads_[index]; }
  /// The length of a unit's acceleration.
  [[nodiscard]] const std::vector<Range>& unit(std::size_t index) const { return units_[index]; }

  [[nodiscard]] std::vector<Stretch> stale_stretches() const;
  [[nodiscard]] std::vector<Stretch> gap_stretches() const;
  /// Whether a gap that is wider than a column ends in this one.
  [[nodiscard]] bool gap_ends_at(std::size_t column) const { return gap_end_[column]; }

 private:
  [[nodiscard]] std::size_t column_of(double t) const;

  Extent extent_;
  std::vector<std::vector<Range>> joints_;
  std::vector<std::vector<Range>> pads_;
  std::vector<std::vector<Range>> units_;
  std::vector<bool> stale_;
  std::vector<bool> gap_;
  std::vector<bool> gap_end_;
  bool begun_ = false;
  bool previous_stale_ = false;
  std::uint64_t previous_seq_ = 0;
  std::size_t previous_column_ = 0;
};

}  // namespace tarsil::recording_tool
