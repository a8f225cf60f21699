// Bytes from the line, cut into reads as the input says, through the identity exchange and the packet
// decoder. Input: the number of reads to repeat (modulo 8); for each, its length (2 bytes) and the pause
// before it (1 byte, in 8 ms); then the bytes of the line.
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/plain_decoder.h"
#include "tarsil/serial/decoder.h"
#include "tarsil/serial/identity.h"
#include "tarsil/serial/wire.h"
#include "tests/recording/samples.h"

namespace tarsil::fuzz {

namespace {

using detail::Identity;
using detail::Moment;

/// One read of the port.
struct Read {
  std::size_t length = detail::wire::kMaxRead;
  std::chrono::microseconds pause{0};
};

std::vector<Read> take_reads(Input& input) {
  std::vector<Read> reads(input.byte() % 8);
  std::size_t together = 0;
  for (Read& read : reads) {
    read.length = input.number<std::uint16_t>() % (detail::wire::kMaxRead + 1);
    read.pause = std::chrono::microseconds(100 * input.number<std::uint16_t>());
    together += read.length;
  }
  if (together == 0) reads.push_back({});  // an end has to come
  return reads;
}

/// Hands the line over in these reads, again and again, until it is empty or `take` returns false.
void deliver(Bytes line, const std::vector<Read>& reads,
             const std::function<bool(Bytes bytes, std::chrono::microseconds pause)>& take) {
  for (std::size_t i = 0; !line.empty(); i = (i + 1) % reads.size()) {
    const Bytes bytes = line.first(std::min(reads[i].length, line.size()));
    line = line.subspan(bytes.size());
    if (!take(bytes, reads[i].pause)) return;
  }
}

std::optional<Identity> exchanged(Bytes line, const std::vector<Read>& reads) {
  detail::IdentityExchange exchange;
  std::optional<Identity> identity;
  deliver(line, reads, [&](Bytes bytes, std::chrono::microseconds /*pause*/) {
    identity = exchange.feed(bytes);
    return !identity;
  });
  return identity;
}

/// The first place at which a marker stands decides, unless a whole frame is there and its check byte wrong.
std::optional<Identity> plain_identity(Bytes line) {
  for (std::size_t at = 0; at + 13 <= line.size(); ++at) {
    if (line[at] != 0xC1 || line[at + 1] != 0x40 || line[at + 2] != 0x52 || line[at + 3] != 0x53) continue;
    const std::size_t length = line[at + 12];
    if (at + length + 16 > line.size()) return std::nullopt;
    unsigned check = 0;
    for (std::size_t i = 0; i < length + 15; ++i) check ^= line[at + i];
    if (check != line[at + length + 15]) continue;
    const Bytes serial = line.subspan(at + 13, length);
    return Identity{std::string(serial.begin(), serial.end()),
                    std::to_string(line[at + 13 + length]) + "." + std::to_string(line[at + 14 + length])};
  }
  return std::nullopt;
}

void check_identity(Bytes line, const std::vector<Read>& reads) {
  const auto expected = plain_identity(line);
  const auto identity = exchanged(line, reads);
  require(identity.has_value() == expected.has_value(), "an identity is found wherever the reads are cut");
  if (!identity) return;
  require(identity->serial == expected->serial, "the serial number stands as it was sent");
  require(identity->firmware == expected->firmware, "the firmware version is major.minor");
}

void check_frame(const Frame& frame, const Frame& expected, const Frame* before) {
  require(test::same_bits(frame, expected), "a frame is what the plain decoder makes of the same bytes");
  require(frame.q.size() == 20 && frame.touch.size() == 30 && frame.imu.size() == 5,
          "a frame carries 20 angles, 30 pads, 5 inertial units");
  if (before == nullptr) return;
  // Number 0 may come twice: a glove that is silent after joints without a cycle of their own makes stale
  // frames before the first fresh one.
  const bool first_fresh = frame.seq == 0 && before->stale;
  require(frame.stale ? frame.seq == before->seq : frame.seq > before->seq || first_fresh,
          "a fresh frame has a higher number, a stale one repeats it");
}

/// Decodes the line beside the plain decoder, and returns the frames.
std::vector<Frame> check_decoder(Bytes line, const std::vector<Read>& reads, bool silences) {
  detail::Decoder decoder{detail::SteadyTime{}};
  PlainDecoder plain{detail::SteadyTime{}};
  std::vector<Frame> frames;
  std::vector<Frame> expected;
  std::size_t checked = 0;
  std::uint64_t dropped = 0;
  Moment now;
  deliver(line, reads, [&](Bytes bytes, std::chrono::microseconds pause) {
    if (silences) now.steady += pause;
    now.wall = std::chrono::duration<double>(now.steady.time_since_epoch()).count();
    decoder.feed(bytes, now, frames);
    plain.feed(bytes, now, expected);
    require(decoder.buffered() == plain.buffered(), "what is no whole packet yet waits");
    require(decoder.buffered() <= 16384, "the receive buffer is bounded");
    bool goes_on = true;
    if (silences) {
      goes_on = decoder.check_silence(now, frames);
      require(goes_on == plain.check_silence(now, expected), "silence ends the stream after 1.5 s");
    }
    require(frames.size() == expected.size(), "there are as many frames as the plain decoder makes");
    for (; checked < frames.size(); ++checked) {
      check_frame(frames[checked], expected[checked], checked > 0 ? &frames[checked - 1] : nullptr);
    }
    require(decoder.side() == plain.side(), "the first packet tells the hand");
    require(decoder.dropped_cycles() == plain.dropped_cycles(), "dropped cycles are those of the counter");
    require(decoder.dropped_cycles() >= dropped, "dropped cycles never fall");
    dropped = decoder.dropped_cycles();
    return goes_on;
  });
  return frames;
}

void check_line(Bytes line, const std::vector<Read>& reads) {
  check_identity(line, reads);
  check_identity(line, {Read{}});
  check_decoder(line, reads, true);
  const std::vector<Frame> frames = check_decoder(line, reads, false);
  const std::vector<Frame> from_large_reads = check_decoder(line, {Read{}}, false);
  require(frames.size() == from_large_reads.size(), "other reads of the same bytes give as many frames");
  for (std::size_t i = 0; i < frames.size(); ++i) {
    require(test::same_bits(frames[i], from_large_reads[i]),
            "other reads of the same bytes give the same frames");
  }
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tarsil::fuzz::Input input(data, size);
  const auto reads = tarsil::fuzz::take_reads(input);
  tarsil::fuzz::check_line(input.rest(), reads);
  return 0;
}
