// Why one pass gives what the searches of the rules give: the line has to match the recorder's layout key by
// key and bracket by bracket from its first byte to the end of the inertial samples, with nothing but numbers
// and commas in between. So the first place where a key stands is where the pass meets it, and every bracket
// closes where it says.
#include "tarsil/recording/frame_line.h"

#include <array>

#include "tarsil/recording/number_reader.h"

namespace tarsil::detail {

namespace {

/// A place in a line that ends with a zero byte.
class Cursor {
 public:
  explicit Cursor(const char* at) : at_(at) {}

  /// Moves behind `text` if it stands here.
  bool skip(std::string_view text) {
    // The zero byte that ends the line equals no byte of a text, so the comparison never leaves the line.
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (at_[i] != text[i]) return false;
    }
    at_ += text.size();
    return true;
  }

  /// Reads a number that begins right here, without blanks before it, and moves behind it.
  bool read(double& value) {
    const char* const begin = at_;
    if (!begins_number()) return false;
    value = read_double(begin, at_);
    return at_ != begin;
  }
  bool read(float& value) {
    const char* const begin = at_;
    if (!begins_number()) return false;
    value = read_float(begin, at_);
    return at_ != begin;
  }

 private:
  [[nodiscard]] bool begins_number() const { return (*at_ >= '0' && *at_ <= '9') || *at_ == '-'; }

  const char* at_;
};

/// "[1,2,3]" or "[]".
bool read_array(Cursor& cursor, std::vector<float>& values) {
  values.clear();
  if (!cursor.skip("[")) return false;
  if (cursor.skip("]")) return true;
  do {
    float value = 0.0F;
    if (!cursor.read(value)) return false;
    values.push_back(value);
  } while (cursor.skip(","));
  return cursor.skip("]");
}

/// "[1,2,3]", no more and no fewer.
bool read_axes(Cursor& cursor, std::array<float, 3>& axes) {
  return cursor.skip("[") && cursor.read(axes[0]) && cursor.skip(",") && cursor.read(axes[1]) &&
         cursor.skip(",") && cursor.read(axes[2]) && cursor.skip("]");
}

bool read_samples(Cursor& cursor, std::vector<ImuSample>& samples) {
  samples.clear();
  if (!cursor.skip("[")) return false;
  if (cursor.skip("]")) return true;
  do {
    ImuSample sample;
    if (!(cursor.skip(R"({"acc":)") && read_axes(cursor, sample.acc) && cursor.skip(R"(,"gyro":)") &&
          read_axes(cursor, sample.gyro) && cursor.skip("}"))) {
      return false;
    }
    samples.push_back(sample);
  } while (cursor.skip(","));
  return cursor.skip("]");
}

}  // namespace

bool FrameLineScanner::scan(std::string_view line, Frame& frame) {
  Cursor cursor(line.data());
  double seq = 0.0;
  if (!(cursor.skip(R"({"type":"frame","seq":)") && cursor.read(seq))) return false;
  frame.seq = sequence_number(seq);
  if (!(cursor.skip(R"(,"t":)") && cursor.read(frame.t))) return false;
  if (!(cursor.skip(R"(,"q":)") && read_array(cursor, floats_))) return false;
  frame.q.assign(floats_.begin(), floats_.end());
  if (!(cursor.skip(R"(,"touch":)") && read_array(cursor, floats_))) return false;
  frame.touch.assign(floats_.begin(), floats_.end());
  if (!(cursor.skip(R"(,"imu":)") && read_samples(cursor, samples_))) return false;
  frame.imu.assign(samples_.begin(), samples_.end());
  return true;
}

}  // namespace tarsil::detail
