// Closing the synthetic source while another thread reads it.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "tarsil/core/mock_source.h"
#include "tests/support/wait.h"

namespace tarsil {
namespace {

TEST(MockSource, ends_a_readers_loop_when_another_thread_closes_it) {
  MockConfig config;
  config.realtime = false;
  MockSource source(config);
  std::atomic<std::uint64_t> frames = 0;
  std::thread reader([&] {
    while (source.is_open()) frames = source.read_frame().seq + 1;
  });
  EXPECT_TRUE(test::eventually([&] { return frames >= 10; }));
  source.close();
  reader.join();
  EXPECT_EQ(source.read_frame().seq, frames);
}

TEST(MockSource, is_closed_by_several_threads_at_once) {
  MockSource source(MockConfig{});
  std::thread first([&] { source.close(); });
  std::thread second([&] { source.close(); });
  first.join();
  second.join();
  EXPECT_FALSE(source.is_open());
}

TEST(MockSource, tells_its_identity_while_another_thread_reads) {
  MockConfig config;
  config.realtime = false;
  MockSource source(config);
  std::atomic<bool> started = false;
  std::thread reader([&] {
    while (source.is_open()) {
      source.read_frame();
      started = true;
    }
  });
  EXPECT_TRUE(test::eventually([&] { return started.load(); }));
  EXPECT_EQ(source.device_info().serial, "MOCK-0001");
  source.close();
  reader.join();
}

}  // namespace
}  // namespace tarsil
