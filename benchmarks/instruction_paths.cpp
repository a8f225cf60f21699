// One hot path, done so many times on the same input in every run: for scripts/count-instructions, which runs
// it under callgrind twice and takes the difference, so that what goes before and after does not count.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <iostream>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/hand.h"
#include "tarsil/core/clock.h"
#include "tarsil/health/analysis.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tarsil/serial/decoder.h"

namespace tarsil::benchmarks {

namespace {

constexpr std::size_t kFrames = 1024;
constexpr std::size_t kFullRead = 4096;
/// What `tarsil health` collects by default.
constexpr std::size_t kAnalyzed = 500;

using Render = void (*)(std::string&, const Frame&);

/// So many lines. The sum of their lengths keeps the work from being optimised away.
std::size_t render(std::size_t count, Render append) {
  const std::vector<Frame> frames = hand_frames(kFrames);
  std::string line;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    line.clear();
    append(line, frames[i % kFrames]);
    bytes += line.size();
  }
  return bytes;
}

/// So many frames into a file.
std::size_t write(std::size_t count, const std::string& path) {
  const std::vector<Frame> frames = hand_frames(kFrames);
  Recorder recorder(path);
  for (std::size_t i = 0; i < count; ++i) recorder.write_frame(frames[i % kFrames]);
  return recorder.frames_written();
}

std::size_t load(const std::string& path) {
  return Replayer(path).frame_count();
}

/// Feeds so many bytes, over and over from the same ones, and queues the frames.
std::size_t feed(std::span<const std::uint8_t> stream, std::size_t bytes, std::size_t read_size) {
  detail::Decoder decoder{detail::SteadyTime{}};
  std::vector<Frame> frames;
  std::deque<Frame> queue;
  std::size_t queued = 0;
  std::size_t at = 0;
  while (bytes > 0) {
    const auto read = stream.subspan(at, std::min({read_size, stream.size() - at, bytes}));
    decoder.feed(read, {}, frames);
    for (Frame& frame : frames) queue.push_back(std::move(frame));
    frames.clear();
    queued += queue.size();
    queue.clear();
    bytes -= read.size();
    at = (at + read.size()) % stream.size();
  }
  return queued;
}

std::size_t decode(std::size_t packets, std::size_t read_size) {
  return feed(hand_packets(kFrames), packets * kPacketSize, read_size);
}

/// So many times 4096 bytes.
std::size_t skip_random(std::size_t reads) {
  constexpr std::size_t kReads = 64;
  std::mt19937 random(1);
  std::vector<std::uint8_t> bytes(kReads * kFullRead);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return feed(bytes, reads * kFullRead, kFullRead);
}

/// The same where every third byte begins a packet that is too long.
std::size_t skip_false_starts(std::size_t reads) {
  constexpr std::uint8_t kPattern[] = {0x01, 0x02, 0xFF};
  std::vector<std::uint8_t> bytes(3 * kFullRead);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = kPattern[i % 3];
  return feed(bytes, reads * kFullRead, kFullRead);
}

std::size_t analyze(std::size_t count) {
  const std::vector<Frame> frames = hand_frames(kAnalyzed);
  const DeviceInfo device{"TSL-00000001", 1, "1.4", 20, 30, 5};
  std::size_t joints = 0;
  for (std::size_t i = 0; i < count; ++i) joints += analyze_health(frames, device).joints.size();
  return joints;
}

std::size_t run(const std::string& path, std::size_t count, const std::string& file) {
  if (path == "render-tsl") return render(count, detail::append_tsl_frame);
  if (path == "render-csv") return render(count, detail::append_csv_row);
  if (path == "write-tsl") return write(count, file);
  if (path == "load") return load(file);
  if (path == "decode-packets") return decode(count, kPacketSize);
  if (path == "decode-full-reads") return decode(count, kFullRead);
  if (path == "skip-random") return skip_random(count);
  if (path == "skip-false-starts") return skip_false_starts(count);
  if (path == "analyze") return analyze(count);
  throw std::invalid_argument("no such path: " + path);
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "Usage: tarsil_instruction_paths <path> <count> <recording>\n";
    return 2;
  }
  try {
    std::cout << tarsil::benchmarks::run(argv[1], std::stoul(argv[2]), argv[3]) << '\n';
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "instruction_paths: " << error.what() << '\n';
    return 1;
  }
}
