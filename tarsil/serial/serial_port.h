// One open serial line: the thin shell around the descriptor.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tarsil::detail {

/// A serial line, open and set up for a glove: raw, eight bits, exclusive to this program. Closed with the
/// object. Used by one thread at a time.
class SerialPort {
 public:
  /// A read comes back after this long even if nothing has arrived.
  static constexpr std::chrono::milliseconds kReadTimeout{100};

  /// Opens `path` and sets the line to `baud` bit/s, or to 115200 if that is none of the rates below.
  /// Rates: 9600, 19200, 38400, 57600, 230400, 460800, 921600, 1000000, 1500000, 2000000.
  /// Nothing if the port cannot be opened or is no terminal.
  [[nodiscard]] static std::optional<SerialPort> open(const std::string& path, std::int32_t baud);

  SerialPort(SerialPort&& other) noexcept;
  SerialPort& operator=(SerialPort&&) = delete;
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;
  ~SerialPort();

  /// Reads what has arrived, up to the size of `space`; waits for it at most kReadTimeout. Returns how many
  /// bytes it was, 0 for none, and nothing if reading failed. A port that was unplugged gives 0 at once, for
  /// ever: the caller waits out the rest of kReadTimeout then.
  [[nodiscard]] std::optional<std::size_t> read(std::span<std::uint8_t> space);

  /// Writes one byte. That a glove has got it shows in its answer alone, so there is nothing to return.
  void write(std::uint8_t byte);

 private:
  [[nodiscard]] bool hung_up() const;

  explicit SerialPort(int descriptor) : descriptor_(descriptor) {}

  int descriptor_;
};

}  // namespace tarsil::detail
