// A glove without hardware: plausible data at a fixed rate, so that everything but the serial layer can be
// used.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>

#include "tarsil/core/data_source.h"

namespace tarsil {

/// What a MockSource makes. The defaults are those of the tool's --mock.
struct MockConfig {
  /// Becomes DeviceInfo::serial.
  std::string serial = "MOCK-0001";
  /// 1 is right, 0 is left.
  std::int32_t side = 1;
  /// Frames per second when `realtime` is set; a positive finite number then.
  float hz = 100.0F;
  /// Joint angles per frame; 0 or less: none.
  std::int32_t n_dofs = 20;
  /// Pads per frame; 0 or less: none.
  std::int32_t n_pads = 30;
  /// Inertial units per frame; 0 or less: none.
  std::int32_t n_imu = 5;
  /// Standard deviation of the noise on every joint angle, radians.
  float noise = 0.002F;
  /// Set: read_frame paces delivery to `hz`. Clear: frames come as fast as they are asked for.
  bool realtime = true;
};

/// The synthetic source. It has no thread and no lock: one thread at a time reads; close() may come from
/// another.
class MockSource : public IDataSource {
 public:
  /// Seeds the noise from the system's random device.
  /// Throws std::invalid_argument if `realtime` is set and `hz` is not a positive finite number.
  explicit MockSource(MockConfig config);

  /// The next frame, after sleeping until it is due. Deliberately goes on after close(): it is the consumer's
  /// loop on is_open() that ends a stream. Throws std::length_error if an array of the configured size cannot
  /// be had.
  Frame read_frame() override;
  [[nodiscard]] DeviceInfo device_info() const override;
  [[nodiscard]] bool is_open() const override;
  void close() override;

 private:
  void wait_until_due();
  [[nodiscard]] float noise(float deviation);
  void fill_joints(Frame& frame, float time);
  void fill_pads(Frame& frame, float time);
  void fill_imu(Frame& frame);

  MockConfig config_;
  DeviceInfo info_;
  std::atomic<bool> open_ = true;
  std::mt19937 engine_;
  std::chrono::steady_clock::time_point deadline_;  // the epoch until the first paced read
  std::uint64_t next_seq_ = 0;
};

}  // namespace tarsil
