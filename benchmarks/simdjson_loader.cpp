// Loading by simdjson, in the three ways that it offers for lines of JSON. Keys are asked for in the order in
// which they are written, which is its fastest way.
#include <simdjson.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "benchmarks/loaders.h"

namespace tarsil::benchmarks {

namespace {

namespace ondemand = simdjson::ondemand;
namespace dom = simdjson::dom;

/// Memory for the arrays of one frame, used again for every line.
struct Scratch {
  std::vector<float> values;
  std::vector<ImuSample> samples;
};

template <typename Array>
void read_values(Array array, Scratch& scratch, std::vector<float>& values) {
  scratch.values.clear();
  for (auto element : array) scratch.values.push_back(static_cast<float>(double(element)));
  values.assign(scratch.values.begin(), scratch.values.end());
}

template <typename Array>
void read_axes(Array array, std::array<float, 3>& axes) {
  std::size_t i = 0;
  for (auto element : array) axes.at(i++) = static_cast<float>(double(element));
}

Frame frame_of(ondemand::object line, Scratch& scratch) {
  Frame frame;
  frame.seq = line.find_field("seq").get_uint64();
  frame.t = line.find_field("t").get_double();
  read_values(line.find_field("q").get_array().value(), scratch, frame.q);
  read_values(line.find_field("touch").get_array().value(), scratch, frame.touch);
  scratch.samples.clear();
  ondemand::array units = line.find_field("imu").get_array();
  for (ondemand::object unit : units) {
    ImuSample& sample = scratch.samples.emplace_back();
    read_axes(unit.find_field("acc").get_array().value(), sample.acc);
    read_axes(unit.find_field("gyro").get_array().value(), sample.gyro);
  }
  frame.imu.assign(scratch.samples.begin(), scratch.samples.end());
  return frame;
}

Frame frame_of(dom::object line, Scratch& scratch) {
  Frame frame;
  frame.seq = line["seq"].get_uint64();
  frame.t = line["t"].get_double();
  read_values(line["q"].get_array().value(), scratch, frame.q);
  read_values(line["touch"].get_array().value(), scratch, frame.touch);
  scratch.samples.clear();
  const dom::array units = line["imu"].get_array();
  for (const dom::object unit : units) {
    ImuSample& sample = scratch.samples.emplace_back();
    read_axes(unit["acc"].get_array().value(), sample.acc);
    read_axes(unit["gyro"].get_array().value(), sample.gyro);
  }
  frame.imu.assign(scratch.samples.begin(), scratch.samples.end());
  return frame;
}

}  // namespace

std::vector<Frame> load_by_simdjson_lines(const std::string& path) {
  const simdjson::padded_string text = simdjson::padded_string::load(path);
  std::vector<Frame> frames;
  Scratch scratch;
  ondemand::parser parser;
  const char* const end = text.data() + text.size();
  for (const char* line = text.data(); line < end;) {
    const auto* feed =
        static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
    const char* const line_end = feed == nullptr ? end : feed;
    const auto size = static_cast<std::size_t>(line_end - line);
    const auto room = static_cast<std::size_t>(end - line) + simdjson::SIMDJSON_PADDING;
    ondemand::document document = parser.iterate(line, size, room);
    ondemand::object object = document.get_object();
    if (std::string_view(object.find_field("type")) == "frame") frames.push_back(frame_of(object, scratch));
    line = line_end + 1;
  }
  return frames;
}

std::vector<Frame> load_by_simdjson_stream(const std::string& path) {
  const simdjson::padded_string text = simdjson::padded_string::load(path);
  std::vector<Frame> frames;
  Scratch scratch;
  ondemand::parser parser;
  ondemand::document_stream stream = parser.iterate_many(text);
  for (auto document : stream) {
    ondemand::object object = document.get_object();
    if (std::string_view(object.find_field("type")) == "frame") frames.push_back(frame_of(object, scratch));
  }
  return frames;
}

std::vector<Frame> load_by_simdjson_tree(const std::string& path) {
  const simdjson::padded_string text = simdjson::padded_string::load(path);
  std::vector<Frame> frames;
  Scratch scratch;
  dom::parser parser;
  dom::document_stream stream = parser.parse_many(text);
  for (const dom::object object : stream) {
    if (std::string_view(object["type"]) == "frame") frames.push_back(frame_of(object, scratch));
  }
  return frames;
}

}  // namespace tarsil::benchmarks
