// Frames for the tests of recordings, and what it takes to compare them to the bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::test {

/// How many values a frame has.
struct Shape {
  std::size_t joints = 20;
  std::size_t pads = 30;
  std::size_t units = 5;
};

/// Number 42 at 1.234 s: two joints, one pad, one inertial unit.
[[nodiscard]] Frame small_frame();

/// A frame with nothing but a number and a time.
[[nodiscard]] Frame bare_frame(std::uint64_t seq, double t);

/// A frame as a worn glove sends them: other values each time, at a present-day time, 100 frames a second.
[[nodiscard]] Frame worn_frame(std::mt19937& random, std::uint64_t seq, Shape shape = {});

/// That many worn frames, numbered from 0.
[[nodiscard]] std::vector<Frame> worn_frames(std::size_t count, std::uint32_t seed, Shape shape = {});

/// Whether everything that a recording keeps of a frame is the same in both, to the bit.
[[nodiscard]] bool same_bits(const Frame& a, const Frame& b);

/// Every value of a frame with its bits, for messages.
[[nodiscard]] std::string exact_text(const Frame& frame);

/// What printf writes with so many decimals.
[[nodiscard]] std::string printed(double value, int decimals);

/// The line that the tsl format gives a frame, put together with printf.
[[nodiscard]] std::string printed_tsl_line(const Frame& frame);

/// The lines of a text, without their line feeds.
[[nodiscard]] std::vector<std::string> lines_of(std::string_view text);

/// The number behind the first `"key":` of a text, with or without a blank.
[[nodiscard]] double number_after(const std::string& text, const std::string& key);

}  // namespace tarsil::test
