// Every frame goes into the column of its time. A silence lasts from the last fresh frame to the next one, a
// gap from the frame before it to the one behind.
#include "tools/recording/plot_columns.h"

#include <algorithm>
#include <cmath>

namespace tarsil::recording_tool {

namespace {

float length_of(const std::array<float, 3>& vector) {
  return std::hypot(vector[0], vector[1], vector[2]);
}

std::vector<Stretch> stretches_of(const std::vector<bool>& marked) {
  std::vector<Stretch> stretches;
  for (std::size_t i = 0; i < marked.size(); ++i) {
    if (!marked[i]) continue;
    if (stretches.empty() || stretches.back().second + 1 != i) stretches.emplace_back(i, i);
    stretches.back().second = i;
  }
  return stretches;
}

void mark(std::vector<bool>& columns, std::size_t from, std::size_t to) {
  for (std::size_t i = std::min(from, to); i <= std::max(from, to); ++i) columns[i] = true;
}

}  // namespace

void Extent::add(const Frame& frame) {
  if (!std::isfinite(frame.t)) return;
  first_t = frames == 0 ? frame.t : std::min(first_t, frame.t);
  last_t = frames == 0 ? frame.t : std::max(last_t, frame.t);
  joints = std::max(joints, std::min(frame.q.size(), PlotColumns::kMostJoints));
  pads = std::max(pads, std::min(frame.touch.size(), PlotColumns::kMostPads));
  units = std::max(units, std::min(frame.imu.size(), PlotColumns::kMostUnits));
  ++frames;
}

void Range::add(float value) {
  if (!std::isfinite(value)) return;
  low = std::min(low, value);
  high = std::max(high, value);
}

PlotColumns::PlotColumns(const Extent& extent, std::size_t columns)
    : extent_(extent),
      joints_(extent.joints, std::vector<Range>(columns)),
      pads_(extent.pads, std::vector<Range>(columns)),
      units_(extent.units, std::vector<Range>(columns)),
      stale_(columns),
      gap_(columns),
      gap_end_(columns) {}

std::size_t PlotColumns::column_of(double t) const {
  if (!(extent_.duration() > 0.0)) return 0;
  // The file may have changed since its extent was taken.
  const double share = std::clamp((t - extent_.first_t) / extent_.duration(), 0.0, 1.0);
  return std::min(static_cast<std::size_t>(share * static_cast<double>(size())), size() - 1);
}

double PlotColumns::time_of(std::size_t column) const {
  return extent_.duration() * (static_cast<double>(column) + 0.5) / static_cast<double>(size());
}

void PlotColumns::add(const Frame& frame) {
  if (!std::isfinite(frame.t)) return;
  const std::size_t column = column_of(frame.t);
  for (std::size_t i = 0; i < std::min(joints_.size(), frame.q.size()); ++i) {
    joints_[i][column].add(frame.q[i]);
  }
  for (std::size_t i = 0; i < std::min(pads_.size(), frame.touch.size()); ++i) {
    pads_[i][column].add(frame.touch[i]);
  }
  for (std::size_t i = 0; i < std::min(units_.size(), frame.imu.size()); ++i) {
    units_[i][column].add(length_of(frame.imu[i].acc));
  }
  const std::size_t from = begun_ ? previous_column_ : column;
  if (frame.stale || previous_stale_) mark(stale_, from, column);
  if (begun_ && frame.seq > previous_seq_ && frame.seq - previous_seq_ > 1) {
    mark(gap_, from, column);
    if (column > from + 1) gap_end_[column] = true;
  }
  begun_ = true;
  previous_stale_ = frame.stale;
  previous_seq_ = frame.seq;
  previous_column_ = column;
}

std::vector<Stretch> PlotColumns::stale_stretches() const {
  return stretches_of(stale_);
}

std::vector<Stretch> PlotColumns::gap_stretches() const {
  return stretches_of(gap_);
}

}  // namespace tarsil::recording_tool
