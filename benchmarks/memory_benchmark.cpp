// What decoding, recording and loading ask of the memory: prints one JSON object for scripts/bench. Every
// measurement is made in a child of its own, so that none finds what another has left.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/hand.h"
#include "benchmarks/loaders.h"
#include "tarsil/core/clock.h"
#include "tarsil/core/mock_source.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tarsil/serial/decoder.h"
#include "tests/support/temp_directory.h"

namespace {

std::size_t allocations = 0;

void* allocate(std::size_t size) {
  ++allocations;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tarsil::benchmarks {

namespace {

constexpr std::size_t kLoadedFrames = 200'000;
constexpr std::size_t kCountedFrames = 10'000;

/// What `measure` returns, found out by a child process.
template <typename Measure>
double in_child(Measure measure) {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("cannot make a pipe");
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot start a child");
  if (child == 0) {
    const double result = measure();
    const bool told = ::write(ends[1], &result, sizeof result) == sizeof result;
    std::_Exit(told ? 0 : 1);
  }
  ::close(ends[1]);
  double result = 0.0;
  const bool told = ::read(ends[0], &result, sizeof result) == sizeof result;
  ::close(ends[0]);
  if (::waitpid(child, nullptr, 0) != child || !told) throw std::runtime_error("a measurement has failed");
  return result;
}

void write_recording(const std::string& path) {
  MockConfig config;
  config.realtime = false;
  MockSource source(config);
  Recorder recorder(path);
  for (std::size_t i = 0; i < kLoadedFrames; ++i) recorder.write_frame(source.read_frame());
}

/// The most memory that this process has had so far, in bytes.
double peak() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

/// The memory that a block of the allocator takes, with the allocator's own word in front of it.
template <typename T>
double block_size(const std::vector<T>& array) {
  if (array.capacity() == 0) return 0.0;
  return static_cast<double>(sizeof(std::size_t) + ::malloc_usable_size(const_cast<T*>(array.data())));
}

double size_of(std::span<const Frame> frames) {
  double size = 0.0;
  for (const Frame& frame : frames) {
    size += sizeof frame + block_size(frame.q) + block_size(frame.touch) + block_size(frame.imu);
  }
  return size;
}

/// How often the memory of the loaded frames is taken at its worst.
double peak_of_replayer(const std::string& path) {
  const double before = peak();
  const Replayer replayer(path);
  return (peak() - before) / size_of(replayer.frames());
}

double peak_of_loader(const Loader& loader, const std::string& path) {
  const double before = peak();
  const std::vector<Frame> frames = loader.load(path);
  return (peak() - before) / size_of(frames);
}

double allocations_per_loaded_frame(const std::string& path) {
  const std::size_t before = allocations;
  const Replayer replayer(path);
  return static_cast<double>(allocations - before) / static_cast<double>(replayer.frame_count());
}

/// After a first packet: what the decoder needs only once is not counted.
double allocations_per_decoded_frame() {
  const std::vector<std::uint8_t> packets = hand_packets(kCountedFrames + 1);
  const std::span<const std::uint8_t> stream(packets);
  detail::Decoder decoder{detail::SteadyTime{}};
  std::vector<Frame> frames;
  frames.reserve(1);
  const auto feed = [&](std::size_t cycle) {
    decoder.feed(stream.subspan(cycle * kPacketSize, kPacketSize), {}, frames);
    frames.clear();
  };
  feed(0);
  const std::size_t before = allocations;
  for (std::size_t cycle = 1; cycle <= kCountedFrames; ++cycle) feed(cycle);
  return static_cast<double>(allocations - before) / kCountedFrames;
}

/// In the steady state: the longest line has been written once.
double allocations_per_written_frame(const std::string& path) {
  const std::vector<Frame> frames = hand_frames(kCountedFrames);
  Recorder recorder(path);
  for (const Frame& frame : frames) recorder.write_frame(frame);
  const std::size_t before = allocations;
  for (const Frame& frame : frames) recorder.write_frame(frame);
  return static_cast<double>(allocations - before) / kCountedFrames;
}

void print(const std::map<std::string, double>& results) {
  const char* separator = "{";
  for (const auto& [name, value] : results) {
    std::printf("%s\n  \"%s\": %.6f", separator, name.c_str(), value);
    separator = ",";
  }
  std::printf("\n}\n");
}

void run() {
  const test::TempDirectory directory;
  const std::string path = directory.file("session.tsl");
  in_child([&] {
    write_recording(path);
    return 0.0;
  });
  std::map<std::string, double> results;
  results["peak of loading/ours"] = in_child([&] { return peak_of_replayer(path); });
  for (const Loader& loader : peer_loaders()) {
    results["peak of loading/" + loader.name] = in_child([&] { return peak_of_loader(loader, path); });
  }
  results["allocations/loaded frame"] = in_child([&] { return allocations_per_loaded_frame(path); });
  results["allocations/decoded frame"] = in_child(allocations_per_decoded_frame);
  results["allocations/written frame"] =
      in_child([&] { return allocations_per_written_frame(directory.file("written.tsl")); });
  print(results);
}

}  // namespace

}  // namespace tarsil::benchmarks

int main() {
  try {
    tarsil::benchmarks::run();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "memory_benchmark: " << error.what() << '\n';
    return 1;
  }
}
