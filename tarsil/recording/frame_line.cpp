// Why one pass gives what the searches of the rules give: the line has to match the recorder's layout key by
// key and bracket by bracket from its first byte to the end of the inertial samples, with nothing but numbers
// and commas in between. So the first place where a key stands is where the pass meets it, and every bracket
// closes where it says.
//
// Each list is tried in the usual way first, in which all its numbers have the same form.
#include "tarsil/recording/frame_line.h"

#include <cstddef>
#include <cstring>

#include "tarsil/recording/number_reader.h"

namespace tarsil::detail {

/// A place in a line that ends with a zero byte.
class FrameLineScanner::Cursor {
 public:
  explicit Cursor(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) {}

  /// Moves behind `text` if it stands here.
  bool skip(std::string_view text) {
    if (static_cast<std::size_t>(end_ - at_) < text.size()) return false;
    if (std::memcmp(at_, text.data(), text.size()) != 0) return false;
    at_ += text.size();
    return true;
  }
  bool skip(char c) {
    if (*at_ != c) return false;  // no `c` is the zero byte at the end
    ++at_;
    return true;
  }

  /// Reads a number that begins right here, without blanks before it, and moves behind it.
  bool read(double& value) { return read_with(read_double, value); }
  bool read(float& value) { return read_with(read_float, value); }

  /// Takes what begins here for a usual number.
  template <int kDecimals>
  bool note(UsualNumbers<kDecimals>& numbers) {
    return numbers.note(at_, end_);
  }

 private:
  template <typename Real>
  bool read_with(Real (*read_number)(const char*, const char*&), Real& value) {
    if ((*at_ < '0' || *at_ > '9') && *at_ != '-') return false;
    const char* behind = at_;  // not at_ itself, so that it can stay in a register
    value = read_number(at_, behind);
    if (behind == at_) return false;
    at_ = behind;
    return true;
  }

  const char* at_;
  const char* end_;
};

/// "[1,2,3]" or "[]".
bool FrameLineScanner::scan_array(Cursor& cursor, std::vector<float>& values) {
  if (scan_usual_array(cursor, values)) return true;
  floats_.clear();
  if (!cursor.skip('[')) return false;
  if (cursor.skip(']')) {
    values.clear();
    return true;
  }
  do {
    float value = 0.0F;
    if (!cursor.read(value)) return false;
    floats_.push_back(value);
  } while (cursor.skip(','));
  values.assign(floats_.begin(), floats_.end());
  return cursor.skip(']');
}

bool FrameLineScanner::scan_usual_array(Cursor& cursor, std::vector<float>& values) {
  if (!kUsualNumbersWork) return false;
  Cursor at = cursor;
  channels_.clear();
  if (!at.skip('[')) return false;
  do {
    if (!at.note(channels_)) return false;
  } while (at.skip(','));
  if (!at.skip(']') || !channels_.convert(converted_.data())) return false;
  values.assign(converted_.data(), converted_.data() + channels_.size());
  cursor = at;
  return true;
}

/// Samples of three accelerations and three rates each, no more and no fewer, or "[]".
bool FrameLineScanner::scan_samples(Cursor& cursor, std::vector<ImuSample>& samples) {
  if (scan_usual_samples(cursor, samples)) return true;
  const auto read_axes = [&cursor](std::array<float, 3>& axes) {
    return cursor.read(axes[0]) && cursor.skip(',') && cursor.read(axes[1]) && cursor.skip(',') &&
           cursor.read(axes[2]);
  };
  samples_.clear();
  if (!cursor.skip('[')) return false;
  if (cursor.skip(']')) {
    samples.clear();
    return true;
  }
  do {
    ImuSample& sample = samples_.emplace_back();
    if (!(cursor.skip(R"({"acc":[)") && read_axes(sample.acc) && cursor.skip(R"(],"gyro":[)") &&
          read_axes(sample.gyro) && cursor.skip("]}"))) {
      return false;
    }
  } while (cursor.skip(','));
  samples.assign(samples_.begin(), samples_.end());
  return cursor.skip(']');
}

bool FrameLineScanner::scan_usual_samples(Cursor& cursor, std::vector<ImuSample>& samples) {
  if (!kUsualNumbersWork) return false;
  Cursor at = cursor;
  axes_.clear();
  const auto note_axes = [this, &at] {
    return at.note(axes_) && at.skip(',') && at.note(axes_) && at.skip(',') && at.note(axes_);
  };
  if (!at.skip('[')) return false;
  do {
    if (!(at.skip(R"({"acc":[)") && note_axes() && at.skip(R"(],"gyro":[)") && note_axes() &&
          at.skip("]}"))) {
      return false;
    }
  } while (at.skip(','));
  if (!at.skip(']') || !axes_.convert(converted_.data())) return false;
  samples.resize(axes_.size() / 6);
  const float* value = converted_.data();
  for (ImuSample& sample : samples) {
    for (float& axis : sample.acc) axis = *value++;
    for (float& axis : sample.gyro) axis = *value++;
  }
  cursor = at;
  return true;
}

bool FrameLineScanner::scan(std::string_view line, Frame& frame) {
  Cursor cursor(line);
  double seq = 0.0;
  if (!(cursor.skip(R"({"type":"frame","seq":)") && cursor.read(seq))) return false;
  frame.seq = sequence_number(seq);
  return cursor.skip(R"(,"t":)") && cursor.read(frame.t) && cursor.skip(R"(,"q":)") &&
         scan_array(cursor, frame.q) && cursor.skip(R"(,"touch":)") && scan_array(cursor, frame.touch) &&
         cursor.skip(R"(,"imu":)") && scan_samples(cursor, frame.imu);
}

}  // namespace tarsil::detail
