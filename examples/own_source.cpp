// A source of one's own. Code that takes an IDataSource works on a glove, a recording and the synthetic hand
// alike, and on whatever else can fill a Frame: here on a hand whose every movement is known, as a test of
// that code needs it.
//
//   own_source [PORT]       with a port, the same on a glove
#include <atomic>
#include <cmath>
#include <exception>
#include <iostream>
#include <memory>

#include "tarsil/tarsil.h"

namespace {

/// A right hand that closes and opens again once a second, for a number of frames; 100 of them are a second.
class OpeningHand : public tarsil::IDataSource {
 public:
  explicit OpeningHand(std::uint64_t frames) : frames_(frames) {}

  tarsil::Frame read_frame() override {
    // What every source does when there is nothing left to give.
    if (!is_open()) throw tarsil::StreamUnderrunError("OpeningHand: no more frames");
    tarsil::Frame frame;
    frame.seq = next_++;
    frame.t = static_cast<double>(frame.seq) / 100;
    const double bend = 0.7 - 0.7 * std::cos(2 * 3.14159265 * frame.t);
    frame.q.assign(20, static_cast<float>(bend));
    return frame;
  }

  [[nodiscard]] tarsil::DeviceInfo device_info() const override {
    return {.serial = "OPENING-HAND", .side = 1, .firmware = "1.0", .n_dofs = 20, .n_pads = 0, .n_imu = 0};
  }

  [[nodiscard]] bool is_open() const override { return open_ && next_ < frames_; }

  // May be called by another thread than the one that reads, and so clears an atomic and does nothing else.
  void close() override { open_ = false; }

 private:
  std::uint64_t frames_;
  std::uint64_t next_ = 0;
  std::atomic<bool> open_ = true;
};

/// The mean of all joint angles, in radians; 0 in a frame without any.
double mean_bend(const tarsil::Frame& frame) {
  double sum = 0;
  for (const float angle : frame.q) sum += angle;
  return frame.q.empty() ? 0 : sum / static_cast<double>(frame.q.size());
}

/// Says when the hand closes and when it opens. It does not know what kind of source it reads.
void watch_fist(tarsil::IDataSource& source) {
  bool closed = false;
  while (source.is_open()) {
    const tarsil::Frame frame = source.read_frame();
    const bool closed_now = mean_bend(frame) > (closed ? 0.6 : 0.8);
    if (closed_now != closed)
      std::cout << "frame " << frame.seq << (closed_now ? " closed" : " open") << std::endl;
    closed = closed_now;
  }
}

}  // namespace

int main(int argc, char** argv) try {
  std::shared_ptr<tarsil::IDataSource> source;
  if (argc > 1) {
    source = std::make_shared<tarsil::SerialSource>(tarsil::SerialConfig{.port = argv[1]});
  } else {
    source = std::make_shared<OpeningHand>(200);
  }
  if (!source->is_open()) throw tarsil::DeviceNotFoundError("The port cannot be opened.");
  const tarsil::Device device(source);
  std::cout << "watching " << device.info().serial << '\n';
  watch_fist(*device.source());
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
