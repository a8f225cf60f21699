// Loading and pacing; how a line is read stands in line_rules.h and frame_line.h.
#include "tarsil/recording/replayer.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tarsil/core/clock.h"
#include "tarsil/core/errors.h"
#include "tarsil/recording/frame_line.h"
#include "tarsil/recording/line_reader.h"
#include "tarsil/recording/line_rules.h"

namespace tarsil {

namespace {

void set_if_unknown(std::int32_t& count, std::size_t length) {
  if (count == 0) count = static_cast<std::int32_t>(length);
}

/// How many frames to make room for when `count` fill what there is and the lines so far are that share of
/// the file. Lines are about equally long, so what is read tells what is to come; a little more than that,
/// since growing once more near the end would move all frames. A file that is not what its size says, a
/// sparse one for instance, costs no more than a fixed multiple of what it holds.
std::size_t room_for_frames(std::size_t count, std::optional<double> progress) {
  constexpr double kMargin = 1.0 + 1.0 / 32;
  const double least = std::max(64.0, static_cast<double>(count) * 1.25);
  const double most = std::max(64.0, static_cast<double>(count) * 16);
  if (!progress) return 2 * static_cast<std::size_t>(least);
  const double expected = kMargin * static_cast<double>(count + 1) / *progress;
  return static_cast<std::size_t>(std::clamp(expected, least, most));
}

}  // namespace

Replayer::Replayer(const std::filesystem::path& path, ReplayerConfig config) : config_(config) {
  load(path);
  if (frames_.empty()) throw std::runtime_error("Replayer: no frames found in: " + path.native());
}

void Replayer::load(const std::filesystem::path& path) {
  detail::LineReader reader(path);
  if (!reader.is_open()) throw std::runtime_error("Replayer: cannot open: " + path.native());
  detail::FrameLineScanner scanner;
  bool header_taken = false;
  while (const auto line = reader.next()) {
    // Most lines are frames, so the frame's place is where a line is read to.
    if (frames_.size() == frames_.capacity())
      frames_.reserve(room_for_frames(frames_.size(), reader.progress()));
    if (scanner.scan(*line, frames_.emplace_back())) {
      learn_counts(frames_.back());
      continue;
    }
    frames_.pop_back();
    const std::string type = detail::string_field(*line, "type");
    if (type == "header" && !header_taken) {
      take_header(*line);
      header_taken = true;
    } else if (type == "frame") {
      learn_counts(frames_.emplace_back(detail::frame_by_rules(*line)));
    } else if (type == "marker") {
      markers_.push_back(detail::marker_by_rules(*line));
    }
  }
}

void Replayer::take_header(std::string_view line) {
  info_.firmware = detail::string_field(line, "sdk");  // deliberate: nothing else of the kind is at hand
  const auto metadata = detail::map_field(line, "metadata");
  const auto with = [&metadata](const char* key, auto use) {
    if (const auto found = metadata.find(key); found != metadata.end()) use(found->second);
  };
  with("serial", [this](const std::string& value) { info_.serial = value; });
  with("side", [this](const std::string& value) { info_.side = value == "left" ? 0 : 1; });
  with("n_dofs", [this](const std::string& value) { info_.n_dofs = std::stoi(value); });
  with("n_pads", [this](const std::string& value) { info_.n_pads = std::stoi(value); });
  with("n_imu", [this](const std::string& value) { info_.n_imu = std::stoi(value); });
}

/// What the header has not told is that of the first frame which has any.
void Replayer::learn_counts(const Frame& frame) {
  set_if_unknown(info_.n_dofs, frame.q.size());
  set_if_unknown(info_.n_pads, frame.touch.size());
  set_if_unknown(info_.n_imu, frame.imu.size());
}

Frame Replayer::read_frame() {
  if (config_.loop && cursor_ == frames_.size()) cursor_ = 0;
  if (cursor_ == frames_.size()) throw StreamUnderrunError("Replayer: end of recording");
  const Frame& frame = frames_[cursor_++];
  if (config_.speed > 0.0F) wait_until_due(frame);
  return frame;
}

void Replayer::wait_until_due(const Frame& frame) {
  const double now = detail::wall_clock_seconds();
  if (!pacing_) {
    pacing_ = true;
    wall_start_ = now;
    first_t_ = frame.t;
    return;
  }
  const double target = (frame.t - first_t_) / static_cast<double>(config_.speed);
  const double wait = target - (now - wall_start_);
  // sleep_for goes on with what remains when a signal interrupts it.
  if (wait > 0.0) std::this_thread::sleep_for(detail::nanoseconds_rounded_up(wait));
}

DeviceInfo Replayer::device_info() const {
  return info_;
}

bool Replayer::is_open() const {
  return open_ && (config_.loop || cursor_ < frames_.size());
}

void Replayer::close() {
  open_ = false;
}

double Replayer::duration() const {
  return frames_.size() < 2 ? 0.0 : frames_.back().t - frames_.front().t;
}

}  // namespace tarsil
