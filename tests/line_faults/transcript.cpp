// The glove's own state machine, told a time of which it is always exactly late enough.
#include "tests/line_faults/transcript.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>

#include "tools/virtual_glove/faults.h"
#include "tools/virtual_glove/firmware.h"

namespace tarsil::test {

namespace {

using virtual_glove::Bytes;
using virtual_glove::Fault;
using virtual_glove::FaultKind;
using virtual_glove::Firmware;
using virtual_glove::GloveConfig;
using virtual_glove::TimePoint;
using virtual_glove::Transmission;

void append(Transcript& transcript, const Transmission& sent) {
  SentCycle cycle;
  cycle.begin = transcript.stream.size();
  for (const Bytes& piece : sent.pieces) {
    transcript.stream.insert(transcript.stream.end(), piece.begin(), piece.end());
  }
  cycle.end = transcript.stream.size();
  cycle.lost = !sent.is_packet;
  cycle.damaged = sent.damaged;
  transcript.cycles.push_back(cycle);
}

/// As short as it can be and still be read back exactly.
std::string shortest_text(double value) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::string fault_argument(const Fault& fault) {
  std::string text(virtual_glove::kFaultNames[static_cast<std::size_t>(fault.kind)]);
  text += "=" + shortest_text(fault.rate);
  if (fault.kind == FaultKind::silence) text += "+" + shortest_text(fault.duration_seconds);
  return text;
}

}  // namespace

std::uint64_t Transcript::lost_at_the_ends() const {
  const auto sent = [](const SentCycle& cycle) { return !cycle.lost; };
  const auto first = std::find_if(cycles.begin(), cycles.end(), sent);
  if (first == cycles.end()) return cycles.size();
  const auto last = std::find_if(cycles.rbegin(), cycles.rend(), sent);
  return static_cast<std::uint64_t>((first - cycles.begin()) + (last - cycles.rbegin()));
}

Transcript transcript_of(const GloveConfig& glove) {
  if (glove.frames == 0) throw std::invalid_argument("a transcript needs an end");
  Transcript transcript;
  Firmware firmware(glove, transcript.account);
  firmware.power_on();
  TimePoint now{};
  firmware.command(virtual_glove::kStartCommand, now);
  while (const std::optional<TimePoint> due = firmware.next_due()) {
    now = *due;
    append(transcript, firmware.transmit(now));
    if (!transcript.cycles.back().lost) ++transcript.account.packets;
    if (transcript.cycles.back().damaged) ++transcript.account.damaged;
  }
  transcript.account.bytes = transcript.stream.size();
  return transcript;
}

std::vector<std::string> glove_arguments(const GloveConfig& glove) {
  std::vector<std::string> words{
      "--hz",     shortest_text(glove.hz),      "--seed",    std::to_string(glove.seed),
      "--frames", std::to_string(glove.frames), "--counter", std::to_string(glove.first_counter)};
  for (const Fault& fault : glove.faults) {
    words.emplace_back("--fault");
    words.push_back(fault_argument(fault));
  }
  return words;
}

}  // namespace tarsil::test
