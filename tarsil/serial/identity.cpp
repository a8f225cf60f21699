// Search for the marker, wait for the whole frame, believe it only if its check byte is right.
#include "tarsil/serial/identity.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>

#include "tarsil/serial/wire.h"

namespace tarsil::detail {

namespace {

/// The check byte is the XOR of all bytes before it.
bool check_byte_is_right(std::span<const std::uint8_t> frame) {
  const auto body = frame.first(frame.size() - 1);
  return std::accumulate(body.begin(), body.end(), std::uint8_t{0}, std::bit_xor<>()) == frame.back();
}

Identity parse(std::span<const std::uint8_t> frame) {
  const std::size_t length = frame[wire::kSerialLengthOffset];
  const auto text = frame.subspan(wire::kSerialOffset, length);
  const auto version = frame.subspan(wire::kSerialOffset + length);
  return {std::string(text.begin(), text.end()),
          std::to_string(version[wire::kFirmwareMajorAfterSerial]) + "." +
              std::to_string(version[wire::kFirmwareMinorAfterSerial])};
}

}  // namespace

std::optional<Identity> IdentityExchange::feed(std::span<const std::uint8_t> bytes) {
  buffer_.append(bytes);
  while (find_marker()) {
    if (buffer_.size() <= wire::kSerialLengthOffset) return std::nullopt;
    const std::size_t size = buffer_.bytes()[wire::kSerialLengthOffset] + wire::kIdentityFixedSize;
    if (buffer_.size() < size) return std::nullopt;
    const auto frame = buffer_.bytes().first(size);
    if (check_byte_is_right(frame)) {
      Identity identity = parse(frame);
      buffer_.clear();
      return identity;
    }
    // A marker by coincidence, or a damaged frame: the search goes on one byte further.
    buffer_.consume(1);
  }
  return std::nullopt;
}

/// Brings the next marker to the front of the buffer. Without one, the last three bytes stay: a marker may
/// straddle two reads.
bool IdentityExchange::find_marker() {
  const auto& marker = wire::kIdentityMarker;
  const auto bytes = buffer_.bytes();
  const auto found = std::search(bytes.begin(), bytes.end(), marker.begin(), marker.end());
  if (found == bytes.end()) {
    buffer_.keep_last(marker.size() - 1);
    return false;
  }
  buffer_.consume(static_cast<std::size_t>(found - bytes.begin()));
  return true;
}

}  // namespace tarsil::detail
