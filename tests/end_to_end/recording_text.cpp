// Lines are read strictly, key by key: a reader that forgave would not notice what it forgives.
#include "tests/end_to_end/recording_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>

namespace tarsil::test {

namespace {

bool take(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

std::string take_digits(std::string_view& text) {
  std::size_t size = 0;
  while (size < text.size() && std::isdigit(static_cast<unsigned char>(text[size])) != 0) ++size;
  const std::string digits(text.substr(0, size));
  text.remove_prefix(size);
  return digits;
}

bool take_number(std::string_view& text, std::uint64_t& number) {
  const std::string digits = take_digits(text);
  if (digits.empty()) return false;
  number = std::stoull(digits);
  return true;
}

/// Seconds with exactly six decimals.
bool take_time(std::string_view& text, double& t) {
  const std::string whole = take_digits(text);
  if (whole.empty() || !take(text, ".")) return false;
  const std::string decimals = take_digits(text);
  t = std::stod(whole) + std::stod("0." + decimals);
  return decimals.size() == 6;
}

/// The members of a frame object behind its opening brace, the closing one included.
bool take_members(std::string_view& text, RecordedFrame& frame) {
  if (!take(text, "\"seq\":") || !take_number(text, frame.seq)) return false;
  if (!take(text, ",\"t\":") || !take_time(text, frame.t) || !take(text, ",")) return false;
  const std::size_t end = text.find(",\"stale\":");
  if (end == std::string_view::npos) return false;
  frame.values = text.substr(0, end);
  text.remove_prefix(end);
  frame.stale = take(text, ",\"stale\":true}");
  return frame.stale || take(text, ",\"stale\":false}");
}

bool take_row(std::string_view& text, RecordedFrame& frame) {
  if (!take_number(text, frame.seq) || !take(text, ",") || !take_time(text, frame.t)) return false;
  frame.stale = take(text, ",1");
  if (!frame.stale && !take(text, ",0")) return false;
  frame.values = text;
  text = {};
  return true;
}

bool take_object(std::string_view& text, RecordedFrame& frame) {
  return take(text, "{\"type\":\"frame\",") && take_members(text, frame);
}

/// Whole lines, each read by `take_frame`; the first is the head.
Recording read_lines(std::string_view text, bool (*take_frame)(std::string_view&, RecordedFrame&)) {
  Recording recording;
  bool first = true;
  for (std::size_t feed = 0; (feed = text.find('\n')) != std::string_view::npos; first = false) {
    std::string_view line = text.substr(0, feed);
    text.remove_prefix(feed + 1);
    if (first) {
      recording.head = line;
      continue;
    }
    const std::string whole(line);
    RecordedFrame& frame = recording.frames.emplace_back();
    EXPECT_TRUE(take_frame(line, frame) && line.empty()) << whole;
  }
  recording.torn = text;
  return recording;
}

std::string numbered(std::string_view prefix, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += ',';
    text += prefix;
    text += std::to_string(i);
  }
  return text;
}

}  // namespace

Recording read_tsl(const std::string& text) {
  return read_lines(text, take_object);
}

Recording read_csv(const std::string& text) {
  return read_lines(text, take_row);
}

Recording read_json(const std::string& text) {
  constexpr std::string_view kFrames = "  \"frames\": [\n";
  constexpr std::string_view kTail = "  ],\n  \"markers\": [\n  ]\n}\n";
  Recording recording;
  const std::size_t begin = text.find(kFrames);
  if (begin == std::string::npos) {
    ADD_FAILURE() << "no frames in " << text.substr(0, 1000);
    return recording;
  }
  recording.head = text.substr(0, begin);
  std::string_view rest = text;
  rest.remove_prefix(begin + kFrames.size());
  bool last = rest == kTail;
  while (!last && take(rest, "    {")) {
    RecordedFrame& frame = recording.frames.emplace_back();
    EXPECT_TRUE(take_members(rest, frame));
    last = take(rest, "\n");
    EXPECT_TRUE(last || take(rest, ",\n"));
  }
  EXPECT_EQ(rest, kTail);
  return recording;
}

std::string csv_columns() {
  std::string text = "seq,t,stale" + numbered("q_", 20) + numbered("touch_", 30);
  for (int unit = 0; unit < 5; ++unit) {
    for (const char* axis : {"_ax", "_ay", "_az", "_gx", "_gy", "_gz"}) {
      text += ",imu_";
      text += std::to_string(unit);
      text += axis;
    }
  }
  return text;
}

Tally check_frames(const std::vector<RecordedFrame>& frames, HandText& hand, std::uint64_t first_cycle) {
  Tally tally;
  double last_t = 0;
  for (const RecordedFrame& frame : frames) {
    const bool first = &frame == &frames.front();
    if (frame.stale) {
      EXPECT_FALSE(first);
      EXPECT_EQ(frame.seq, tally.last_seq);
      ++tally.stale;
    } else {
      const std::uint64_t next = first ? 0 : tally.last_seq + 1;
      EXPECT_GE(frame.seq, next);
      if (first) {
        EXPECT_EQ(frame.seq, 0U);
      }
      tally.dropped += frame.seq - std::min(frame.seq, next);
      ++tally.fresh;
    }
    tally.last_seq = frame.seq;
    EXPECT_GE(frame.t, last_t);
    last_t = frame.t;
    EXPECT_EQ(frame.values, hand.at(first_cycle + frame.seq)) << "seq " << frame.seq;
    // One report says it all.
    if (testing::Test::HasFailure()) break;
  }
  return tally;
}

}  // namespace tarsil::test
