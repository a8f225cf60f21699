// Gets one transmission onto the line, however slowly the host reads and however many pieces it comes in.
#pragma once

#include <cstddef>
#include <optional>

#include "tools/virtual_glove/firmware.h"
#include "tools/virtual_glove/pty.h"

namespace tarsil::virtual_glove {

/// Holds the transmission that is being written. Not thread-safe.
class Transmitter {
 public:
  /// Takes the next transmission; the previous one must be over.
  void begin(Transmission transmission);

  /// There is a transmission that has not been written in full.
  bool busy() const { return piece_ < transmission_.pieces.size(); }

  /// The transmission taken last.
  const Transmission& transmission() const { return transmission_; }

  /// Forgets the rest of the transmission.
  void drop() { transmission_.pieces.clear(); }

  /// Writes what the line takes now and returns how many bytes that was.
  std::size_t advance(Pty& pty, TimePoint now);

  /// The line is full: wait for room before the next `advance`.
  bool needs_room() const { return busy() && needs_room_; }

  /// The pause between two pieces lasts until then at least.
  std::optional<TimePoint> paused_until() const { return busy() ? paused_until_ : std::nullopt; }

 private:
  bool still_paused(const Pty& pty, TimePoint now);

  Transmission transmission_;
  std::size_t piece_ = 0;
  std::size_t offset_ = 0;
  bool needs_room_ = false;
  std::optional<TimePoint> paused_until_;
  int pauses_ = 0;
};

}  // namespace tarsil::virtual_glove
