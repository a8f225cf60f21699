// How long it takes to put one frame into a file, against one write(2) of a line that is ready.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/program.h"
#include "benchmarks/renderers.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tests/support/temp_directory.h"

namespace tarsil::benchmarks {

namespace {

/// The file is emptied after so many lines, about 13 MB, so that no disk fills up.
constexpr std::size_t kLinesUntilEmptied = 16384;

const std::vector<Frame>& frames() {
  static const std::vector<Frame> kFrames = mock_frames(kDistinctFrames);
  return kFrames;
}

/// Runs `write` with the number of the next frame, again and again.
template <typename Write>
void time_writes(benchmark::State& state, const std::string& path, Write write) {
  std::size_t lines = 0;
  for (auto _ : state) {
    write(lines % kDistinctFrames);
    if (++lines % kLinesUntilEmptied == 0) {
      state.PauseTiming();
      if (::truncate(path.c_str(), 0) != 0) state.SkipWithError("cannot empty the file");
      state.ResumeTiming();
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void record(benchmark::State& state, Recorder::Format format) {
  const test::TempDirectory directory;
  const std::string path = directory.file("session" + std::string(default_extension(format)));
  Recorder recorder(path, format);
  time_writes(state, path, [&recorder](std::size_t i) { recorder.write_frame(frames()[i]); });
}

void record_tsl(benchmark::State& state) {
  record(state, Recorder::Format::tsl);
}

void record_csv(benchmark::State& state) {
  record(state, Recorder::Format::csv);
}

/// What no recorder can be faster than: the lines are there, and each is handed to the system.
void write_ready_lines(benchmark::State& state) {
  const test::TempDirectory directory;
  const std::string path = directory.file("ready.tsl");
  std::vector<std::string> lines(kDistinctFrames);
  for (std::size_t i = 0; i < kDistinctFrames; ++i) detail::append_tsl_frame(lines[i], frames()[i]);
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return state.SkipWithError("cannot open the file");
  time_writes(state, path, [&state, &lines, file](std::size_t i) {
    if (::write(file, lines[i].data(), lines[i].size()) != static_cast<ssize_t>(lines[i].size())) {
      state.SkipWithError("cannot write");
    }
  });
  ::close(file);
}

/// What the standard streams make of it: rendered in one, written and flushed by the other.
void write_by_streams(benchmark::State& state) {
  const test::TempDirectory directory;
  const std::string path = directory.file("streams.tsl");
  std::ofstream file(path, std::ios::binary);
  time_writes(state, path, [&state, &file](std::size_t i) {
    const std::string_view line = render_by_stream(frames()[i]);
    if (!file.write(line.data(), static_cast<std::streamsize>(line.size())).flush()) {
      state.SkipWithError("cannot write");
    }
  });
}

void prepare() {
  std::string line;
  for (const Frame& frame : frames()) {
    line.clear();
    detail::append_tsl_frame(line, frame);
    if (render_by_stream(frame) != line) throw std::runtime_error("the stream renders otherwise");
  }
  benchmark::RegisterBenchmark("write_tsl/ours", record_tsl);
  benchmark::RegisterBenchmark("write_csv/ours", record_csv);
  benchmark::RegisterBenchmark("write_tsl/floor", write_ready_lines);
  benchmark::RegisterBenchmark("write_tsl/ofstream", write_by_streams);
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  return tarsil::benchmarks::run_benchmarks(argc, argv, tarsil::benchmarks::prepare);
}
