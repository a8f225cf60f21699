// The reader thread: alone with the port and the decoder, it shares only the frame queue and a few flags.
#include "tarsil/serial/serial_source.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/core/clock.h"
#include "tarsil/core/errors.h"
#include "tarsil/core/thread.h"
#include "tarsil/serial/decoder.h"
#include "tarsil/serial/identity.h"
#include "tarsil/serial/ports.h"
#include "tarsil/serial/serial_port.h"
#include "tarsil/serial/wire.h"

namespace tarsil {

namespace {

using detail::Moment;
using detail::SerialPort;
using detail::SteadyClock;

SerialConfig with_port(SerialConfig config) {
  if (config.port.empty()) config.port = auto_detect_port();
  return config;
}

/// What is known of a glove before it has said anything.
DeviceInfo provisional_info(const std::string& port) {
  const std::string name = port.substr(port.find_last_of("/\\") + 1);  // npos + 1 is 0: the whole path
  return {"TSL-" + name, 1, "unknown", detail::wire::kJoints, detail::wire::kPads, detail::wire::kSegments};
}

}  // namespace

class SerialSource::Reader {
 public:
  explicit Reader(SerialConfig config) : config_(std::move(config)), info_(provisional_info(config_.port)) {
    thread_ = detail::start_thread([this] { run(); });
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { stop_and_join(); }

  /// Returns once there is a frame or the reader has stopped by itself; throws if neither happens in time.
  void wait_for_first_frame();
  Frame take_frame();
  void stop_and_join();

  [[nodiscard]] DeviceInfo info() const {
    const std::lock_guard lock(mutex_);
    return info_;
  }
  [[nodiscard]] bool running() const { return running_; }
  [[nodiscard]] std::uint64_t dropped_cycles() const { return dropped_cycles_; }

 private:
  // On the reader thread.
  void run();
  void talk_to_glove(SerialPort& port);
  bool exchange_identity(SerialPort& port);
  void stream(SerialPort& port);
  std::optional<std::span<const std::uint8_t>> read(SerialPort& port);
  void publish(const detail::Decoder& decoder, std::vector<Frame>& frames);
  void enqueue(Frame frame);

  void stop();

  const SerialConfig config_;
  std::atomic<bool> running_ = true;
  std::atomic<std::uint64_t> dropped_cycles_ = 0;

  mutable std::mutex mutex_;  // guards the queue and the identity
  std::condition_variable changed_;
  std::deque<Frame> queue_;
  DeviceInfo info_;

  std::array<std::uint8_t, detail::wire::kMaxRead> scratch_;

  std::mutex join_mutex_;
  std::thread thread_;
};

void SerialSource::Reader::wait_for_first_frame() {
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(config_.timeout_ms);
  {
    std::unique_lock lock(mutex_);
    if (changed_.wait_until(lock, deadline, [this] { return !queue_.empty() || !running_; })) return;
  }
  stop_and_join();
  throw DeviceNotFoundError("No data received from " + config_.port +
                            " within timeout. Check that the Tarsil glove is powered and sending data.");
}

Frame SerialSource::Reader::take_frame() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !queue_.empty() || !running_; });
  if (queue_.empty()) throw StreamUnderrunError("SerialSource stream closed");
  Frame frame = std::move(queue_.front());
  queue_.pop_front();
  return frame;
}

/// The flag changes under the mutex, so that nobody who has just found it set can miss the wake-up.
void SerialSource::Reader::stop() {
  {
    const std::lock_guard lock(mutex_);
    running_ = false;
  }
  changed_.notify_all();
}

/// May be called by several threads at once, and again after the reader has stopped by itself.
void SerialSource::Reader::stop_and_join() {
  stop();
  const std::lock_guard lock(join_mutex_);
  if (thread_.joinable()) thread_.join();
}

/// Whatever ends the conversation, lack of memory included, ends it the same way: the port is closed, then
/// the source has stopped. So whoever sees that it has stopped can open the port anew.
void SerialSource::Reader::run() {
  try {
    if (auto port = SerialPort::open(config_.port, config_.baud)) talk_to_glove(*port);
  } catch (...) {
    // Nobody could catch it here; the consumer sees that the stream has ended.
  }
  stop();
}

void SerialSource::Reader::talk_to_glove(SerialPort& port) {
  if (exchange_identity(port)) stream(port);
}

/// Waits, without a time limit of its own, until the glove has said who it is.
bool SerialSource::Reader::exchange_identity(SerialPort& port) {
  detail::IdentityExchange exchange;
  port.write(detail::wire::kResetCommand);
  while (running_) {
    const auto bytes = read(port);
    if (!bytes) return false;
    if (auto identity = exchange.feed(*bytes)) {
      const std::lock_guard lock(mutex_);
      info_.serial = std::move(identity->serial);
      info_.firmware = std::move(identity->firmware);
      return running_;
    }
  }
  return false;
}

void SerialSource::Reader::stream(SerialPort& port) {
  port.write(detail::wire::kStartCommand);
  detail::Decoder decoder(SteadyClock::now());
  std::vector<Frame> frames;
  bool glove_sends = true;
  while (running_ && glove_sends) {
    const auto bytes = read(port);
    if (!bytes) return;
    const Moment now{SteadyClock::now(), detail::wall_clock_seconds()};
    decoder.feed(*bytes, now, frames);
    glove_sends = decoder.check_silence(now, frames);
    publish(decoder, frames);
  }
}

/// Bytes of one read; none if nothing came within a tenth of a second; nothing if the port has failed. A port
/// that was unplugged answers at once, so what is left of the tenth is waited out here; stop() cuts that
/// short.
std::optional<std::span<const std::uint8_t>> SerialSource::Reader::read(SerialPort& port) {
  const auto begin = SteadyClock::now();
  const auto count = port.read(scratch_);
  if (!count) return std::nullopt;
  if (*count == 0) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, begin + SerialPort::kReadTimeout, [this] { return !running_; });
  }
  return std::span(scratch_).first(*count);
}

/// What frames imply is visible before they are.
void SerialSource::Reader::publish(const detail::Decoder& decoder, std::vector<Frame>& frames) {
  dropped_cycles_ = decoder.dropped_cycles();
  if (const auto side = decoder.side()) {
    const std::lock_guard lock(mutex_);
    info_.side = *side;
  }
  for (Frame& frame : frames) enqueue(std::move(frame));
  frames.clear();
}

/// When the queue is full, fresh data wins over old data, and a repetition gives way to both. Deliberately
/// different.
void SerialSource::Reader::enqueue(Frame frame) {
  {
    const std::lock_guard lock(mutex_);
    const bool full = std::cmp_greater_equal(queue_.size(), config_.queue_depth);
    if (full && frame.stale) return;
    if (full && !queue_.empty()) queue_.pop_front();
    queue_.push_back(std::move(frame));
  }
  changed_.notify_one();
}

SerialSource::SerialSource(SerialConfig config)
    : reader_(std::make_unique<Reader>(with_port(std::move(config)))) {
  reader_->wait_for_first_frame();
}

SerialSource::~SerialSource() = default;

Frame SerialSource::read_frame() {
  return reader_->take_frame();
}

DeviceInfo SerialSource::device_info() const {
  return reader_->info();
}

bool SerialSource::is_open() const {
  return reader_->running();
}

void SerialSource::close() {
  reader_->stop_and_join();
}

std::uint64_t SerialSource::dropped_cycles() const {
  return reader_->dropped_cycles();
}

}  // namespace tarsil
