// Records a session and marks in it, while it runs, every time the tip of the index finger presses on
// something. The markers are in the file next to the frames, where Replayer::markers() finds them again.
//
//   mark_presses FILE FRAMES [PORT]
#include <charconv>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string_view>
#include <system_error>

#include "tarsil/tarsil.h"

namespace {

// The first of the index finger's six pads; the thumb's come before them.
constexpr std::size_t kPad = 6;

/// Tells when a finger begins to press. Two thresholds rather than one: pressure that hovers around a single
/// one would count as a press with every frame.
class PressDetector {
 public:
  /// True for the frame in which a press begins.
  bool begins_with(const tarsil::Frame& frame) {
    // A frame carries what the glove has sent, which may be less than it has pads.
    if (frame.touch.size() <= kPad) return false;
    const bool pressed_before = pressed_;
    pressed_ = frame.touch[kPad] > (pressed_before ? kReleased : kPressed);
    return pressed_ && !pressed_before;
  }

 private:
  static constexpr float kPressed = 0.5F;
  static constexpr float kReleased = 0.3F;
  bool pressed_ = false;
};

/// Whether `text` is a whole number, which then is in `number`.
bool read_number(std::string_view text, std::uint64_t& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end;
}

}  // namespace

int main(int argc, char** argv) try {
  std::uint64_t wanted = 0;
  if (argc < 3 || !read_number(argv[2], wanted)) {
    std::cerr << "Usage: mark_presses FILE FRAMES [PORT]\n";
    return 2;
  }
  tarsil::SerialSource glove({.port = argc > 3 ? argv[3] : ""});
  // Asked before the recording begins, which replaces the file.
  if (!glove.is_open()) throw tarsil::DeviceNotFoundError("The port cannot be opened.");

  // The format goes by the extension: .tsl, .csv or .json. In the first two, every frame and marker is in the
  // file when the call returns, so that a crash costs nothing that came before it.
  tarsil::Recorder recorder(argv[1], {{"serial", glove.device_info().serial}, {"task", "tapping"}});
  PressDetector detector;
  int presses = 0;
  while (glove.is_open() && recorder.frames_written() < wanted) {
    const tarsil::Frame frame = glove.read_frame();
    if (frame.stale) continue;  // the last frame once more, while the glove is silent
    if (detector.begins_with(frame)) {
      recorder.add_marker("press", {{"finger", "index"}, {"number", std::to_string(++presses)}});
    }
    recorder.write_frame(frame);
  }
  std::cout << recorder.frames_written() << " frames, " << presses << " presses, " << glove.dropped_cycles()
            << " cycles lost\n";
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
