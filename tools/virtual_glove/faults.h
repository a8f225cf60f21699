// What goes wrong on the way from the glove to the host, on purpose and repeatably. The plan decides per
// cycle and works on bytes alone: it neither writes nor waits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/virtual_glove/packet.h"
#include "tools/virtual_glove/random.h"

namespace tarsil::virtual_glove {

enum class FaultKind {
  /// The cycle counter advances over one to three cycles of which nothing is sent.
  lost_cycles,
  /// A run of 1 to 100 bytes of the packet is missing. The host cannot know, and takes that many bytes of
  /// what follows for the rest of the packet.
  lost_bytes,
  /// One to three bits anywhere in the packet are inverted. A hit on the length or on the magic costs the
  /// host what it skips until it has found the next packet.
  flipped_bits,
  /// 1 to 600 random bytes come before the packet. None of them is 0x01, so that they contain no packet
  /// magic by accident and the host is back in step with the packet that follows.
  garbage,
  /// What the cycle sends is written in two to five pieces, cut at random places. Between them the glove
  /// waits until the host has read what there is, at most a few milliseconds. Nothing is lost.
  splits,
  /// After the cycle's packet the glove pauses: for the duration it samples nothing, sends nothing and
  /// leaves commands unanswered until the pause is over. The cycle counter does not advance meanwhile.
  silence,
  /// After the cycle's packet the glove stops for good: it sends nothing and answers no command until it is
  /// replugged.
  hang,
  /// The payload ends inside its last block; its declared length is the length sent. The blocks before are
  /// whole.
  truncated_blocks,
  /// A whole packet of another type (2 to 255) comes before the real one, with any counter and a payload
  /// without a byte 0x01.
  unknown_types,
  /// The packet ends with one more block, of a kind that hosts do not know; the block count includes it.
  /// Known blocks come before it and are whole. Does not strike a packet that is truncated in the same
  /// cycle.
  unknown_blocks,
};

constexpr std::size_t kFaultKinds = 10;

/// The kinds in order, by the names that the command line and the account use.
constexpr std::array<std::string_view, kFaultKinds> kFaultNames = {
    "lost-cycles", "lost-bytes", "flipped-bits",     "garbage",       "splits",
    "silence",     "hang",       "truncated-blocks", "unknown-types", "unknown-blocks"};

/// The kind of that name, or nothing.
std::optional<FaultKind> fault_kind_named(std::string_view name);

/// How often each kind has struck, by the value of the kind.
using FaultCounts = std::array<std::uint64_t, kFaultKinds>;

/// One entry of the plan: either by chance in every cycle, or once.
struct Fault {
  FaultKind kind = FaultKind::garbage;
  double rate = 0;              ///< probability per cycle, above 0 up to 1; 0 means once, at `at_seconds`
  double at_seconds = 0;        ///< strikes the first cycle that is this long after streaming began
  double duration_seconds = 1;  ///< silence only
};

/// What one cycle would send if nothing went wrong; it has at least one block.
struct Cycle {
  std::uint8_t side_code = kRightSideCode;
  std::uint16_t counter = 0;
  std::vector<Bytes> blocks;
};

/// What becomes of one cycle.
struct CycleFate {
  std::vector<Bytes> pieces;  ///< to be written in order, with a pause between two; empty for a lost cycle
  bool lost = false;          ///< nothing is sent although the counter advances
  bool damaged = false;  ///< the packet that is sent does not carry all of the cycle (lost or flipped or cut)
  double silence_seconds = 0;  ///< pause behind this cycle
  bool hang = false;           ///< nothing more behind this cycle
  FaultCounts struck{};        ///< 1 for every kind that struck
};

/// Decides cycle by cycle. Equal faults, seeds and calls give equal fates; a fault that strikes once does so
/// once in the life of the plan.
class FaultPlan {
 public:
  FaultPlan(const std::vector<Fault>& faults, std::uint64_t seed);

  /// The fate of the next cycle, `seconds` after streaming began.
  CycleFate fate(const Cycle& cycle, double seconds);

 private:
  struct Entry {
    Fault fault;
    bool spent = false;
  };

  const Fault* strikes(FaultKind kind, double seconds, CycleFate& fate);
  bool loses_cycle(double seconds, CycleFate& fate);
  Bytes packet(const Cycle& cycle, double seconds, CycleFate& fate);

  std::vector<Entry> entries_;
  Random random_;
  std::uint64_t cycles_to_lose_ = 0;
};

}  // namespace tarsil::virtual_glove
