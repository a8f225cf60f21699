// The least that a program can do with a glove and threads: one waits for the bytes of each cycle, and word
// of it is handed on to the next, as often as asked. What record (once) and stream (twice) do to the bytes
// comes on top.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/serial/serial_port.h"
#include "tarsil/serial/wire.h"

namespace tarsil::benchmarks {

namespace {

/// Counts cycles; one thread adds, another one takes.
class Counter {
 public:
  void add() {
    {
      const std::lock_guard lock(mutex_);
      ++count_;
    }
    changed_.notify_one();
  }
  void take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return count_ > 0; });
    --count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t count_ = 0;
};

/// The answer to the reset is left behind, then cycles come. A port that fails, here or below, ends the
/// program.
detail::SerialPort started(const std::string& path) {
  auto port = detail::SerialPort::open(path, 2'000'000);
  if (!port) throw std::runtime_error("cannot open " + path);
  std::vector<std::uint8_t> space(4096);
  port->write(detail::wire::kResetCommand);
  while (port->read(space).value() == 0) {
  }
  port->write(detail::wire::kStartCommand);
  return std::move(*port);
}

void hand_over(const std::string& path, std::size_t cycles, std::size_t hops) {
  detail::SerialPort port = started(path);
  std::vector<Counter> counters(hops);
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    std::vector<std::uint8_t> space(4096);
    for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
      while (port.read(space).value() == 0) {
      }
      counters.front().add();
    }
  });
  for (std::size_t hop = 1; hop < hops; ++hop) {
    threads.emplace_back([&, hop] {
      for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
        counters[hop - 1].take();
        counters[hop].add();
      }
    });
  }
  for (std::size_t cycle = 0; cycle < cycles; ++cycle) counters.back().take();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

}  // namespace tarsil::benchmarks

int main(int count, char** arguments) try {
  if (count != 4) throw std::invalid_argument("usage: tarsil_hand_over_floor PORT CYCLES HOPS");
  tarsil::benchmarks::hand_over(arguments[1], std::stoul(arguments[2]), std::stoul(arguments[3]));
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return EXIT_FAILURE;
}
