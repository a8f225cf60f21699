// The bytes that a port gave and nobody has consumed yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarsil::detail {

/// Grows at the back with what is read, shrinks at the front with what is parsed. Room for `kLimit` bytes is
/// reserved at once, so that reading allocates nothing.
class ReceiveBuffer {
 public:
  /// More than this many bytes are cut...
  static constexpr std::size_t kLimit = 16384;
  /// ...to the newest this many: half the limit, so that a stream without any packet boundary cannot grow the
  /// buffer without bound and is not cut at every read either.
  static constexpr std::size_t kKept = 8192;

  ReceiveBuffer();

  void append(std::span<const std::uint8_t> bytes);
  /// Drops the first `count` bytes.
  void consume(std::size_t count);
  /// Drops all but the last `count` bytes.
  void keep_last(std::size_t count);
  /// Applies the limit.
  void cut();
  void clear() { bytes_.clear(); }

  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tarsil::detail
