// How long recording takes per frame, and loading per recording. Frames are the synthetic source's: 20
// joints, 30 pads, 5 inertial units, at present-day times.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tarsil/core/mock_source.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"

namespace {

using tarsil::Frame;
using tarsil::Recorder;
using tarsil::Replayer;

/// Frames that are rendered and written one after the other, again and again.
constexpr std::size_t kDistinctFrames = 1024;
/// Frames of the recording that is loaded: more than half an hour of a glove at 100 Hz.
constexpr std::size_t kLoadedFrames = 200'000;

/// A fresh directory, removed with everything in it when the object goes.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "tarsil-benchmark-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a directory like " + name);
    path_ = name;
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

std::vector<Frame> mock_frames(std::size_t count) {
  tarsil::MockConfig config;
  config.realtime = false;
  tarsil::MockSource source(config);
  std::vector<Frame> frames;
  for (std::size_t i = 0; i < count; ++i) frames.push_back(source.read_frame());
  return frames;
}

using Render = void (*)(std::string&, const Frame&);

void render(benchmark::State& state, Render append) {
  const auto frames = mock_frames(kDistinctFrames);
  std::string line;
  std::size_t bytes = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    line.clear();
    append(line, frames[next]);
    benchmark::DoNotOptimize(line.data());
    bytes += line.size();
    next = (next + 1) % kDistinctFrames;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void render_tsl_line(benchmark::State& state) {
  render(state, tarsil::detail::append_tsl_frame);
}

void render_csv_row(benchmark::State& state) {
  render(state, tarsil::detail::append_csv_row);
}

/// From a frame to the file, with the system call.
void write_frame(benchmark::State& state, Recorder::Format format) {
  const ScratchDirectory directory;
  const auto frames = mock_frames(kDistinctFrames);
  const auto path = directory.file("session" + std::string(tarsil::default_extension(format)));
  Recorder recorder(path, format);
  std::size_t next = 0;
  for (auto _ : state) {
    recorder.write_frame(frames[next]);
    next = (next + 1) % kDistinctFrames;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(std::filesystem::file_size(path)));
}

void write_tsl_frame(benchmark::State& state) {
  write_frame(state, Recorder::Format::tsl);
}

void write_csv_frame(benchmark::State& state) {
  write_frame(state, Recorder::Format::csv);
}

/// A line of /proc/self/status, in bytes; 0 where there is none.
double memory(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return 1024.0 * std::strtod(line.c_str() + field.size(), nullptr);
  }
  return 0.0;
}

/// What loading a recording takes at its worst, per frame. To be measured once and first of all: what the
/// allocator keeps of one loading serves the next.
double peak_per_frame(const std::filesystem::path& path) {
  // The kernel's record of the peak begins anew at what is in use.
  std::ofstream("/proc/self/clear_refs") << "5";
  const double before = memory("VmRSS:");
  const Replayer replayer(path);
  return (memory("VmHWM:") - before) / static_cast<double>(replayer.frame_count());
}

void load_recording(benchmark::State& state) {
  const ScratchDirectory directory;
  const auto path = directory.file("session.tsl");
  {
    tarsil::MockConfig config;
    config.realtime = false;
    tarsil::MockSource source(config);
    Recorder recorder(path);
    for (std::size_t i = 0; i < kLoadedFrames; ++i) recorder.write_frame(source.read_frame());
  }
  static const double peak = peak_per_frame(path);
  for (auto _ : state) {
    const Replayer replayer(path);
    benchmark::DoNotOptimize(replayer.frames().data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kLoadedFrames));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(path)));
  state.counters["peak_bytes_per_frame"] = peak;
}

BENCHMARK(render_tsl_line);
BENCHMARK(render_csv_row);
BENCHMARK(write_tsl_frame);
BENCHMARK(write_csv_frame);
BENCHMARK(load_recording)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
