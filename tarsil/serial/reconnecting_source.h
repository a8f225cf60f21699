// A source that outlives the loss of its glove.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>

#include "tarsil/core/data_source.h"

namespace tarsil {

/// What to reconnect to, and how patiently. Times are in seconds; very large ones, infinity included, mean
/// "wait".
struct ReconnectingConfig {
  /// Makes a fresh inner source at every call. It is called by the constructor and by a thread of the source.
  /// An unset factory, a null result, one that is not open and an exception all count as a failed attempt.
  std::function<std::shared_ptr<IDataSource>()> factory = {};
  /// How long read_frame waits before it repeats the last frame, and how long an inner read may hang before
  /// the inner source is closed.
  float read_timeout_s = 2.0F;
  /// Wait before the first attempt of a reconnection; it doubles with every failure.
  float initial_backoff_s = 0.5F;
  /// Longest wait between attempts.
  float max_backoff_s = 16.0F;
  /// Failed attempts of one reconnection after which the source gives up.
  std::uint32_t max_attempts = std::numeric_limits<std::uint32_t>::max();
  /// Most frames held for the consumer; of 0 or less, none. A slow consumer loses the newest frames.
  std::int32_t queue_capacity = 8;
};

/// Wraps another source and keeps the stream alive while that one is lost: it is closed, and a fresh one is
/// made, with exponential back-off between attempts. Meanwhile the consumer gets repetitions of the last
/// frame, marked as stale.
///
/// One thread at a time calls read_frame(); everything else may be called from any thread but from inside the
/// inner source or the factory, whose threads close() joins.
class ReconnectingSource : public IDataSource {
 public:
  /// Makes the first inner source at once; that there is none yet is not an error.
  explicit ReconnectingSource(ReconnectingConfig config);
  ReconnectingSource(const ReconnectingSource&) = delete;
  ReconnectingSource& operator=(const ReconnectingSource&) = delete;
  ~ReconnectingSource() override;

  /// The next frame, or after read_timeout_s a repetition of the last one: its joints, pads, inertial units
  /// and number, with the time of now. Before the first frame that is an empty one with number 0. Throws
  /// StreamUnderrunError ("ReconnectingSource: closed") once the source is closed or has given up and the
  /// queue is empty.
  Frame read_frame() override;
  /// Identity of the latest inner source; a default one before there was any.
  [[nodiscard]] DeviceInfo device_info() const override;
  /// True until close(), or until reconnection has given up.
  [[nodiscard]] bool is_open() const override;
  /// Stops the inner source and all threads. Cuts every wait short, but not a factory call in progress.
  void close() override;

 private:
  void connect_first();
  void pump();
  bool pump_one_frame();
  void enqueue(Frame frame);
  void reconnect();
  bool try_to_connect();
  bool wait_before_attempt(float seconds);
  void drop_inner();
  void watch();
  void stop();
  void stop_and_join();
  [[nodiscard]] std::shared_ptr<IDataSource> inner() const;
  [[nodiscard]] Frame stale_frame() const;

  const ReconnectingConfig config_;
  std::atomic<bool> running_ = true;
  /// Wall-clock seconds at which the inner read in progress began; 0 while there is none.
  std::atomic<double> read_started_ = 0.0;

  mutable std::mutex mutex_;  // guards everything down to the last frame
  std::condition_variable frames_ready_;
  std::condition_variable wake_;
  std::shared_ptr<IDataSource> inner_;
  DeviceInfo info_;
  std::deque<Frame> queue_;
  Frame last_;

  std::mutex join_mutex_;
  std::thread pump_;
  std::thread watchdog_;
};

}  // namespace tarsil
