// Gloves with a loose plug: what the sources make of two hundred replugs, in this process, where a descriptor
// or a thread that is left behind shows.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/serial/reconnecting_source.h"
#include "tarsil/serial/serial_source.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::Account;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

/// A source takes a second and a half to believe that its glove is gone, so the storm is many gloves wide.
constexpr std::size_t kGloves = 25;
constexpr std::uint64_t kReplugs = 8;
constexpr std::chrono::seconds kDeadline{100};

/// One glove that is pulled out a tenth of a second after each start, and what listens to it.
class Listener {
 public:
  explicit Listener(const std::string& link)
      : config_{.link = link, .hz = 100, .replug = virtual_glove::Replug{0.1, 0.05, kReplugs}},
        glove_(config_),
        motion_(config_.seed, config_.hz),
        source_({.factory = [link] { return std::make_shared<SerialSource>(SerialConfig{.port = link}); },
                 .initial_backoff_s = 0.01F,
                 .max_backoff_s = 0.05F}) {}

  /// Reads until the glove stays and some fresh frames have come from it since.
  void outlast_the_storm() {
    constexpr int kEnough = 10;
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    for (int fresh_since = 0; fresh_since < kEnough;) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      const Account account = glove_.account();
      const bool stays = account.replugs == kReplugs && account.streaming;
      const Frame frame = source_.read_frame();
      expect_values(frame);
      if (stays && !frame.stale) ++fresh_since;
    }
  }

  [[nodiscard]] Account account() const { return glove_.account(); }
  [[nodiscard]] ReconnectingSource& source() { return source_; }

 private:
  /// Every connection begins with cycle 0 and number 0, so a frame's number says its values, also when it is
  /// stale.
  void expect_values(const Frame& frame) const {
    ASSERT_EQ(frame.q.size(), 20U);
    const virtual_glove::HandSample hand = motion_.at(frame.seq);
    for (std::size_t joint = 0; joint < frame.q.size(); ++joint) {
      ASSERT_EQ(frame.q[joint], static_cast<float>(hand.joints[joint]) / 100.0F * 0.017453292F);
    }
  }

  GloveConfig config_;
  VirtualGlove glove_;
  virtual_glove::HandMotion motion_;
  ReconnectingSource source_;
};

TEST(ReplugStorm, of_two_hundred_leaves_nothing_behind_and_every_source_streaming) {
  const TempDirectory directory;
  const std::size_t descriptors_before = open_descriptors();
  const std::size_t threads_before = running_threads();
  {
    std::vector<std::unique_ptr<Listener>> listeners;
    for (std::size_t i = 0; i < kGloves; ++i) {
      listeners.push_back(std::make_unique<Listener>(directory.file("glove" + std::to_string(i))));
    }
    std::vector<std::future<void>> storms;
    for (const auto& listener : listeners) {
      storms.push_back(std::async(std::launch::async, [one = listener.get()] { one->outlast_the_storm(); }));
    }
    for (auto& storm : storms) storm.get();
    if (HasFatalFailure()) return;

    // A glove and a host that have been through nothing show how many there should be.
    const std::size_t after_the_storm = open_descriptors();
    const VirtualGlove calm({.link = directory.file("calm")});
    const SerialSource host({.port = calm.port()});
    const std::size_t of_a_pair = open_descriptors() - after_the_storm;
    EXPECT_EQ(after_the_storm, descriptors_before + kGloves * of_a_pair);
    for (const auto& listener : listeners) {
      EXPECT_TRUE(listener->source().is_open());
      EXPECT_EQ(listener->account().replugs, kReplugs);
      EXPECT_EQ(listener->account().hosts_open, 1U);
    }
  }
  EXPECT_EQ(open_descriptors(), descriptors_before);
  EXPECT_TRUE(eventually([&] { return running_threads() <= threads_before; }));
}

}  // namespace
}  // namespace tarsil::test
