// Parsing leaves a few kilobytes at the most, so moving the rest to the front is cheap.
#include "tarsil/serial/receive_buffer.h"

namespace tarsil::detail {

ReceiveBuffer::ReceiveBuffer() {
  bytes_.reserve(kLimit);
}

void ReceiveBuffer::append(std::span<const std::uint8_t> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void ReceiveBuffer::consume(std::size_t count) {
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(count));
}

void ReceiveBuffer::keep_last(std::size_t count) {
  if (size() > count) consume(size() - count);
}

void ReceiveBuffer::cut() {
  if (size() > kLimit) keep_last(kKept);
}

}  // namespace tarsil::detail
