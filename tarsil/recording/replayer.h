// Plays a recording back as if it were a glove.
#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string_view>
#include <vector>

#include "tarsil/core/data_source.h"
#include "tarsil/core/marker.h"

namespace tarsil {

/// How a recording is played back.
struct ReplayerConfig {
  /// Speed factor; 0 or less hands the frames out as fast as they are asked for.
  float speed = 1.0F;
  /// Start again at the first frame after the last one.
  bool loop = false;
};

/// A source over a recording in the tsl format, which it holds in memory as a whole. Used by one thread,
/// which is also the one that sleeps; close() may come from another.
///
/// Lines that it does not know are passed over, and so is what a crash has left of the last line if not even
/// its type is whole; a number that is none counts as 0. Frames come back as the file has them, but never
/// stale and without status bytes.
class Replayer : public IDataSource {
 public:
  /// Loads the file. Throws std::runtime_error if it cannot be opened or holds no frame,
  /// std::invalid_argument or std::out_of_range if its header gives a count that is no number.
  explicit Replayer(const std::filesystem::path& path, ReplayerConfig config = {});

  /// The next frame, after waiting until it is due: as long after the first one as it was recorded, divided
  /// by the speed, on the wall clock. After a loop the schedule deliberately goes on from where it was, so
  /// that frames come without a wait. Throws StreamUnderrunError ("Replayer: end of recording") past the end.
  Frame read_frame() override;
  /// What the header tells; the library's version at the time of recording stands for the firmware.
  [[nodiscard]] DeviceInfo device_info() const override;
  /// False after close(), and at the end unless it loops.
  [[nodiscard]] bool is_open() const override;
  void close() override;

  /// Seconds from the first frame to the last one; 0 with fewer than two.
  [[nodiscard]] double duration() const;
  /// Frames in the recording.
  [[nodiscard]] std::size_t frame_count() const { return frames_.size(); }
  /// In file order.
  [[nodiscard]] const std::vector<Frame>& frames() const { return frames_; }
  /// In file order.
  [[nodiscard]] const std::vector<Marker>& markers() const { return markers_; }

 private:
  void load(const std::filesystem::path& path);
  void take_header(std::string_view line);
  void learn_counts(const Frame& frame);
  void wait_until_due(const Frame& frame);

  ReplayerConfig config_;
  DeviceInfo info_;
  std::vector<Frame> frames_;
  std::vector<Marker> markers_;
  std::size_t cursor_ = 0;
  std::atomic<bool> open_ = true;
  bool pacing_ = false;
  double wall_start_ = 0.0;
  double first_t_ = 0.0;
};

}  // namespace tarsil
