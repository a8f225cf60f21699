// The pump carries frames from the inner source to the queue and replaces an inner source that has failed;
// the watchdog closes one whose read hangs, so that it fails.
#include "tarsil/serial/reconnecting_source.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tarsil/core/clock.h"
#include "tarsil/core/errors.h"
#include "tarsil/core/thread.h"

namespace tarsil {

namespace {

using detail::SteadyClock;

constexpr std::chrono::milliseconds kWatchdogInterval{500};

detail::SteadyTime deadline_in(float seconds) {
  return detail::time_after(SteadyClock::now(), detail::nanoseconds_rounded_up(seconds));
}

/// A source that is being given up on may fail in any way it likes.
void close_ignoring_errors(IDataSource& source) {
  try {
    source.close();
  } catch (...) {
  }
}

}  // namespace

ReconnectingSource::ReconnectingSource(ReconnectingConfig config) : config_(std::move(config)) {
  connect_first();
  try {
    pump_ = detail::start_thread([this] { pump(); });
    watchdog_ = detail::start_thread([this] { watch(); });
  } catch (...) {
    stop_and_join();
    throw;
  }
}

ReconnectingSource::~ReconnectingSource() {
  stop_and_join();
}

/// Unlike later attempts, the first takes a source that is not open as well: it knows what it was meant to
/// be.
void ReconnectingSource::connect_first() {
  if (!config_.factory) return;
  try {
    auto source = config_.factory();
    if (!source) return;
    info_ = source->device_info();
    inner_ = std::move(source);
  } catch (...) {
    // The pump goes straight into reconnection.
  }
}

Frame ReconnectingSource::read_frame() {
  std::unique_lock lock(mutex_);
  frames_ready_.wait_until(lock, deadline_in(config_.read_timeout_s),
                           [this] { return !queue_.empty() || !running_; });
  if (!queue_.empty()) {
    Frame frame = std::move(queue_.front());
    queue_.pop_front();
    last_.q = frame.q;
    last_.touch = frame.touch;
    last_.imu = frame.imu;
    last_.seq = frame.seq;
    return frame;
  }
  if (!running_) throw StreamUnderrunError("ReconnectingSource: closed");
  return stale_frame();
}

/// The last frame's values at the time of now. Status bytes are not remembered.
Frame ReconnectingSource::stale_frame() const {
  Frame frame = last_;
  frame.t = detail::wall_clock_seconds();
  frame.stale = true;
  return frame;
}

DeviceInfo ReconnectingSource::device_info() const {
  const std::lock_guard lock(mutex_);
  return info_;
}

bool ReconnectingSource::is_open() const {
  return running_;
}

void ReconnectingSource::close() {
  stop_and_join();
}

std::shared_ptr<IDataSource> ReconnectingSource::inner() const {
  const std::lock_guard lock(mutex_);
  return inner_;
}

/// The flag changes under the mutex, so that nobody who has just found it set can miss the wake-up.
void ReconnectingSource::stop() {
  {
    const std::lock_guard lock(mutex_);
    running_ = false;
  }
  frames_ready_.notify_all();
  wake_.notify_all();
}

/// May be called by several threads at once, and after reconnection has given up. The inner source is closed
/// before the pump is joined, so that a read that hangs in it does not hold the pump; and again after that,
/// in case the pump was just making another.
void ReconnectingSource::stop_and_join() {
  stop();
  const std::lock_guard lock(join_mutex_);
  if (watchdog_.joinable()) watchdog_.join();
  drop_inner();
  if (pump_.joinable()) pump_.join();
  drop_inner();
}

/// The inner source is closed before anybody makes another: a port has to be free before it is looked for
/// again.
void ReconnectingSource::drop_inner() {
  std::shared_ptr<IDataSource> dropped;
  {
    const std::lock_guard lock(mutex_);
    dropped = std::exchange(inner_, nullptr);
  }
  if (dropped) close_ignoring_errors(*dropped);
}

void ReconnectingSource::pump() {
  while (running_) {
    if (!pump_one_frame()) reconnect();
  }
}

/// Moves one frame from the inner source to the queue; false if the inner source has failed in any way.
bool ReconnectingSource::pump_one_frame() {
  const auto source = inner();
  if (!source) return false;
  try {
    if (!source->is_open()) return false;
    read_started_ = detail::wall_clock_seconds();
    Frame frame = source->read_frame();
    read_started_ = 0.0;
    if (running_) enqueue(std::move(frame));
    return true;
  } catch (...) {
    read_started_ = 0.0;
    return false;
  }
}

/// A consumer that is too slow deliberately loses the newest data.
void ReconnectingSource::enqueue(Frame frame) {
  {
    const std::lock_guard lock(mutex_);
    if (!std::cmp_less(queue_.size(), config_.queue_capacity)) return;
    queue_.push_back(std::move(frame));
  }
  frames_ready_.notify_one();
}

/// Every attempt waits first, the first one included.
void ReconnectingSource::reconnect() {
  drop_inner();
  float backoff = config_.initial_backoff_s;
  for (std::uint32_t failures = 0; failures < config_.max_attempts; ++failures) {
    if (!wait_before_attempt(backoff)) return;
    if (try_to_connect()) return;
    backoff = std::min(config_.max_backoff_s, 2.0F * backoff);
  }
  stop();
}

/// False if the source was closed meanwhile.
bool ReconnectingSource::wait_before_attempt(float seconds) {
  std::unique_lock lock(mutex_);
  return !wake_.wait_until(lock, deadline_in(seconds), [this] { return !running_; });
}

bool ReconnectingSource::try_to_connect() {
  if (!config_.factory) return false;
  try {
    auto source = config_.factory();
    if (!source || !source->is_open()) return false;
    DeviceInfo info = source->device_info();
    const std::lock_guard lock(mutex_);
    info_ = std::move(info);
    inner_ = std::move(source);
    return true;
  } catch (...) {
    return false;
  }
}

void ReconnectingSource::watch() {
  std::unique_lock lock(mutex_);
  while (!wake_.wait_until(lock, SteadyClock::now() + kWatchdogInterval, [this] { return !running_; })) {
    const double started = read_started_;
    if (!(started > 0.0 && detail::wall_clock_seconds() - started > config_.read_timeout_s)) continue;
    lock.unlock();
    if (const auto hanging = inner()) close_ignoring_errors(*hanging);
    lock.lock();
  }
}

}  // namespace tarsil
