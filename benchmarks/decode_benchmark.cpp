// How long it takes to turn a glove's bytes into queued frames, and to get past bytes that are none.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/hand.h"
#include "benchmarks/plain_decoder.h"
#include "benchmarks/program.h"
#include "tarsil/core/clock.h"
#include "tarsil/serial/decoder.h"
#include "tools/virtual_glove/packet.h"

namespace tarsil::benchmarks {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// What one read(2) of a port gives when a glove has been left waiting.
constexpr std::size_t kFullRead = 4096;
/// Frames that are queued before a consumer takes them all.
constexpr std::size_t kQueuedFrames = 4;
/// Bytes of garbage, in one stream or in short ones: time per byte must not grow from these to that.
constexpr std::size_t kGarbage = 5'000'000;
constexpr std::size_t kShortStream = 1024;
constexpr double kWall = 1.7e9;

const Bytes& packets() {
  static const Bytes kPackets = hand_packets(kDistinctFrames);
  return kPackets;
}

/// The way of the library: frames are moved from the decoder's list into the queue.
class Ours {
 public:
  void feed(std::span<const std::uint8_t> bytes, std::deque<Frame>& queue) {
    decoder_.feed(bytes, now_, frames_);
    for (Frame& frame : frames_) queue.push_back(std::move(frame));
    frames_.clear();
  }

 private:
  detail::Moment now_{detail::SteadyClock::now(), kWall};
  detail::Decoder decoder_{now_.steady};
  std::vector<Frame> frames_;
};

template <PlainDecoder::Order kOrder>
class PlainWith {
 public:
  void feed(std::span<const std::uint8_t> bytes, std::deque<Frame>& queue) {
    decoder_.feed(bytes, kWall, queue);
  }

 private:
  PlainDecoder decoder_{kOrder};
};

using Plain = PlainWith<PlainDecoder::Order::kind_by_kind>;
using PlainAsMet = PlainWith<PlainDecoder::Order::as_met>;

/// What no decoder can be faster than: the bytes are copied once.
class Copy {
 public:
  void feed(std::span<const std::uint8_t> bytes, std::deque<Frame>& /*queue*/) {
    std::memcpy(buffer_.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(buffer_.data());
    benchmark::ClobberMemory();
  }

 private:
  Bytes buffer_ = Bytes(kFullRead);
};

/// What no decoder that gives frames can be faster than: they are known, and copied into the queue.
class ReadyFrames {
 public:
  void feed(std::span<const std::uint8_t> bytes, std::deque<Frame>& queue) {
    for (bytes_ += bytes.size(); bytes_ >= kPacketSize; bytes_ -= kPacketSize) {
      frame_.seq++;
      queue.push_back(frame_);
    }
  }

