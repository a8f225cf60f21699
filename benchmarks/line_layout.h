// The layout of a tsl frame line, once for all renderers that are compared: they differ in how they turn
// numbers into text and where they put it, and in nothing else.
#pragma once

#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::benchmarks {

/// Writes the line of a frame to `sink`, which takes text, integers and numbers with a count of decimals.
template <typename Sink>
void write_line(Sink& sink, const Frame& frame) {
  const auto array = [&sink](const auto& values, int decimals) {
    sink.text("[");
    bool first = true;
    for (const float value : values) {
      if (!first) sink.text(",");
      first = false;
      sink.fixed(static_cast<double>(value), decimals);
    }
    sink.text("]");
  };
  sink.text(R"({"type":"frame","seq":)");
  sink.integer(frame.seq);
  sink.text(R"(,"t":)");
  sink.fixed(frame.t, 6);
  sink.text(R"(,"q":)");
  array(frame.q, 6);
  sink.text(R"(,"touch":)");
  array(frame.touch, 6);
  sink.text(R"(,"imu":[)");
  bool first = true;
  for (const ImuSample& sample : frame.imu) {
    if (!first) sink.text(",");
    first = false;
    sink.text(R"({"acc":)");
    array(sample.acc, 3);
    sink.text(R"(,"gyro":)");
    array(sample.gyro, 3);
    sink.text("}");
  }
  sink.text(R"(],"stale":)");
  if (frame.stale) {
    sink.text("true}\n");
  } else {
    sink.text("false}\n");
  }
}

/// A place in memory that grows at its end, with room for any line of an ordinary frame.
class FlatText {
 public:
  /// The length of a literal is known to the compiler, so that copying it takes an instruction or two.
  template <std::size_t kSize>
  void text(const char (&literal)[kSize]) {
    __builtin_memcpy(end_, literal, kSize - 1);
    end_ += kSize - 1;
  }

  void clear() { end_ = buffer_; }
  [[nodiscard]] std::string_view view() const { return {buffer_, static_cast<std::size_t>(end_ - buffer_)}; }

 protected:
  /// Room behind the end; no number here comes near it.
  static constexpr std::size_t kRoom = 400;

  char buffer_[16384];  // NOLINT: left as it is until written
  char* end_ = buffer_;
};

}  // namespace tarsil::benchmarks
