// The faults themselves, one small function each, and the order in which a cycle meets them.
#include "tools/virtual_glove/faults.h"

#include <algorithm>
#include <set>
#include <utility>

namespace tarsil::virtual_glove {
namespace {

constexpr std::uint64_t kMostCyclesLost = 3;
constexpr std::uint64_t kMostBytesLost = 100;
constexpr std::uint64_t kMostBitsFlipped = 3;
constexpr std::uint64_t kMostGarbage = 600;
constexpr std::uint64_t kMostPieces = 5;
constexpr std::uint64_t kMostForeignPayload = 200;
constexpr std::uint64_t kMostForeignContent = 40;
constexpr std::uint8_t kFirstForeignType = 2;
constexpr std::uint64_t kLastSegment = kFingers - 1;

void append(Bytes& out, const Bytes& bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

// Random bytes without the first byte of the packet magic, hence without the magic.
Bytes noise(Random& random, std::uint64_t size) {
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) {
    const std::uint8_t drawn = random.byte(1);
    byte = drawn == kPacketMagic0 ? std::uint8_t{0} : drawn;
  }
  return bytes;
}

void lose_bytes(Random& random, Bytes& packet) {
  const std::uint64_t count = random.between(1, std::min<std::uint64_t>(kMostBytesLost, packet.size() - 1));
  const auto first = static_cast<std::ptrdiff_t>(random.between(0, packet.size() - count));
  packet.erase(packet.begin() + first, packet.begin() + first + static_cast<std::ptrdiff_t>(count));
}

void flip_bits(Random& random, Bytes& packet) {
  std::set<std::uint64_t> positions;
  const std::uint64_t count = random.between(1, kMostBitsFlipped);
  while (positions.size() < count) positions.insert(random.between(0, packet.size() * 8 - 1));
  for (const std::uint64_t position : positions) {
    packet[position / 8] = static_cast<std::uint8_t>(packet[position / 8] ^ (1U << (position % 8)));
  }
}

Bytes foreign_packet(Random& random, std::uint8_t side_code) {
  const std::uint8_t type = random.byte(kFirstForeignType);
  const auto counter = static_cast<std::uint16_t>(random.between(0, 0xFFFF));
  return encode_packet(side_code, type, counter, noise(random, random.between(0, kMostForeignPayload)));
}

Bytes foreign_block(Random& random) {
  std::uint8_t kind = random.byte();
  while (kind == kJointBlockKind || kind == kInertialBlockKind || kind == kPressureBlockKind)
    kind = random.byte();
  const auto segment = static_cast<unsigned>(random.between(0, kLastSegment));
  return other_block(kind, segment, noise(random, random.between(0, kMostForeignContent)));
}

// Cuts the payload so that at least one byte of the last block stays and at least one is missing.
void truncate_last_block(Random& random, Bytes& payload, const Bytes& last_block) {
  payload.resize(payload.size() - random.between(1, last_block.size() - 1));
}

std::vector<Bytes> split(Random& random, const Bytes& bytes) {
  std::set<std::uint64_t> cuts;
  const std::uint64_t count = random.between(1, kMostPieces - 1);
  while (cuts.size() < count) cuts.insert(random.between(1, bytes.size() - 1));
  cuts.insert(bytes.size());
  std::vector<Bytes> pieces;
  std::uint64_t begin = 0;
  for (const std::uint64_t end : cuts) {
    pieces.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                        bytes.begin() + static_cast<std::ptrdiff_t>(end));
    begin = end;
  }
  return pieces;
}

}  // namespace

std::optional<FaultKind> fault_kind_named(std::string_view name) {
  const auto found = std::find(kFaultNames.begin(), kFaultNames.end(), name);
  if (found == kFaultNames.end()) return std::nullopt;
  return static_cast<FaultKind>(found - kFaultNames.begin());
}

FaultPlan::FaultPlan(const std::vector<Fault>& faults, std::uint64_t seed) : random_(seed) {
  for (const Fault& fault : faults) entries_.push_back({fault});
}

// The first entry of that kind that strikes now, or null. Entries are asked only where the fault could take
// effect, so that a fault that strikes once is not spent on a cycle that is lost anyway.
const Fault* FaultPlan::strikes(FaultKind kind, double seconds, CycleFate& fate) {
  for (Entry& entry : entries_) {
    if (entry.fault.kind != kind || entry.spent) continue;
    const bool by_chance = entry.fault.rate > 0;
    const bool hit = by_chance ? random_.uniform() < entry.fault.rate : seconds >= entry.fault.at_seconds;
    if (!hit) continue;
    entry.spent = !by_chance;
    fate.struck[static_cast<std::size_t>(kind)] = 1;
    return &entry.fault;
  }
  return nullptr;
}

bool FaultPlan::loses_cycle(double seconds, CycleFate& fate) {
  if (cycles_to_lose_ == 0 && strikes(FaultKind::lost_cycles, seconds, fate)) {
    cycles_to_lose_ = random_.between(1, kMostCyclesLost);
  }
  if (cycles_to_lose_ == 0) return false;
  --cycles_to_lose_;
  return true;
}

Bytes FaultPlan::packet(const Cycle& cycle, double seconds, CycleFate& fate) {
  Bytes payload = encode_payload(cycle.blocks);
  if (strikes(FaultKind::truncated_blocks, seconds, fate)) {
    truncate_last_block(random_, payload, cycle.blocks.back());
    fate.damaged = true;
  } else if (strikes(FaultKind::unknown_blocks, seconds, fate)) {
    std::vector<Bytes> blocks = cycle.blocks;
    blocks.push_back(foreign_block(random_));
    payload = encode_payload(blocks);
  }
  Bytes packet = encode_packet(cycle.side_code, kSensorPacketType, cycle.counter, payload);
  if (strikes(FaultKind::flipped_bits, seconds, fate)) {
    flip_bits(random_, packet);
    fate.damaged = true;
  }
  if (strikes(FaultKind::lost_bytes, seconds, fate)) {
    lose_bytes(random_, packet);
    fate.damaged = true;
  }
  return packet;
}

CycleFate FaultPlan::fate(const Cycle& cycle, double seconds) {
  CycleFate fate;
  if (const Fault* silence = strikes(FaultKind::silence, seconds, fate)) {
    fate.silence_seconds = silence->duration_seconds;
  }
  fate.hang = strikes(FaultKind::hang, seconds, fate) != nullptr;
  fate.lost = loses_cycle(seconds, fate);
  if (fate.lost) return fate;

  Bytes bytes;
  if (strikes(FaultKind::garbage, seconds, fate))
    append(bytes, noise(random_, random_.between(1, kMostGarbage)));
  if (strikes(FaultKind::unknown_types, seconds, fate))
    append(bytes, foreign_packet(random_, cycle.side_code));
  append(bytes, packet(cycle, seconds, fate));
  if (strikes(FaultKind::splits, seconds, fate)) {
    fate.pieces = split(random_, bytes);
  } else {
    fate.pieces.push_back(std::move(bytes));
  }
  return fate;
}

}  // namespace tarsil::virtual_glove
