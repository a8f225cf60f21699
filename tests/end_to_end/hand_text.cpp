// Raw values are hundredths; angles become radians in single precision, as the glove's users get them.
#include "tests/end_to_end/hand_text.h"

#include <array>
#include <cstdio>

namespace tarsil::test {

namespace {

using virtual_glove::HandSample;
using virtual_glove::kFingers;
using virtual_glove::kJointsPerFinger;
using virtual_glove::kPadsPerFinger;

constexpr double kDegreesPerRadian = 57.29577951308238;

double hundredths(std::int16_t raw) {
  return static_cast<double>(static_cast<float>(raw) / 100.0F);
}

double radians(std::int16_t raw) {
  const float degrees = static_cast<float>(raw) / 100.0F;
  return static_cast<double>(degrees * 0.017453292F);
}

void append(std::string& text, const char* format, double value) {
  std::array<char, 64> buffer{};
  const int size = std::snprintf(buffer.data(), buffer.size(), format, value);
  text.append(buffer.data(), static_cast<std::size_t>(size));
}

std::string row(const HandSample& hand) {
  std::string text;
  append(text, "%10.4f", radians(hand.joints[0]));
  append(text, "%10.4f", radians(hand.joints[1]));
  append(text, "%10.4f", hundredths(hand.pads[0]));
  return text;
}

std::string fingers(const HandSample& hand) {
  constexpr std::array<const char*, kFingers> kLabels{"  thumb |", "  index |", "  middl |", "  ring  |",
                                                      "  pinky |"};
  std::string text;
  for (std::size_t finger = 0; finger < kFingers; ++finger) {
    text += kLabels[finger];
    for (std::size_t joint = 0; joint < kJointsPerFinger; ++joint) {
      append(text, "%7.1f°", radians(hand.joints[finger * kJointsPerFinger + joint]) * kDegreesPerRadian);
    }
    text += "         |";
    for (std::size_t pad = 0; pad < kPadsPerFinger; ++pad) {
      append(text, " %4.2f", hundredths(hand.pads[finger * kPadsPerFinger + pad]));
    }
    text += '\n';
  }
  return text;
}

std::string json(const HandSample& hand) {
  std::string text = "\"q\":[";
  const char* separator = "";
  for (const std::int16_t joint : hand.joints) {
    text += separator;
    append(text, "%.6f", radians(joint));
    separator = ",";
  }
  text += "],\"touch\":[";
  separator = "";
  for (const std::int16_t pad : hand.pads) {
    text += separator;
    append(text, "%.6f", hundredths(pad));
    separator = ",";
  }
  text += "],\"imu\":[";
  separator = "{\"acc\":[";
  for (const auto& unit : hand.imu) {
    text += separator;
    for (std::size_t axis = 0; axis < unit.size(); ++axis) {
      if (axis > 0) text += axis == 3 ? "],\"gyro\":[" : ",";
      append(text, "%.3f", hundredths(unit[axis]));
    }
    text += "]}";
    separator = ",{\"acc\":[";
  }
  return text + "]";
}

std::string csv(const HandSample& hand) {
  std::string text;
  for (const std::int16_t joint : hand.joints) append(text, ",%.6f", radians(joint));
  for (const std::int16_t pad : hand.pads) append(text, ",%.6f", hundredths(pad));
  for (const auto& unit : hand.imu) {
    for (const std::int16_t axis : unit) append(text, ",%.6f", hundredths(axis));
  }
  return text;
}

}  // namespace

std::string text_of(HandStyle style, const virtual_glove::HandSample& hand) {
  switch (style) {
    case HandStyle::row:
      return row(hand);
    case HandStyle::fingers:
      return fingers(hand);
    case HandStyle::json:
      return json(hand);
    case HandStyle::csv:
      return csv(hand);
  }
  return {};
}

HandText::HandText(const virtual_glove::GloveConfig& glove, HandStyle style)
    : motion_(glove.seed, glove.hz, glove.defects), style_(style) {}

const std::string& HandText::at(std::uint64_t cycle) {
  while (texts_.size() <= cycle) texts_.push_back(text_of(style_, motion_.at(texts_.size())));
  return texts_[cycle];
}

std::optional<std::uint64_t> HandText::find(std::string_view text, std::uint64_t begin) {
  for (std::uint64_t cycle = begin; cycle < kLastCycle; ++cycle) {
    if (at(cycle) == text) return cycle;
  }
  return std::nullopt;
}

}  // namespace tarsil::test
