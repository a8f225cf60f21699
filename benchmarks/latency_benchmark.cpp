// How long a frame is on its way: from its last byte written on the line to read_frame() returning, at 1000
// cycles a second. Prints one JSON object for scripts/bench, in microseconds.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/hand.h"
#include "tarsil/serial/serial_source.h"
#include "tools/virtual_glove/pty.h"

namespace tarsil::benchmarks {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kCycles = 10'000;
/// The first ones are left out: the threads and their memory warm up.
constexpr std::size_t kWarmUp = 500;
constexpr auto kPeriod = std::chrono::microseconds(static_cast<int>(1e6 / kHandHz));
constexpr int kPatienceMs = 5000;

/// A glove with a stop-watch, as simple as one can be: it answers a host once and sends its cycles on time.
class TimedGlove {
 public:
  TimedGlove() : packets_(hand_packets(kCycles)), sent_(kCycles) {}

  [[nodiscard]] const std::string& port() const { return line_.path(); }

  /// On a thread of its own, until all cycles are sent or stop() has been called.
  void run() {
    await_command(virtual_glove::kResetCommand);
    write(virtual_glove::encode_identity({.serial = "TSL-LATENCY"}));
    await_command(virtual_glove::kStartCommand);
    const std::span<const std::uint8_t> stream(packets_);
    auto due = Clock::now();
    for (std::size_t cycle = 0; cycle < kCycles && !stopped_; ++cycle) {
      std::this_thread::sleep_until(due);
      due += kPeriod;
      // Before the system call that carries the last byte: what the call itself takes counts.
      sent_[cycle] = Clock::now().time_since_epoch().count();
      write(stream.subspan(cycle * kPacketSize, kPacketSize));
    }
  }
  void stop() { stopped_ = true; }

  /// When that cycle was sent.
  [[nodiscard]] Clock::time_point sent(std::size_t cycle) const {
    return Clock::time_point(Clock::duration(sent_[cycle].load()));
  }

 private:
  void await_command(std::uint8_t command) {
    while (!stopped_) {
      pollfd line{line_.line_fd(), POLLIN, 0};
      if (::poll(&line, 1, kPatienceMs) == 0) return stop();
      const auto commands = line_.read_commands();
      if (std::find(commands.begin(), commands.end(), command) != commands.end()) return;
    }
  }
  /// The line takes a packet at once as long as the host reads.
  void write(virtual_glove::ByteView bytes) {
    if (!stopped_ && line_.write_some(bytes) != bytes.size()) stop();
  }

  virtual_glove::Pty line_;
  const std::vector<std::uint8_t> packets_;
  std::vector<std::atomic<Clock::rep>> sent_;
  std::atomic<bool> stopped_ = false;
};

/// Microseconds of every cycle after the warm-up, in rising order.
std::vector<double> latencies() {
  TimedGlove glove;
  std::thread sender([&glove] { glove.run(); });
  std::vector<double> found;
  std::size_t last = 0;
  try {
    SerialSource source({.port = glove.port()});
    while (last + 1 < kCycles) {
      const Frame frame = source.read_frame();
      const auto now = Clock::now();
      last = frame.seq;
      if (frame.stale || last < kWarmUp) continue;
      found.push_back(std::chrono::duration<double, std::micro>(now - glove.sent(last)).count());
    }
  } catch (const std::exception& error) {
    std::cerr << "latency_benchmark: " << error.what() << '\n';
  }
  glove.stop();
  sender.join();
  if (last + 1 < kCycles) throw std::runtime_error("the line broke off");
  std::sort(found.begin(), found.end());
  return found;
}

double percentile(const std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

}  // namespace

}  // namespace tarsil::benchmarks

int main() {
  using tarsil::benchmarks::percentile;
  try {
    const auto sorted = tarsil::benchmarks::latencies();
    std::printf(
        "{\n  \"latency/median\": %.3f,\n  \"latency/99th percentile\": %.3f,\n  \"latency/worst\": "
        "%.3f\n}\n",
        percentile(sorted, 0.5), percentile(sorted, 0.99), sorted.back());
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "latency_benchmark: " << error.what() << '\n';
    return 1;
  }
}
