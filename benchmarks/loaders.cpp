// The way of the standard library, and the list of all.
#include "benchmarks/loaders.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "tests/support/temp_directory.h"

namespace tarsil::benchmarks {

namespace {

/// Walks along one line; throws where it is not as the recorder writes it.
class Walker {
 public:
  explicit Walker(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) {}

  void skip(std::string_view text) {
    if (!std::string_view(at_, end_).starts_with(text)) fail();
    at_ += text.size();
  }
  template <typename Number>
  void read(Number& value) {
    const auto [end, error] = std::from_chars(at_, end_, value);
    if (error != std::errc{}) fail();
    at_ = end;
  }
  /// The elements of an array, each by `read_element`.
  template <typename ReadElement>
  void each(ReadElement read_element) {
    skip("[");
    if (*at_ != ']') {
      read_element();
      while (*at_ == ',') {
        ++at_;
        read_element();
      }
    }
    skip("]");
  }

 private:
  [[noreturn]] static void fail() { throw std::runtime_error("a frame line is not as it is written"); }

  const char* at_;
  const char* end_;
};

void read_axes(Walker& walker, std::array<float, 3>& axes) {
  std::size_t i = 0;
  walker.each([&] { walker.read(axes.at(i++)); });
}

Frame frame_in(std::string_view line, std::vector<float>& values, std::vector<ImuSample>& samples) {
  Frame frame;
  Walker walker(line);
  const auto read_values = [&](std::vector<float>& array) {
    values.clear();
    walker.each([&] { walker.read(values.emplace_back()); });
    array.assign(values.begin(), values.end());
  };
  walker.skip(R"({"type":"frame","seq":)");
  walker.read(frame.seq);
  walker.skip(R"(,"t":)");
  walker.read(frame.t);
  walker.skip(R"(,"q":)");
  read_values(frame.q);
  walker.skip(R"(,"touch":)");
  read_values(frame.touch);
  walker.skip(R"(,"imu":)");
  samples.clear();
  walker.each([&] {
    ImuSample& sample = samples.emplace_back();
    walker.skip(R"({"acc":)");
    read_axes(walker, sample.acc);
    walker.skip(R"(,"gyro":)");
    read_axes(walker, sample.gyro);
    walker.skip("}");
  });
  frame.imu.assign(samples.begin(), samples.end());
  return frame;
}

}  // namespace

std::vector<Frame> load_by_from_chars(const std::string& path) {
  const std::string text = test::read_file(path);
  std::vector<Frame> frames;
  std::vector<float> values;
  std::vector<ImuSample> samples;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() + 1);
    if (line.starts_with(R"({"type":"frame")")) frames.push_back(frame_in(line, values, samples));
  }
  return frames;
}

std::vector<Loader> peer_loaders() {
  return {
      {"from_chars", load_by_from_chars},
#ifdef TARSIL_BENCHMARK_SIMDJSON
      {"simdjson, on demand, line by line", load_by_simdjson_lines},
      {"simdjson, on demand, as a stream", load_by_simdjson_stream},
      {"simdjson, as a tree", load_by_simdjson_tree},
#endif
#ifdef TARSIL_BENCHMARK_RAPIDJSON
      {"RapidJSON", load_by_rapidjson},
#endif
  };
}

}  // namespace tarsil::benchmarks
