// What runs inside the glove: how it answers commands and when it sends what. A state machine that is told
// the time and the events of its line and hands out bytes; it neither reads nor writes nor waits, so that it
// can be tested without a line.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/virtual_glove/account.h"
#include "tools/virtual_glove/config.h"
#include "tools/virtual_glove/faults.h"
#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::virtual_glove {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// `seconds`, which must not exceed kLongestSeconds, on the clock.
Clock::duration clock_duration(double seconds);

/// Something to be written.
struct Transmission {
  std::vector<Bytes> pieces = {};  ///< in order, with a pause between two; may be empty
  bool is_packet = false;          ///< carries a sensor packet
  bool damaged = false;            ///< a sensor packet that a fault changed or cut
};

/// The protocol from the glove's side.
///
/// - 0xFF stops streaming and is answered with the identity frame, at any time.
/// - 0xA5 begins streaming. Cycle 0 is sent at once; cycle k carries HandMotion::at(k) and the counter
///   (first_counter + k) modulo 65536. Each start command begins again at cycle 0, also while streaming.
/// - Other bytes are ignored.
/// - A glove that announces itself repeats its identity while a host holds the line, until it is started.
/// - When the host leaves, the glove waits for the next one to reset or start it.
/// - After the last of a limited number of cycles (counted over all starts) it sends no more packets.
///
/// Cycles are due at fixed times. One that is handed out late is followed by the ones owed, but a lag of more
/// than a second is written off: the schedule then begins anew and no cycle is lost for it.
///
/// Not thread-safe. Counts go to the account, which must outlive the firmware.
class Firmware {
 public:
  Firmware(const GloveConfig& config, Account& account);

  /// The glove gets power, for the first time or again: whatever it was doing is over.
  void power_on();

  void host_opened(TimePoint now);
  void host_closed();

  /// A byte from the host.
  void command(std::uint8_t byte, TimePoint now);

  /// When it next has something to say; nothing if only a command can change its silence.
  std::optional<TimePoint> next_due() const;

  /// What is due. To be called once the previous transmission has been written, and not before `next_due`.
  /// Empty if the cycle is lost on purpose.
  Transmission transmit(TimePoint now);

  /// Loses the cycles that are due, as a device without a buffer does while the line takes nothing.
  void lose_due(TimePoint now);

  /// When streaming last began; nothing before the first start since power came on.
  std::optional<TimePoint> streaming_since() const { return streaming_since_; }

 private:
  void obey(std::uint8_t byte, TimePoint now);
  void obey_backlog(TimePoint now);
  void start(TimePoint now);
  bool streams() const { return account_.streaming && !account_.exhausted; }
  bool announces() const;
  std::optional<TimePoint> next_wish() const;
  Transmission identity();
  Transmission sample(TimePoint now);

  const bool announce_;
  const std::uint64_t frames_;
  const std::uint8_t side_code_;
  const std::uint16_t first_counter_;
  const Clock::duration period_;
  const Bytes identity_frame_;
  const HandMotion motion_;
  FaultPlan plan_;
  Account& account_;

  std::uint64_t identities_owed_ = 0;
  std::uint64_t next_cycle_ = 0;
  TimePoint next_cycle_due_{};
  TimePoint next_announcement_{};
  TimePoint silent_until_{};
  std::vector<std::uint8_t> backlog_;  // commands that arrived during a silence
  std::optional<TimePoint> streaming_since_;
};

}  // namespace tarsil::virtual_glove
