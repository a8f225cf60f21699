// What a virtual glove will send, known before it does: its faults and its motion come from its seed alone,
// so the state machine inside it can be run ahead, without a line and without waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/virtual_glove/account.h"
#include "tools/virtual_glove/config.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::test {

/// One cycle of a transcript. Its bytes are [begin, end) of the stream; none if it was lost on purpose.
struct SentCycle {
  std::size_t begin = 0;
  std::size_t end = 0;
  bool lost = false;
  /// The packet does not carry all of the cycle.
  bool damaged = false;
};

/// Everything from the start command on.
struct Transcript {
  virtual_glove::Bytes stream;
  std::vector<SentCycle> cycles;
  /// Of this stream alone: hosts and commands are not in it, bytes and packets are.
  virtual_glove::Account account;

  /// Cycles lost before the first packet and behind the last one: no host can know of them.
  [[nodiscard]] std::uint64_t lost_at_the_ends() const;
};

/// What a glove that is started once sends. It must have a limited number of frames, and no fault that
/// strikes at a certain time.
[[nodiscard]] Transcript transcript_of(const virtual_glove::GloveConfig& glove);

/// The words that start the program with these settings: rate, seed, number of frames, first counter and
/// faults.
[[nodiscard]] std::vector<std::string> glove_arguments(const virtual_glove::GloveConfig& glove);

}  // namespace tarsil::test
