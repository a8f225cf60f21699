// What a virtual glove has done so far, so that a person or a test can compare it with what the host says it
// has seen.
#pragma once

#include <cstdint>
#include <ostream>

#include "tools/virtual_glove/faults.h"

namespace tarsil::virtual_glove {

/// Counts over the whole life of the glove, across hosts and replugs, and what it is doing now. Every sampled
/// cycle ends in one of three ways: `cycles` equals `packets` + `cycles_lost` + `abandoned`, plus one while a
/// packet is being written.
struct Account {
  std::uint64_t packets = 0;      ///< sensor packets handed to the line in full, damaged ones included
  std::uint64_t cycles = 0;       ///< cycles sampled
  std::uint64_t cycles_lost = 0;  ///< cycles of which nothing was sent, on purpose or for want of room
  std::uint64_t bytes = 0;        ///< bytes handed to the line, of whatever kind
  std::uint64_t hosts = 0;        ///< times a host opened the line
  std::uint64_t replugs = 0;      ///< times the glove came back
  std::uint64_t damaged = 0;      ///< of `packets`: those that a fault changed or cut
  std::uint64_t abandoned = 0;  ///< packets dropped half-way because the host left or the glove was unplugged
  std::uint64_t identities = 0;        ///< identity frames begun, asked for or not
  std::uint64_t resets = 0;            ///< reset commands obeyed
  std::uint64_t starts = 0;            ///< start commands obeyed
  std::uint64_t commands_ignored = 0;  ///< other bytes, and whatever a hung glove was told
  FaultCounts faults{};                ///< how often each kind of fault has struck

  std::uint64_t hosts_open = 0;  ///< descriptors that hosts hold open now
  bool plugged = false;
  bool streaming = false;  ///< started, and not reset or left since
  bool hung = false;       ///< by a fault, until replugged
  bool line_full = false;  ///< waiting for the host to read
  bool exhausted = false;  ///< the last of a limited number of cycles has been sampled
  bool finished = false;   ///< exhausted, and the host has closed the line
};

/// Writes the counts, one `name value` per line; names are stable, faults appear as `fault.garbage 12`.
void write_account(std::ostream& out, const Account& account);

}  // namespace tarsil::virtual_glove
