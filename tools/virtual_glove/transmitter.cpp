// Writing in pieces, without waiting.
#include "tools/virtual_glove/transmitter.h"

#include <chrono>
#include <utility>

namespace tarsil::virtual_glove {
namespace {

// Between two pieces the glove looks this often, at most so many times, whether the host has read the first.
constexpr auto kPause = std::chrono::milliseconds(1);
constexpr int kMostPauses = 4;

}  // namespace

void Transmitter::begin(Transmission transmission) {
  transmission_ = std::move(transmission);
  piece_ = 0;
  offset_ = 0;
  needs_room_ = false;
  paused_until_.reset();
}

bool Transmitter::still_paused(const Pty& pty, TimePoint now) {
  if (!paused_until_) return false;
  if (now < *paused_until_) return true;
  if (pauses_ < kMostPauses && pty.unread() > 0) {
    ++pauses_;
    paused_until_ = now + kPause;
    return true;
  }
  paused_until_.reset();
  return false;
}

std::size_t Transmitter::advance(Pty& pty, TimePoint now) {
  if (!busy() || still_paused(pty, now)) return 0;
  const Bytes& piece = transmission_.pieces[piece_];
  const std::size_t written = pty.write_some(ByteView(piece).subspan(offset_));
  offset_ += written;
  needs_room_ = offset_ < piece.size();
  if (!needs_room_) {
    ++piece_;
    offset_ = 0;
    pauses_ = 1;
    if (busy()) paused_until_ = now + kPause;
  }
  return written;
}

}  // namespace tarsil::virtual_glove
