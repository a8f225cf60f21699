// How long it takes to render one frame, by the recorder's own way and by others.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/program.h"
#include "benchmarks/renderers.h"
#include "tarsil/recording/format.h"

namespace tarsil::benchmarks {

namespace {

const std::vector<Frame>& frames() {
  static const std::vector<Frame> kFrames = mock_frames(kDistinctFrames);
  return kFrames;
}

std::string_view render_tsl(const Frame& frame) {
  static std::string line;
  line.clear();
  detail::append_tsl_frame(line, frame);
  return line;
}

std::string_view render_csv(const Frame& frame) {
  static std::string row;
  row.clear();
  detail::append_csv_row(row, frame);
  return row;
}

void time_render(benchmark::State& state, std::string_view (*render)(const Frame&)) {
  std::size_t bytes = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    const std::string_view line = render(frames()[next]);
    benchmark::DoNotOptimize(line.data());
    benchmark::ClobberMemory();
    bytes += line.size();
    next = (next + 1) % kDistinctFrames;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void prepare() {
  benchmark::RegisterBenchmark("render_tsl/ours", time_render, render_tsl);
  benchmark::RegisterBenchmark("render_csv/ours", time_render, render_csv);
  for (const Renderer& peer : peer_renderers()) {
    for (const Frame& frame : frames()) {
      if (peer.render(frame) != render_tsl(frame)) throw std::runtime_error(peer.name + " renders otherwise");
    }
    benchmark::RegisterBenchmark(("render_tsl/" + peer.name).c_str(), time_render, peer.render);
  }
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  return tarsil::benchmarks::run_benchmarks(argc, argv, tarsil::benchmarks::prepare);
}
