// What a fuzz target makes of the bytes it is given: pieces from the front, and a verdict.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

namespace tarsil::fuzz {

using Bytes = std::span<const std::uint8_t>;

/// Hands out the input from its front. Behind its end everything is zero or empty, so every input means
/// something.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

  [[nodiscard]] bool empty() const { return left_.empty(); }

  /// At most `count` bytes.
  Bytes take(std::size_t count) {
    const Bytes taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }

  /// Whatever bits stand there, as a number of this type.
  template <typename Number>
  Number number() {
    const Bytes bytes = take(sizeof(Number));
    Number value{};
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }

  std::uint8_t byte() { return number<std::uint8_t>(); }

  /// A text of at most 255 bytes, its length before it.
  std::string text() {
    const Bytes bytes = take(byte());
    return {bytes.begin(), bytes.end()};
  }

  Bytes rest() { return take(left_.size()); }

 private:
  Bytes left_;
};

/// Ends the program, and so makes the input a find, unless `condition` holds.
inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
  std::abort();
}

}  // namespace tarsil::fuzz
