// Loading by RapidJSON: a handler takes the events of every line, which is parsed in place.
#include <rapidjson/reader.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "benchmarks/loaders.h"
#include "tests/support/temp_directory.h"

namespace tarsil::benchmarks {

namespace {

/// Keeps what the events say about a frame. A key tells where the numbers go that come next.
class FrameHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, FrameHandler> {
 public:
  bool Key(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    const std::string_view key(text, length);
    axis_ = 0;
    if (key == "seq") {
      target_ = Target::seq;
    } else if (key == "t") {
      target_ = Target::time;
    } else if (key == "q") {
      target_ = Target::joints;
    } else if (key == "touch") {
      target_ = Target::pads;
    } else if (key == "acc") {
      target_ = Target::acceleration;
      samples_.emplace_back();
    } else if (key == "gyro") {
      target_ = Target::rotation;
    } else {
      target_ = key == "type" ? Target::type : Target::none;
    }
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    if (target_ == Target::type) is_frame_ = std::string_view(text, length) == "frame";
    return true;
  }
  bool Double(double value) {
    switch (target_) {
      case Target::time:
        t_ = value;
        break;
      case Target::joints:
        joints_.push_back(static_cast<float>(value));
        break;
      case Target::pads:
        pads_.push_back(static_cast<float>(value));
        break;
      case Target::acceleration:
        samples_.back().acc.at(axis_++) = static_cast<float>(value);
        break;
      case Target::rotation:
        samples_.back().gyro.at(axis_++) = static_cast<float>(value);
        break;
      default:
        break;
    }
    return true;
  }
  bool Uint64(std::uint64_t value) {
    if (target_ == Target::seq) seq_ = value;
    return true;
  }
  bool Uint(unsigned value) { return Uint64(value); }

  void begin() {
    is_frame_ = false;
    joints_.clear();
    pads_.clear();
    samples_.clear();
  }
  [[nodiscard]] bool is_frame() const { return is_frame_; }
  [[nodiscard]] Frame frame() const {
    Frame frame;
    frame.t = t_;
    frame.q.assign(joints_.begin(), joints_.end());
    frame.touch.assign(pads_.begin(), pads_.end());
    frame.imu.assign(samples_.begin(), samples_.end());
    frame.seq = seq_;
    return frame;
  }

 private:
  enum class Target { none, type, seq, time, joints, pads, acceleration, rotation };

  Target target_ = Target::none;
  bool is_frame_ = false;
  std::uint64_t seq_ = 0;
  double t_ = 0.0;
  std::vector<float> joints_;
  std::vector<float> pads_;
  std::vector<ImuSample> samples_;
  std::size_t axis_ = 0;
};

}  // namespace

std::vector<Frame> load_by_rapidjson(const std::string& path) {
  std::string text = test::read_file(path);
  std::vector<Frame> frames;
  FrameHandler handler;
  rapidjson::Reader reader;
  char* const end = text.data() + text.size();
  for (char* line = text.data(); line < end;) {
    auto* const feed = static_cast<char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
    char* const line_end = feed == nullptr ? end : feed;
    *line_end = '\0';
    handler.begin();
    rapidjson::InsituStringStream stream(line);
    constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseFullPrecisionFlag;
    if (!reader.Parse<kFlags>(stream, handler)) throw std::runtime_error("a line is no JSON");
    if (handler.is_frame()) frames.push_back(handler.frame());
    line = line_end + 1;
  }
  return frames;
}

}  // namespace tarsil::benchmarks
