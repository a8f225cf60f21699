// Column widths and texts are fixed: scripts and eyes rely on them.
#include "tarsil/cli/live_table.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <string_view>
#include <vector>

#include "tarsil/core/number_text.h"

namespace tarsil::cli {

namespace {

using detail::append_fixed;
using detail::append_integer;
using detail::append_right_aligned;

constexpr std::size_t kTimeWidth = 14;
constexpr std::size_t kRawWidth = 10;
constexpr int kRawDecimals = 4;

constexpr std::array<std::string_view, 4> kJointNames{"MCPa", "MCPf", "PIP", "DIP"};
constexpr std::array<std::string_view, 5> kFingerNames{"thumb", "index", "middl", "ring ", "pinky"};
constexpr double kDegreesPerRadian = 57.29577951308238;

/// A finger's pads begin at 6 * finger however many are shown: with fewer than 30 pads some stay hidden,
/// deliberately.
constexpr std::size_t kPadStride = 6;

constexpr std::chrono::seconds kFirstRedrawIsDue{1};
constexpr double kRedrawInterval = 1.0 / 15.0;  // seconds
constexpr int kMaxStaleWaits = 6;

// ANSI: up one line and erase it; up over a table and erase to the end of the screen.
constexpr std::string_view kEraseConnectLine = "\x1b[1A\x1b[2K";
constexpr std::string_view kEraseTable = "\x1b[8A\x1b[J";

double value_or_zero(const std::vector<float>& values, std::size_t index) {
  return index < values.size() ? static_cast<double>(values[index]) : 0.0;
}

/// How many pads of each finger are shown.
std::size_t pads_per_finger(const Frame& frame) {
  constexpr std::size_t kAllPads = kPadStride * kFingerNames.size();
  return frame.touch.size() >= kAllPads ? kPadStride : frame.touch.size() / kFingerNames.size();
}

void append_heading(std::string& out, const Frame& frame, std::int64_t frame_number) {
  out += "── frame ";
  append_integer(out, frame_number);
  out += "  t=";
  append_fixed(out, frame.t, 3);
  out += frame.stale ? "  stale=yes\n" : "  stale=no \n";
}

void append_column_names(std::string& out, std::size_t pads) {
  out += "  finger  |";
  for (const auto name : kJointNames) append_right_aligned(out, name, 8);
  out += "  (deg)  |";
  for (std::size_t k = 0; k < pads; ++k) {
    out += " pad";
    append_integer(out, static_cast<std::int64_t>(k));
  }
  out += "\n  ";
  out.append(5 * pads + 51, '-');
  out += '\n';
}

void append_finger(std::string& out, const Frame& frame, std::size_t finger, std::size_t pads) {
  out += "  ";
  out += kFingerNames[finger];
  out += " |";
  for (std::size_t j = 0; j < kJointNames.size(); ++j) {
    append_fixed(out, value_or_zero(frame.q, finger * kJointNames.size() + j) * kDegreesPerRadian, 1, 7);
    out += "°";
  }
  out += "         |";
  for (std::size_t k = 0; k < pads; ++k) {
    out += ' ';
    append_fixed(out, value_or_zero(frame.touch, finger * kPadStride + k), 2, 4);
  }
  out += '\n';
}

}  // namespace

std::string raw_heading() {
  std::string out;
  append_right_aligned(out, "t", kTimeWidth);
  for (const std::string_view name : {"q[0]", "q[1]", "touch[0]"}) append_right_aligned(out, name, kRawWidth);
  out += '\n';
  out.append(kTimeWidth + 3 * kRawWidth, '-');
  out += '\n';
  return out;
}

std::string raw_row(const Frame& frame) {
  std::string out;
  append_fixed(out, frame.t, kRawDecimals, kTimeWidth);
  append_fixed(out, value_or_zero(frame.q, 0), kRawDecimals, kRawWidth);
  append_fixed(out, value_or_zero(frame.q, 1), kRawDecimals, kRawWidth);
  append_fixed(out, value_or_zero(frame.touch, 0), kRawDecimals, kRawWidth);
  out += '\n';
  return out;
}

std::string table_text(const Frame& frame, std::int64_t frame_number) {
  const std::size_t pads = pads_per_finger(frame);
  std::string out;
  append_heading(out, frame, frame_number);
  append_column_names(out, pads);
  for (std::size_t finger = 0; finger < kFingerNames.size(); ++finger)
    append_finger(out, frame, finger, pads);
  return out;
}

LiveTable::LiveTable(std::int32_t limit, detail::SteadyTime start)
    : limit_(limit), last_redraw_(start - kFirstRedrawIsDue) {}

LiveTable::Step LiveTable::take(const Frame& frame, detail::SteadyTime now) {
  if (frames_ == 0 && frame.stale) {
    ++stale_waits_;
    return {stale_waits_ == kMaxStaleWaits ? Verdict::no_data : Verdict::go_on, ""};
  }
  ++frames_;
  // The frame that reaches the limit is deliberately not drawn.
  if (limit_ > 0 && frames_ == limit_) return {Verdict::done, ""};
  if (std::chrono::duration<double>(now - last_redraw_).count() < kRedrawInterval) return {};
  last_redraw_ = now;
  return {Verdict::go_on, redraw(frame)};
}

/// The first table replaces the line that says what is being connected to, every other one the table before
/// it.
std::string LiveTable::redraw(const Frame& frame) {
  std::string screen(drawn_ ? kEraseTable : kEraseConnectLine);
  drawn_ = true;
  screen += table_text(frame, frames_);
  return screen;
}

}  // namespace tarsil::cli
