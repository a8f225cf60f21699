// How long the health analysis takes, for the frames of a usual check and for many.
#include <benchmark/benchmark.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/plain_analysis.h"
#include "benchmarks/program.h"
#include "tarsil/health/analysis.h"
#include "tools/virtual_glove/motion.h"

namespace tarsil::benchmarks {

namespace {

constexpr std::int32_t kJoints = 20;
/// What `tarsil health` collects by default.
constexpr std::size_t kUsual = 500;
/// From which they are taken: they stay in the cache.
constexpr std::size_t kFewFrames = 16 * kUsual;
constexpr std::size_t kMany = 100'000;

const DeviceInfo& device() {
  static const DeviceInfo kDevice{"TSL-00000001", 1, "1.4", kJoints, 30, 5};
  return kDevice;
}

/// A hand at rest.
const std::vector<Frame>& resting() {
  static const std::vector<Frame> kFrames = mock_frames(kMany);
  return kFrames;
}

/// A hand in motion, at 100 frames a second.
const std::vector<Frame>& moving() {
  static const std::vector<Frame> kFrames = [] {
    constexpr double kHz = 100.0;
    constexpr float kRadians = 0.017453292F / 100.0F;  // in a hundredth of a degree
    const virtual_glove::HandMotion motion(1, kHz);
    std::vector<Frame> frames = resting();
    for (std::size_t i = 0; i < frames.size(); ++i) {
      const auto joints = motion.at(i).joints;
      for (std::size_t d = 0; d < joints.size(); ++d)
        frames[i].q[d] = kRadians * static_cast<float>(joints[d]);
    }
    return frames;
  }();
  return kFrames;
}

bool same_bits(const HealthReport& a, const HealthReport& b) {
  const auto same = [](float x, float y) {
    return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y);
  };
  if (a.joints.size() != b.joints.size() || a.frames_analyzed != b.frames_analyzed) return false;
  for (std::size_t i = 0; i < a.joints.size(); ++i) {
    const JointHealth& x = a.joints[i];
    const JointHealth& y = b.joints[i];
    if (x.dof != y.dof || x.dropouts != y.dropouts || !same(x.score, y.score) ||
        !same(x.noise_rms, y.noise_rms) || !same(x.backlash, y.backlash)) {
      return false;
    }
  }
  return same(a.overall_score, b.overall_score);
}

HealthReport analyze(std::span<const Frame> frames) {
  return analyze_health(frames, device());
}

HealthReport analyze_as_defined(std::span<const Frame> frames) {
  return analyze_plainly(frames, kJoints);
}

/// Analyses `count` frames at a time: others each time, so that the processor does not know by heart which
/// way each branch goes.
void time_analysis(benchmark::State& state, HealthReport (*analyze)(std::span<const Frame>),
                   std::span<const Frame> frames, std::size_t count) {
  std::size_t first = 0;
  for (auto _ : state) {
    const HealthReport report = analyze(frames.subspan(first, count));
    benchmark::DoNotOptimize(report.overall_score);
    benchmark::DoNotOptimize(report.joints.data());
    first = first + 2 * count <= frames.size() ? first + count : 0;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count) * kJoints);
}

void add(const std::string& name, std::span<const Frame> frames, std::size_t count) {
  for (std::size_t first = 0; first + count <= frames.size(); first += count) {
    const auto part = frames.subspan(first, count);
    if (!same_bits(analyze(part), analyze_as_defined(part))) {
      throw std::runtime_error(name + ": the plain analysis finds something else");
    }
  }
  const auto time = [&](const char* who, HealthReport (*how)(std::span<const Frame>)) {
    benchmark::RegisterBenchmark(("analysis/" + name + "/" + who).c_str(), time_analysis, how, frames, count)
        ->Unit(benchmark::kMicrosecond);
  };
  time("ours", analyze);
  time("plain", analyze_as_defined);
}

void prepare() {
  add("500 frames at rest", std::span(resting()).first(kFewFrames), kUsual);
  add("500 frames in motion", std::span(moving()).first(kFewFrames), kUsual);
  add("100,000 frames at rest", resting(), kMany);
  add("100,000 frames in motion", moving(), kMany);
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int argc, char** argv) {
  return tarsil::benchmarks::run_benchmarks(argc, argv, tarsil::benchmarks::prepare);
}
