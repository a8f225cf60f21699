// Frames come from the synthetic source, so that whoever has the sources can repeat every number.
#include "benchmarks/program.h"

#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>
#include <exception>
#include <iostream>

#include "tarsil/core/mock_source.h"

namespace tarsil::benchmarks {

namespace {

bool same_bits(const std::vector<float>& a, const std::vector<float>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i])) return false;
  }
  return true;
}

std::vector<float> values(const std::vector<ImuSample>& samples) {
  std::vector<float> all;
  for (const ImuSample& sample : samples) {
    all.insert(all.end(), sample.acc.begin(), sample.acc.end());
    all.insert(all.end(), sample.gyro.begin(), sample.gyro.end());
  }
  return all;
}

}  // namespace

std::vector<Frame> mock_frames(std::size_t count) {
  MockConfig config;
  config.realtime = false;
  MockSource source(config);
  std::vector<Frame> frames;
  frames.reserve(count);
  for (std::size_t i = 0; i < count; ++i) frames.push_back(source.read_frame());
  return frames;
}

bool same_bits(const Frame& a, const Frame& b) {
  return a.seq == b.seq && std::bit_cast<std::uint64_t>(a.t) == std::bit_cast<std::uint64_t>(b.t) &&
         same_bits(a.q, b.q) && same_bits(a.touch, b.touch) && same_bits(values(a.imu), values(b.imu));
}

int run_benchmarks(int argc, char** argv, void (*prepare)()) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  try {
    prepare();
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace tarsil::benchmarks
