// Sums over lines.
#include "tools/recording/summary.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace tarsil::recording_tool {

namespace {

/// What a map that has been checked holds.
Pairs pairs_of(std::string_view map) {
  std::vector<std::string> texts;  // keys and values in turn
  std::size_t at = map.find('"');
  while (at != std::string_view::npos) {
    std::size_t end = at + 1;
    while (map[end] != '"') end += map[end] == '\\' ? 2 : 1;
    texts.push_back(unquoted(map.substr(at, end + 1 - at)));
    at = map.find('"', end + 1);
  }
  Pairs pairs;
  for (std::size_t i = 0; i + 1 < texts.size(); i += 2) pairs.emplace_back(texts[i], texts[i + 1]);
  return pairs;
}

}  // namespace

void Summary::add(const RecordingLine& line) {
  if (line.fault != Fault::none) ++damaged_;
  if (!is_usable(line.fault)) return;
  if (line.checked.type == LineType::header) add_header(line.checked.header);
  if (line.checked.type == LineType::frame) add_frame(line.checked.frame);
  if (line.checked.type == LineType::marker) add_marker(line.checked.marker);
}

void Summary::add_header(const HeaderParts& header) {
  has_header_ = true;
  sdk_ = unquoted(header.sdk);
  metadata_ = pairs_of(header.metadata);
}

void Summary::add_frame(const FrameParts& frame) {
  if (frames_ == 0) first_t_ = frame.t;
  if (frames_ > 0 && frame.seq > previous_seq_ && frame.seq - previous_seq_ > 1) {
    const std::uint64_t missing = frame.seq - previous_seq_ - 1;
    ++gaps_.count;
    gaps_.missing += std::min(missing, std::numeric_limits<std::uint64_t>::max() - gaps_.missing);
    gaps_.largest = std::max(gaps_.largest, missing);
  }
  previous_seq_ = frame.seq;
  last_t_ = frame.t;
  if (frame.stale) {
    ++stale_;
  } else {
    if (frames_ == stale_) first_fresh_t_ = frame.t;
    last_fresh_t_ = frame.t;
  }
  if (frame.not_numbers > 0) ++with_non_numbers_;
  ++frames_;
}

void Summary::add_marker(const MarkerParts& marker) {
  ++marker_count_;
  if (markers_.size() < kMostMarkers) {
    markers_.push_back({marker.t, unquoted(marker.name), pairs_of(marker.data)});
  }
}

double Summary::stale_share() const {
  return frames_ == 0 ? 0.0 : static_cast<double>(stale_) / static_cast<double>(frames_);
}

std::optional<double> Summary::rate() const {
  const std::uint64_t fresh = frames_ - stale_;
  const double seconds = last_fresh_t_ - first_fresh_t_;
  // Written so that a time that is no number gives nothing.
  if (fresh < 2 || !(seconds > 0.0)) return std::nullopt;
  return static_cast<double>(fresh - 1) / seconds;
}

}  // namespace tarsil::recording_tool
