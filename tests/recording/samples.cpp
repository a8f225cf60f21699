// Values that look like a glove's; their exact course does not matter, that they repeat with the seed does.
#include "tests/recording/samples.h"

#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <stdexcept>

namespace tarsil::test {

namespace {

constexpr double kSessionStart = 1700000000.0;

bool same_floats(std::span<const float> a, std::span<const float> b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i])) return false;
  }
  return true;
}

std::string bits_of(std::span<const float> values) {
  std::string text = "[";
  for (const float value : values) {
    std::array<char, 64> item;
    std::snprintf(item.data(), item.size(), "%.9g:%08x ", static_cast<double>(value),
                  std::bit_cast<std::uint32_t>(value));
    text += item.data();
  }
  return text + "]";
}

std::string printed_list(std::span<const float> values, int decimals) {
  std::string text = "[";
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ",";
    text += printed(static_cast<double>(values[i]), decimals);
  }
  return text + "]";
}

}  // namespace

Frame small_frame() {
  Frame frame;
  frame.seq = 42;
  frame.t = 1.234;
  frame.q = {0.1F, 0.2F};
  frame.touch = {0.0F};
  frame.imu = {{{0.01F, -0.02F, 9.81F}, {0.0F, 0.001F, -0.002F}}};
  return frame;
}

Frame bare_frame(std::uint64_t seq, double t) {
  Frame frame;
  frame.seq = seq;
  frame.t = t;
  return frame;
}

Frame worn_frame(std::mt19937& random, std::uint64_t seq, Shape shape) {
  std::uniform_real_distribution<float> angle(-0.5F, 1.7F);
  std::uniform_real_distribution<float> pressure(0.0F, 1.0F);
  std::uniform_real_distribution<float> acceleration(-4.0F, 4.0F);
  std::uniform_real_distribution<float> rate(-2000.0F, 2000.0F);
  Frame frame = bare_frame(seq, kSessionStart + 0.01 * static_cast<double>(seq));
  frame.stale = random() % 16 == 0;
  for (std::size_t i = 0; i < shape.joints; ++i) frame.q.push_back(angle(random));
  for (std::size_t i = 0; i < shape.pads; ++i) frame.touch.push_back(pressure(random));
  frame.imu.resize(shape.units);
  for (ImuSample& sample : frame.imu) {
    for (float& value : sample.acc) value = acceleration(random);
    for (float& value : sample.gyro) value = rate(random);
  }
  return frame;
}

std::vector<Frame> worn_frames(std::size_t count, std::uint32_t seed, Shape shape) {
  std::mt19937 random(seed);
  std::vector<Frame> frames;
  for (std::size_t i = 0; i < count; ++i) frames.push_back(worn_frame(random, i, shape));
  return frames;
}

bool same_bits(const Frame& a, const Frame& b) {
  if (a.seq != b.seq || a.stale != b.stale || a.imu.size() != b.imu.size()) return false;
  if (std::bit_cast<std::uint64_t>(a.t) != std::bit_cast<std::uint64_t>(b.t)) return false;
  if (a.status_lo != b.status_lo || a.status_hi != b.status_hi) return false;
  for (std::size_t i = 0; i < a.imu.size(); ++i) {
    if (!same_floats(a.imu[i].acc, b.imu[i].acc) || !same_floats(a.imu[i].gyro, b.imu[i].gyro)) return false;
  }
  return same_floats(a.q, b.q) && same_floats(a.touch, b.touch);
}

std::string exact_text(const Frame& frame) {
  std::array<char, 96> item;
  std::snprintf(item.data(), item.size(), "seq %llu t %.17g:%016llx stale %d",
                static_cast<unsigned long long>(frame.seq), frame.t,
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(frame.t)), frame.stale ? 1 : 0);
  std::string text = item.data();
  text += "\n q " + bits_of(frame.q) + "\n touch " + bits_of(frame.touch);
  for (const ImuSample& sample : frame.imu) {
    text += "\n acc " + bits_of(sample.acc) + " gyro " + bits_of(sample.gyro);
  }
  return text;
}

std::string printed(double value, int decimals) {
  std::array<char, 512> text;
  const int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string printed_tsl_line(const Frame& frame) {
  std::string text = "{\"type\":\"frame\",\"seq\":" + std::to_string(frame.seq);
  text += ",\"t\":" + printed(frame.t, 6);
  text += ",\"q\":" + printed_list(frame.q, 6) + ",\"touch\":" + printed_list(frame.touch, 6) + ",\"imu\":[";
  for (std::size_t i = 0; i < frame.imu.size(); ++i) {
    if (i > 0) text += ",";
    text += "{\"acc\":" + printed_list(frame.imu[i].acc, 3);
    text += ",\"gyro\":" + printed_list(frame.imu[i].gyro, 3) + "}";
  }
  return text + "],\"stale\":" + (frame.stale ? "true" : "false") + "}\n";
}

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

double number_after(const std::string& text, const std::string& key) {
  const std::size_t found = text.find("\"" + key + "\":");
  if (found == std::string::npos) throw std::runtime_error("no " + key + " in " + text);
  return std::strtod(text.c_str() + found + key.size() + 3, nullptr);
}

}  // namespace tarsil::test
