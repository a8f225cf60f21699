// The formulas of the synthetic glove. All of them are single precision on purpose, step by step as written.
#include "tarsil/core/mock_source.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/core/clock.h"

namespace tarsil {

namespace {

std::uint32_t random_seed() {
  std::random_device device("default");
  return device();
}

MockConfig checked(MockConfig config) {
  if (config.realtime && !(std::isfinite(config.hz) && config.hz > 0.0F)) {
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), config.hz).ptr;
    throw std::invalid_argument("MockSource: hz must be a positive finite number, got " +
                                std::string(text.data(), end));
  }
  return config;
}

/// Time between frames: whole microseconds, truncated. A rate too low for the clock gives the longest period
/// there is.
std::chrono::nanoseconds period_of(float hz) {
  const float microseconds = std::trunc(1e6F / hz);
  // The first float whose nanoseconds no longer fit into 63 bits, rounded down.
  constexpr float kTooLong = 9.2e15F;
  if (microseconds >= kTooLong) return std::chrono::nanoseconds::max();
  return std::chrono::microseconds(static_cast<std::int64_t>(microseconds));
}

/// An array of `count` values; empty for 0 and less. However memory runs out, it is reported as a length
/// error.
template <typename T>
std::vector<T> sized(std::int32_t count) {
  if (count <= 0) return {};
  try {
    return std::vector<T>(static_cast<std::size_t>(count));
  } catch (const std::bad_alloc&) {
    throw std::length_error("cannot create std::vector larger than max_size()");
  }
}

}  // namespace

MockSource::MockSource(MockConfig config)
    : config_(checked(std::move(config))),
      info_{config_.serial, config_.side, "mock-0.1.0", config_.n_dofs, config_.n_pads, config_.n_imu},
      engine_(random_seed()) {}

Frame MockSource::read_frame() {
  if (config_.realtime) wait_until_due();
  Frame frame;
  frame.t = detail::wall_clock_seconds();
  // Deliberately squeezed into single precision: at present-day times it moves in steps of 128 s, so the wave
  // stays put for minutes and what is seen to move is the noise.
  const auto time = static_cast<float>(frame.t);
  fill_joints(frame, time);
  fill_pads(frame, time);
  fill_imu(frame);
  frame.seq = next_seq_++;
  return frame;
}

DeviceInfo MockSource::device_info() const {
  return info_;
}

bool MockSource::is_open() const {
  return open_;
}

void MockSource::close() {
  open_ = false;
}

/// The deadline advances by exactly one period a frame instead of starting anew from "now": the long-run rate
/// holds, and a consumer that fell behind gets the frames it is owed back to back.
void MockSource::wait_until_due() {
  if (deadline_ == detail::SteadyTime{}) deadline_ = detail::SteadyClock::now();
  deadline_ = detail::time_after(deadline_, period_of(config_.hz));
  const auto now = detail::SteadyClock::now();
  // sleep_for goes on with what remains when a signal interrupts it.
  if (now < deadline_) std::this_thread::sleep_for(deadline_ - now);
}

/// One normal deviate. Every draw has a distribution of its own, so that each consumes engine output of its
/// own.
float MockSource::noise(float deviation) {
  return std::normal_distribution<float>()(engine_) * deviation;
}

void MockSource::fill_joints(Frame& frame, float time) {
  frame.q = sized<float>(config_.n_dofs);
  for (std::size_t i = 0; i < frame.q.size(); ++i) {
    frame.q[i] = 0.4F * std::sin(0.31F * static_cast<float>(i) + time) + 0.4F + noise(config_.noise);
  }
}

void MockSource::fill_pads(Frame& frame, float time) {
  frame.touch = sized<float>(config_.n_pads);
  for (std::size_t j = 0; j < frame.touch.size(); ++j) {
    const float x = 0.45F * std::sin(0.7F * static_cast<float>(j) + 0.4F * time) + 0.5F + noise(0.01F);
    frame.touch[j] = x < 0.0F ? 0.0F : std::fmin(x, 1.0F);
  }
}

void MockSource::fill_imu(Frame& frame) {
  frame.imu = sized<ImuSample>(config_.n_imu);
  for (ImuSample& sample : frame.imu) {
    sample.acc[0] = noise(0.05F);
    sample.acc[1] = noise(0.05F);
    sample.acc[2] = 1.0F + noise(0.02F);
    for (float& rate : sample.gyro) rate = noise(0.5F);
  }
}

}  // namespace tarsil
