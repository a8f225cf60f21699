// How long it takes to load a recording of more than half an hour at 100 Hz, by the replayer and in other
// ways.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/loaders.h"
#include "benchmarks/program.h"
#include "tarsil/core/mock_source.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/support/temp_directory.h"

namespace tarsil::benchmarks {

namespace {

constexpr std::size_t kLoadedFrames = 200'000;
/// Frames of the recording on which the peers are checked.
constexpr std::size_t kCheckedFrames = 20'000;

/// A recording of that many frames, with a marker now and then.
void write_recording(const std::string& path, std::size_t frames) {
  constexpr std::size_t kFramesPerMarker = 10'000;
  MockConfig config;
  config.realtime = false;
  MockSource source(config);
  Recorder recorder(path);
  for (std::size_t i = 0; i < frames; ++i) {
    if (i % kFramesPerMarker == 0) recorder.add_marker("part", {{"number", std::to_string(i)}});
    recorder.write_frame(source.read_frame());
  }
}

/// Written once, when the first benchmark runs, and removed at the end.
const std::string& recording() {
  static const test::TempDirectory kDirectory;
  static const std::string kPath = [] {
    std::string path = kDirectory.file("session.tsl");
    write_recording(path, kLoadedFrames);
    return path;
  }();
  return kPath;
}

void count(benchmark::State& state) {
  const auto bytes = std::filesystem::file_size(recording());
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kLoadedFrames));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void load(benchmark::State& state) {
  const std::string& path = recording();
  for (auto _ : state) {
    const Replayer replayer(path);
    benchmark::DoNotOptimize(replayer.frames().data());
  }
  count(state);
}

void load_by_peer(benchmark::State& state, std::vector<Frame> (*load)(const std::string& path)) {
  const std::string& path = recording();
  for (auto _ : state) {
    const std::vector<Frame> frames = load(path);
    benchmark::DoNotOptimize(frames.data());
  }
  count(state);
}

/// What no loader can be faster than: every byte is read, and every line is found.
void find_lines(benchmark::State& state) {
  const std::string& path = recording();
  std::vector<char> buffer(std::size_t{256} * 1024);
  for (auto _ : state) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::size_t lines = 0;
    while (true) {
      const ssize_t size = ::read(file, buffer.data(), buffer.size());
      if (size <= 0) break;
      const char* at = buffer.data();
      const char* const end = at + size;
      while (at < end) {
        const void* feed = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        if (feed == nullptr) break;
        ++lines;
        at = static_cast<const char*>(feed) + 1;
      }
    }
    ::close(file);
    if (lines < kLoadedFrames) state.SkipWithError("cannot read the recording");
  }
  count(state);
}

/// What no loader that gives frames can be faster than: they are known, and copied.
void copy_frames(benchmark::State& state) {
  const std::vector<Frame> ready = Replayer(recording()).frames();
  for (auto _ : state) {
    const std::vector<Frame> frames = ready;
    benchmark::DoNotOptimize(frames.data());
  }
  count(state);
}

void check(const Loader& peer, const std::string& path, const Replayer& replayer) {
  const std::vector<Frame> loaded = peer.load(path);
  const auto same = [](const Frame& a, const Frame& b) { return same_bits(a, b); };
  if (!std::equal(loaded.begin(), loaded.end(), replayer.frames().begin(), replayer.frames().end(), same)) {
    throw std::runtime_error(peer.name + " loads other frames");
  }
}

/// Threads count, where somebody uses them.
template <typename... Arguments>
void add(const std::string& name, Arguments... arguments) {
  benchmark::RegisterBenchmark(name.c_str(), arguments...)
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

void prepare() {
  const test::TempDirectory directory;
  const std::string path = directory.file("checked.tsl");
  write_recording(path, kCheckedFrames);
  const Replayer replayer(path);
  if (replayer.frame_count() != kCheckedFrames) throw std::runtime_error("frames got lost");

  add("load/ours", load);
  add("load/floor", find_lines);
  add("load/ready frames", copy_frames);
  for (const Loader& peer : peer_loaders()) {
    check(peer, path, replayer);
    add("load/" + peer.name, load_by_peer, peer.load);
  }
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  return tarsil::benchmarks::run_benchmarks(argc, argv, tarsil::benchmarks::prepare);
}