 private:
  Frame frame_ = hand_frames(1).front();
  std::size_t bytes_ = 0;
};

/// Feeds a stream in reads of one size, again and again; the time is that of one packet.
template <typename Decoder>
void decode_packets(benchmark::State& state, std::size_t read_size) {
  const std::span<const std::uint8_t> stream(packets());
  Decoder decoder;
  std::deque<Frame> queue;
  std::size_t at = 0;
  std::size_t due = 0;  // bytes up to the packet that the iteration stands for
  for (auto _ : state) {
    for (due += kPacketSize; due > 0;) {
      const auto read = stream.subspan(at, std::min(read_size, stream.size() - at));
      if (due < read.size()) break;
      decoder.feed(read, queue);
      due -= read.size();
      at = (at + read.size()) % stream.size();
    }
    if (queue.size() >= kQueuedFrames) queue.clear();
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kPacketSize));
}

/// The time is that of all bytes, which come in full reads. They are one stream, or many short ones: after
/// `length` bytes a new decoder begins.
template <typename Decoder>
void skip_garbage(benchmark::State& state, const Bytes& garbage, std::size_t length) {
  std::deque<Frame> queue;
  for (auto _ : state) {
    for (std::size_t begin = 0; begin < garbage.size(); begin += length) {
      const auto stream = std::span(garbage).subspan(begin, std::min(length, garbage.size() - begin));
      Decoder decoder;
      for (std::size_t at = 0; at < stream.size(); at += kFullRead) {
        decoder.feed(stream.subspan(at, std::min(kFullRead, stream.size() - at)), queue);
      }
    }
    if (!queue.empty()) state.SkipWithError("there are frames in the garbage");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(garbage.size()));
}

Bytes random_bytes(std::size_t size) {
  std::mt19937 random(1);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

/// Random bytes in which no packet can begin: behind the first byte of a packet there is never the second.
Bytes without_magic(Bytes bytes) {
  for (std::size_t i = 1; i < bytes.size(); ++i) {
    if (bytes[i - 1] == virtual_glove::kPacketMagic0 && bytes[i] == virtual_glove::kPacketMagic1)
      bytes[i] = 0;
  }
  return bytes;
}

/// A pattern, over and over.
Bytes repeated(const Bytes& pattern, std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = pattern[i % pattern.size()];
  return bytes;
}

/// Kinds of bytes that are no packets, from the harmless to the misleading.
struct Garbage {
  std::string name;
  Bytes (*make)(std::size_t size);
};

std::vector<Garbage> kinds_of_garbage() {
  return {
      // Nothing in it begins a packet.
      {"random, no magic", [](std::size_t size) { return without_magic(random_bytes(size)); }},
      // Here and there a packet seems to begin; most of them would be too long, the others are waited for.
      {"random", random_bytes},
      // Every byte is the first one of a packet.
      {"first bytes", [](std::size_t size) { return repeated({0x01}, size); }},
      // Every third byte begins a packet that is too long.
      {"false starts",
       [](std::size_t size) {
         return repeated({0x01, 0x02, 0xFF}, size);
       }},
      // Packets of a type that means nothing to a host, each as long as a packet can be.
      {"unknown packets",
       [](std::size_t size) {
         const Bytes payload(virtual_glove::kLargestPayload, 0x01);
         return repeated(virtual_glove::encode_packet(0, 9, 0, payload), size);
       }},
  };
}

void check() {
  Ours ours;
  Plain plain;
  std::deque<Frame> expected;
  std::deque<Frame> got;
  const std::span<const std::uint8_t> stream(packets());
  for (std::size_t at = 0; at < stream.size(); at += kFullRead) {
    const auto read = stream.subspan(at, std::min(kFullRead, stream.size() - at));
    ours.feed(read, got);
    plain.feed(read, expected);
  }
  const auto same = [](const Frame& a, const Frame& b) {
    return same_bits(a, b) && a.status_lo == b.status_lo && a.status_hi == b.status_hi && a.stale == b.stale;
  };
  if (got.size() != kDistinctFrames) throw std::runtime_error("frames got lost");
  if (!std::equal(got.begin(), got.end(), expected.begin(), expected.end(), same)) {
    throw std::runtime_error("the plain decoder finds other frames");
  }
}

void prepare() {
  check();
  for (const auto& [name, read_size] :
       {std::pair("packet by packet", kPacketSize), {"full reads", kFullRead}}) {
    const std::string path = std::string("/") + name;
    benchmark::RegisterBenchmark(("decode" + path + "/ours").c_str(), decode_packets<Ours>, read_size);
    benchmark::RegisterBenchmark(("decode" + path + "/plain").c_str(), decode_packets<Plain>, read_size);
    benchmark::RegisterBenchmark(("decode" + path + "/plain as met").c_str(), decode_packets<PlainAsMet>,
                                 read_size);
    benchmark::RegisterBenchmark(("decode" + path + "/ready frames").c_str(), decode_packets<ReadyFrames>,
                                 read_size);
    benchmark::RegisterBenchmark(("decode" + path + "/floor").c_str(), decode_packets<Copy>, read_size);
  }
  for (const Garbage& kind : kinds_of_garbage()) {
    const std::string path = "garbage/" + kind.name;
    const Bytes garbage = kind.make(kGarbage);
    benchmark::RegisterBenchmark((path + "/ours").c_str(), skip_garbage<Ours>, garbage, kGarbage);
    benchmark::RegisterBenchmark((path + "/in short streams").c_str(), skip_garbage<Ours>, garbage,
                                 kShortStream);
    benchmark::RegisterBenchmark((path + "/plain").c_str(), skip_garbage<Plain>, garbage, kGarbage);
  }
  benchmark::RegisterBenchmark("garbage/floor", skip_garbage<Copy>, random_bytes(kGarbage), kGarbage);
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  return tarsil::benchmarks::run_benchmarks(argc, argv, tarsil::benchmarks::prepare);
}
