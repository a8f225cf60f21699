// How the reconnecting source outlives what it wraps. Scripted inner sources and factories deliver, fail,
// hang and come back at the test's word, so that every outage happens when the test wants it.
#include "tarsil/serial/reconnecting_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tarsil/core/clock.h"
#include "tarsil/core/errors.h"
#include "tests/support/resources.h"
#include "tests/support/wait.h"

namespace tarsil {

namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::kPatience;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;
using testing::ThrowsMessage;
using Clock = std::chrono::steady_clock;

constexpr float kForever = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// Far below the waits that a close has to cut short, far above what a busy machine takes for one.
constexpr auto kPrompt = 8s;

/// A door that others wait at until the test opens it.
class Gate {
 public:
  void wait() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.wait_for(lock, kPatience, [this] { return open_; });
  }
  void open() {
    {
      const std::lock_guard lock(mutex_);
      open_ = true;
    }
    changed_.notify_all();
  }
  [[nodiscard]] bool reached() const {
    const std::lock_guard lock(mutex_);
    return waiting_ > 0;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int waiting_ = 0;
  bool open_ = false;
};

/// What happened, in order.
class Journal {
 public:
  void add(std::string entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
  }
  [[nodiscard]] std::vector<std::string> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> entries_;
};

/// A frame whose every field tells its number.
Frame numbered(std::uint64_t seq) {
  const auto value = static_cast<float>(seq);
  return {.t = 1000.0 + static_cast<double>(seq),
          .q = {value + 0.25F, value + 0.5F},
          .touch = {value + 0.75F},
          .imu = {ImuSample{{value, 1.0F, 2.0F}, {3.0F, 4.0F, value}}},
          .stale = false,
          .seq = seq,
          .status_lo = {1, 2, 3, 4, 5},
          .status_hi = {6, 7, 8, 9, 10}};
}

/// How a scripted source differs from one that is open, well-behaved and silent.
struct Behaviour {
  bool open = true;
  /// Reads deliver a frame about every millisecond without being told to.
  bool endless = false;
  /// A read in progress does not notice that the source is closed.
  bool deaf = false;
  /// What the operations do besides; they may throw.
  std::function<void()> on_is_open = {};
  std::function<void()> on_device_info = {};
  std::function<void()> on_close = {};
};

/// An inner source that does what the test says. A read that has nothing to do hangs until the test gives it
/// something or the source is closed.
class ScriptedSource : public IDataSource {
 public:
  explicit ScriptedSource(std::string serial = "TSL-0001", Behaviour behaviour = {})
      : info_{std::move(serial), 0, "1.2.3", 20, 30, 5},
        behaviour_(std::move(behaviour)),
        open_(behaviour_.open) {}

  Frame read_frame() override {
    std::unique_lock lock(mutex_);
    ++reads_;
    changed_.wait_for(lock, behaviour_.endless ? 1ms : std::chrono::milliseconds(kPatience),
                      [this] { return !steps_.empty() || (closed() && !behaviour_.deaf); });
    if (steps_.empty() && behaviour_.endless && !closed()) return numbered(reads_);
    if (steps_.empty()) throw StreamUnderrunError("scripted source closed");
    const auto step = std::move(steps_.front());
    steps_.pop_front();
    lock.unlock();
    return step();
  }
  [[nodiscard]] DeviceInfo device_info() const override {
    if (behaviour_.on_device_info) behaviour_.on_device_info();
    return info_;
  }
  [[nodiscard]] bool is_open() const override {
    if (behaviour_.on_is_open) behaviour_.on_is_open();
    const std::lock_guard lock(mutex_);
    return open_ && !closed();
  }
  void close() override {
    {
      const std::lock_guard lock(mutex_);
      close_times_.push_back(Clock::now());
    }
    changed_.notify_all();
    if (behaviour_.on_close) behaviour_.on_close();
  }

  /// The next read does this.
  void then(std::function<Frame()> step) {
    {
      const std::lock_guard lock(mutex_);
      steps_.push_back(std::move(step));
    }
    changed_.notify_all();
  }
  void deliver(Frame frame) {
    then([frame = std::move(frame)] { return frame; });
  }
  void fail() {
    then([]() -> Frame { throw std::runtime_error("the glove is gone"); });
  }
  /// Delivers a frame and is not open from then on.
  void deliver_and_stop(Frame frame) {
    then([this, frame = std::move(frame)] {
      const std::lock_guard lock(mutex_);
      open_ = false;
      return frame;
    });
  }

  /// Reads begun so far. The beginning of read n + 1 shows that the frame of read n has been dealt with.
  [[nodiscard]] std::uint64_t reads() const {
    const std::lock_guard lock(mutex_);
    return reads_;
  }
  [[nodiscard]] std::vector<Clock::time_point> close_times() const {
    const std::lock_guard lock(mutex_);
    return close_times_;
  }
  [[nodiscard]] std::size_t closes() const { return close_times().size(); }

 private:
  /// The mutex is held.
  [[nodiscard]] bool closed() const { return !close_times_.empty(); }

  const DeviceInfo info_;
  const Behaviour behaviour_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<Frame()>> steps_;
  std::vector<Clock::time_point> close_times_;
  std::uint64_t reads_ = 0;
  bool open_;
};

using FactoryStep = std::function<std::shared_ptr<IDataSource>()>;

FactoryStep gives(std::shared_ptr<IDataSource> source) {
  return [source = std::move(source)] { return source; };
}

FactoryStep fails() {
  return []() -> std::shared_ptr<IDataSource> { throw DeviceNotFoundError("no glove"); };
}

/// A factory that takes one step of its script per call, and the last one ever after. It outlives the sources
/// that call it.
class ScriptedFactory {
 public:
  explicit ScriptedFactory(std::vector<FactoryStep> steps) : steps_(std::move(steps)) {}

  std::shared_ptr<IDataSource> make() {
    FactoryStep step;
    {
      const std::lock_guard lock(mutex_);
      const std::size_t call = calls_.size();
      calls_.push_back(Clock::now());
      step = steps_[std::min(call, steps_.size() - 1)];
    }
    return step();
  }
  [[nodiscard]] std::vector<Clock::time_point> call_times() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }
  [[nodiscard]] std::size_t calls() const { return call_times().size(); }
  /// Time between a call and the one before it.
  [[nodiscard]] Clock::duration wait_before(std::size_t call) const {
    const auto times = call_times();
    return times.at(call) - times.at(call - 1);
  }

 private:
  const std::vector<FactoryStep> steps_;
  mutable std::mutex mutex_;
  std::vector<Clock::time_point> calls_;
};

/// A consumer that would rather wait than get a stale frame; an outage that is over at once.
ReconnectingConfig patient(ScriptedFactory& factory) {
  return {.factory = [&factory] { return factory.make(); },
          .read_timeout_s = kForever,
          .initial_backoff_s = 0.001F,
          .max_backoff_s = 0.001F};
}

/// Stale frames come soon.
ReconnectingConfig impatient(ScriptedFactory& factory) {
  auto config = patient(factory);
  config.read_timeout_s = 0.015625F;
  return config;
}

void expect_values_of(const Frame& frame, std::uint64_t seq) {
  const Frame expected = numbered(seq);
  EXPECT_EQ(frame.seq, expected.seq);
  EXPECT_EQ(frame.q, expected.q);
  EXPECT_EQ(frame.touch, expected.touch);
  ASSERT_EQ(frame.imu.size(), 1U);
  EXPECT_EQ(frame.imu[0].acc, expected.imu[0].acc);
  EXPECT_EQ(frame.imu[0].gyro, expected.imu[0].gyro);
}

/// Reads past stale frames.
Frame next_fresh(ReconnectingSource& source) {
  Frame frame = source.read_frame();
  const auto deadline = Clock::now() + kPatience;
  while (frame.stale && Clock::now() < deadline) frame = source.read_frame();
  EXPECT_FALSE(frame.stale);
  return frame;
}

void expect_at_its_end(ReconnectingSource& source) {
  EXPECT_THAT([&] { source.read_frame(); },
              ThrowsMessage<StreamUnderrunError>(StrEq("ReconnectingSource: closed")));
  EXPECT_FALSE(source.is_open());
}

template <typename Action>
Clock::duration time_of(Action action) {
  const auto begin = Clock::now();
  action();
  return Clock::now() - begin;
}

}  // namespace

TEST(ReconnectingConfig, has_the_defaults_of_the_tool) {
  const ReconnectingConfig config;
  EXPECT_FALSE(config.factory);
  EXPECT_EQ(config.read_timeout_s, 2.0F);
  EXPECT_EQ(config.initial_backoff_s, 0.5F);
  EXPECT_EQ(config.max_backoff_s, 16.0F);
  EXPECT_EQ(config.max_attempts, 4294967295U);
  EXPECT_EQ(config.queue_capacity, 8);
}

// --- Construction ---

TEST(ReconnectingSource, makes_the_first_inner_source_once_and_before_its_construction_ends) {
  const auto inner = std::make_shared<ScriptedSource>("TSL-0042");
  std::thread::id caller;
  ScriptedFactory factory({[&] {
    caller = std::this_thread::get_id();
    return inner;
  }});
  ReconnectingSource source(patient(factory));
  EXPECT_EQ(caller, std::this_thread::get_id());
  EXPECT_TRUE(source.is_open());
  EXPECT_TRUE(eventually([&] { return inner->reads() == 1; }));
  EXPECT_EQ(factory.calls(), 1U);
}

TEST(ReconnectingSource, reports_the_identity_of_its_inner_source) {
  ScriptedFactory factory({gives(std::make_shared<ScriptedSource>("TSL-0042"))});
  const ReconnectingSource source(patient(factory));
  const DeviceInfo info = source.device_info();
  EXPECT_EQ(info.serial, "TSL-0042");
  EXPECT_EQ(info.side, 0);
  EXPECT_EQ(info.firmware, "1.2.3");
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
}

TEST(ReconnectingSource, takes_the_identity_of_a_first_source_that_is_not_open) {
  const auto never_open = std::make_shared<ScriptedSource>("TSL-0042", Behaviour{.open = false});
  ScriptedFactory factory({gives(never_open), fails()});
  const ReconnectingSource source(patient(factory));
  EXPECT_TRUE(eventually([&] { return factory.calls() >= 3; }));
  EXPECT_EQ(source.device_info().serial, "TSL-0042");
  EXPECT_EQ(never_open->reads(), 0U);
  EXPECT_EQ(never_open->closes(), 1U);
}

/// A way in which a factory call may come to nothing.
struct Disappointment {
  const char* name;
  FactoryStep step;
};

class ReconnectingSourceFactory : public testing::TestWithParam<Disappointment> {};

TEST_P(ReconnectingSourceFactory, that_fails_at_first_does_not_fail_the_construction) {
  const auto inner = std::make_shared<ScriptedSource>("TSL-0042");
  inner->deliver(numbered(7));
  ScriptedFactory factory({GetParam().step, gives(inner)});
  ReconnectingSource source(patient(factory));
  EXPECT_TRUE(source.is_open());
  expect_values_of(source.read_frame(), 7);
  EXPECT_EQ(source.device_info().serial, "TSL-0042");
  EXPECT_EQ(factory.calls(), 2U);
}

TEST_P(ReconnectingSourceFactory, that_fails_later_is_tried_again) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001");
  first->fail();
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(7));
  ScriptedFactory factory({gives(first), GetParam().step, GetParam().step, gives(second)});
  ReconnectingSource source(patient(factory));
  expect_values_of(source.read_frame(), 7);
  EXPECT_EQ(factory.calls(), 4U);
}

TEST_P(ReconnectingSourceFactory, that_keeps_failing_uses_up_the_attempts) {
  ScriptedFactory factory({fails(), GetParam().step});
  auto config = patient(factory);
  config.max_attempts = 3;
  ReconnectingSource source(std::move(config));
  EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
  expect_at_its_end(source);
  EXPECT_EQ(factory.calls(), 1U + 3U);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, ReconnectingSourceFactory,
    testing::Values(Disappointment{"null", [] { return nullptr; }}, Disappointment{"error", fails()},
                    Disappointment{"odd_error", []() -> std::shared_ptr<IDataSource> { throw 42; }},
                    Disappointment{"not_open",
                                   [] {
                                     return std::make_shared<ScriptedSource>("TSL-0003",
                                                                             Behaviour{.open = false});
                                   }},
                    Disappointment{"is_open_throws",
                                   [] {
                                     return std::make_shared<ScriptedSource>(
                                         "TSL-0003", Behaviour{.on_is_open = [] { throw 42; }});
                                   }},
                    Disappointment{"device_info_throws",
                                   [] {
                                     return std::make_shared<ScriptedSource>(
                                         "TSL-0003", Behaviour{.on_device_info = [] { throw 42; }});
                                   }}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(ReconnectingSource, has_a_default_identity_as_long_as_no_factory_call_succeeded) {
  ScriptedFactory factory({fails()});
  const ReconnectingSource source(patient(factory));
  EXPECT_TRUE(eventually([&] { return factory.calls() >= 3; }));
  const DeviceInfo info = source.device_info();
  EXPECT_EQ(info.serial, "");
  EXPECT_EQ(info.side, 1);
  EXPECT_EQ(info.firmware, "");
  EXPECT_EQ(info.n_dofs, 0);
  EXPECT_EQ(info.n_pads, 0);
  EXPECT_EQ(info.n_imu, 0);
}

TEST(ReconnectingSource, without_a_factory_repeats_an_empty_frame_until_closed) {
  ReconnectingSource source({.read_timeout_s = 0.001F});
  EXPECT_TRUE(source.is_open());
  EXPECT_TRUE(source.read_frame().stale);
  EXPECT_EQ(source.device_info().serial, "");
  source.close();
  expect_at_its_end(source);
}

TEST(ReconnectingSource, without_a_factory_uses_up_its_attempts) {
  const auto begin = Clock::now();
  ReconnectingSource source({.initial_backoff_s = 0.015625F, .max_attempts = 2});
  EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
  EXPECT_GE(Clock::now() - begin, 15625us + 31250us);
  expect_at_its_end(source);
}

// --- Frames ---

TEST(ReconnectingSource, hands_on_frames_unchanged_and_in_order) {
  const auto inner = std::make_shared<ScriptedSource>();
  inner->deliver(numbered(3));
  Frame repeated = numbered(3);
  repeated.stale = true;
  inner->deliver(repeated);
  inner->deliver(numbered(9));
  ScriptedFactory factory({gives(inner)});
  ReconnectingSource source(patient(factory));

  const Frame first = source.read_frame();
  expect_values_of(first, 3);
  EXPECT_EQ(first.t, 1003.0);
  EXPECT_FALSE(first.stale);
  EXPECT_THAT(first.status_lo, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(first.status_hi, ElementsAre(6, 7, 8, 9, 10));

  const Frame second = source.read_frame();
  EXPECT_TRUE(second.stale);
  EXPECT_EQ(second.t, 1003.0);
  EXPECT_THAT(second.status_lo, ElementsAre(1, 2, 3, 4, 5));

  const Frame third = source.read_frame();
  expect_values_of(third, 9);
  EXPECT_FALSE(third.stale);
}

TEST(ReconnectingSource, repeats_an_empty_frame_before_the_first) {
  ScriptedFactory factory({fails()});
  ReconnectingSource source(impatient(factory));
  const double before = detail::wall_clock_seconds();
  Frame frame;
  const auto waited = time_of([&] { frame = source.read_frame(); });
  EXPECT_GE(waited, 15625us);
  EXPECT_TRUE(frame.stale);
  EXPECT_EQ(frame.seq, 0U);
  EXPECT_THAT(frame.q, IsEmpty());
  EXPECT_THAT(frame.touch, IsEmpty());
  EXPECT_THAT(frame.imu, IsEmpty());
  EXPECT_THAT(frame.status_lo, Each(0x0F));
  EXPECT_THAT(frame.status_hi, Each(0));
  EXPECT_GE(frame.t, before);
  EXPECT_LE(frame.t, detail::wall_clock_seconds());
}

TEST(ReconnectingSource, repeats_values_and_number_of_the_last_frame_but_not_its_time_and_status) {
  const auto inner = std::make_shared<ScriptedSource>();
  inner->deliver(numbered(5));
  inner->deliver(numbered(6));
  ScriptedFactory factory({gives(inner), fails()});
  ReconnectingSource source(impatient(factory));
  expect_values_of(next_fresh(source), 5);
  expect_values_of(next_fresh(source), 6);
  double previous = detail::wall_clock_seconds();
  for (int repetition = 0; repetition < 3; ++repetition) {
    Frame stale;
    const auto waited = time_of([&] { stale = source.read_frame(); });
    EXPECT_GE(waited, 15625us);
    EXPECT_TRUE(stale.stale);
    EXPECT_EQ(stale.seq, 6U);
    EXPECT_THAT(stale.q, ElementsAre(6.25F, 6.5F));
    EXPECT_THAT(stale.touch, ElementsAre(6.75F));
    ASSERT_EQ(stale.imu.size(), 1U);
    EXPECT_THAT(stale.imu[0].acc, ElementsAre(6.0F, 1.0F, 2.0F));
    EXPECT_THAT(stale.imu[0].gyro, ElementsAre(3.0F, 4.0F, 6.0F));
    EXPECT_THAT(stale.status_lo, Each(0x0F));
    EXPECT_THAT(stale.status_hi, Each(0));
    EXPECT_GT(stale.t, previous);
    EXPECT_LE(stale.t, detail::wall_clock_seconds());
    previous = stale.t;
  }
}

TEST(ReconnectingSource, repeats_the_values_of_a_repetition_from_inside_too) {
  const auto inner = std::make_shared<ScriptedSource>();
  Frame repeated = numbered(4);
  repeated.stale = true;
  inner->deliver(repeated);
  ScriptedFactory factory({gives(inner), fails()});
  ReconnectingSource source(impatient(factory));
  EXPECT_TRUE(eventually([&] { return inner->reads() == 2; }));
  const Frame from_inside = source.read_frame();
  EXPECT_TRUE(from_inside.stale);
  EXPECT_EQ(from_inside.t, 1004.0);
  expect_values_of(source.read_frame(), 4);
}

TEST(ReconnectingSource, keeps_the_eight_oldest_frames_for_a_slow_consumer) {
  const auto inner = std::make_shared<ScriptedSource>();
  for (std::uint64_t seq = 0; seq < 12; ++seq) inner->deliver(numbered(seq));
  ScriptedFactory factory({gives(inner)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 13; }));
  for (std::uint64_t seq = 0; seq < 8; ++seq) expect_values_of(source.read_frame(), seq);
  inner->deliver(numbered(12));
  expect_values_of(source.read_frame(), 12);
}

TEST(ReconnectingSource, has_room_again_as_soon_as_one_frame_is_taken) {
  const auto inner = std::make_shared<ScriptedSource>();
  for (std::uint64_t seq = 0; seq < 9; ++seq) inner->deliver(numbered(seq));
  ScriptedFactory factory({gives(inner)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 10; }));
  expect_values_of(source.read_frame(), 0);
  inner->deliver(numbered(9));
  inner->deliver(numbered(10));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 12; }));
  for (const std::uint64_t seq : {1, 2, 3, 4, 5, 6, 7, 9}) expect_values_of(source.read_frame(), seq);
}

TEST(ReconnectingSource, with_room_for_one_frame_keeps_the_oldest_and_repeats_that) {
  const auto inner = std::make_shared<ScriptedSource>();
  for (std::uint64_t seq = 1; seq <= 3; ++seq) inner->deliver(numbered(seq));
  ScriptedFactory factory({gives(inner), fails()});
  auto config = impatient(factory);
  config.queue_capacity = 1;
  ReconnectingSource source(std::move(config));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 4; }));
  const Frame fresh = source.read_frame();
  EXPECT_FALSE(fresh.stale);
  expect_values_of(fresh, 1);
  const Frame stale = source.read_frame();
  EXPECT_TRUE(stale.stale);
  expect_values_of(stale, 1);
}

TEST(ReconnectingSource, with_no_room_keeps_no_frame) {
  for (const std::int32_t capacity : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    const auto inner = std::make_shared<ScriptedSource>();
    inner->deliver(numbered(1));
    inner->deliver(numbered(2));
    ScriptedFactory factory({gives(inner), fails()});
    auto config = impatient(factory);
    config.queue_capacity = capacity;
    ReconnectingSource source(std::move(config));
    ASSERT_TRUE(eventually([&] { return inner->reads() == 3; }));
    const Frame frame = source.read_frame();
    EXPECT_TRUE(frame.stale);
    EXPECT_EQ(frame.seq, 0U);
    EXPECT_THAT(frame.q, IsEmpty());
    source.close();
    expect_at_its_end(source);
  }
}

TEST(ReconnectingSource, gives_what_is_queued_before_it_reports_the_end) {
  const auto inner = std::make_shared<ScriptedSource>();
  for (std::uint64_t seq = 1; seq <= 3; ++seq) inner->deliver(numbered(seq));
  ScriptedFactory factory({gives(inner)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 4; }));
  source.close();
  EXPECT_FALSE(source.is_open());
  for (std::uint64_t seq = 1; seq <= 3; ++seq) expect_values_of(source.read_frame(), seq);
  expect_at_its_end(source);
  expect_at_its_end(source);
}

TEST(ReconnectingSource, does_not_queue_a_frame_that_comes_after_the_close) {
  const auto inner = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.deaf = true});
  ScriptedFactory factory({gives(inner)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return inner->reads() == 1; }));
  auto closing = std::async(std::launch::async, [&] { source.close(); });
  ASSERT_TRUE(eventually([&] { return inner->closes() == 1; }));
  inner->deliver(numbered(1));
  closing.get();
  expect_at_its_end(source);
}

// --- Loss and reconnection ---

/// A way in which an inner source may be lost, after it has delivered frame 1.
struct Loss {
  const char* name;
  std::function<void(ScriptedSource&)> lose;
  Behaviour behaviour = {};
};

class ReconnectingSourceLoss : public testing::TestWithParam<Loss> {};

TEST_P(ReconnectingSourceLoss, is_bridged_by_stale_frames_until_the_glove_is_back) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001", GetParam().behaviour);
  first->deliver(numbered(1));
  GetParam().lose(*first);
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(100));
  std::atomic<bool> plugged_in = false;
  ScriptedFactory factory({gives(first), [&]() -> std::shared_ptr<IDataSource> {
                             if (!plugged_in) return nullptr;
                             return second;
                           }});
  ReconnectingSource source(impatient(factory));

  expect_values_of(next_fresh(source), 1);
  for (int repetition = 0; repetition < 3; ++repetition) {
    const Frame stale = source.read_frame();
    EXPECT_TRUE(stale.stale);
    expect_values_of(stale, 1);
    EXPECT_TRUE(source.is_open());
    EXPECT_EQ(source.device_info().serial, "TSL-0001");
  }
  ASSERT_TRUE(eventually([&] { return factory.calls() >= 3; }));
  plugged_in = true;
  expect_values_of(next_fresh(source), 100);
  EXPECT_EQ(source.device_info().serial, "TSL-0002");
  EXPECT_EQ(first->closes(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, ReconnectingSourceLoss,
    testing::Values(Loss{"underrun",
                         [](auto& inner) {
                           inner.then([]() -> Frame { throw StreamUnderrunError("gone"); });
                         }},
                    Loss{"error", [](auto& inner) { inner.fail(); }},
                    Loss{"number_thrown", [](auto& inner) { inner.then([]() -> Frame { throw 42; }); }},
                    Loss{"text_thrown", [](auto& inner) { inner.then([]() -> Frame { throw "gone"; }); }},
                    Loss{"close_throws", [](auto& inner) { inner.fail(); },
                         Behaviour{.on_close = [] { throw std::runtime_error("cannot close"); }}},
                    Loss{"close_throws_a_number", [](auto& inner) { inner.fail(); },
                         Behaviour{.on_close = [] { throw 42; }}}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(ReconnectingSource, replaces_a_source_that_is_no_longer_open_without_another_read) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001");
  first->deliver_and_stop(numbered(1));
  first->deliver(numbered(2));
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(100));
  ScriptedFactory factory({gives(first), gives(second)});
  ReconnectingSource source(patient(factory));
  expect_values_of(source.read_frame(), 1);
  expect_values_of(source.read_frame(), 100);
  EXPECT_EQ(first->reads(), 1U);
  EXPECT_EQ(first->closes(), 1U);
}

TEST(ReconnectingSource, replaces_a_source_whose_is_open_throws) {
  const auto looks = std::make_shared<std::atomic<int>>(0);
  const auto first = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.on_is_open = [looks] {
                                                        if (++*looks > 1) throw 42;
                                                      }});
  first->deliver(numbered(1));
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(100));
  ScriptedFactory factory({gives(first), gives(second)});
  ReconnectingSource source(patient(factory));
  expect_values_of(source.read_frame(), 1);
  expect_values_of(source.read_frame(), 100);
  EXPECT_EQ(first->closes(), 1U);
}

TEST(ReconnectingSource, closes_a_lost_source_once_and_before_it_asks_for_another) {
  Journal journal;
  auto made = [&](const char* serial) {
    auto inner = std::make_shared<ScriptedSource>(
        serial, Behaviour{.on_close = [&journal, serial] { journal.add(std::string("close ") + serial); }});
    inner->deliver(numbered(1));
    inner->fail();
    return [&journal, serial, inner]() -> std::shared_ptr<IDataSource> {
      journal.add(std::string("make ") + serial);
      return inner;
    };
  };
  const auto last = std::make_shared<ScriptedSource>("last");
  last->deliver(numbered(9));
  ScriptedFactory factory({made("A"), made("B"),
                           [&]() -> std::shared_ptr<IDataSource> {
                             journal.add("make nothing");
                             return nullptr;
                           },
                           made("C"), gives(last)});
  ReconnectingSource source(patient(factory));
  for (const std::uint64_t seq : {1, 1, 1, 9}) expect_values_of(source.read_frame(), seq);
  EXPECT_THAT(journal.entries(),
              ElementsAre("make A", "close A", "make B", "close B", "make nothing", "make C", "close C"));
  EXPECT_EQ(last->closes(), 0U);
  source.close();
  EXPECT_EQ(last->closes(), 1U);
}

TEST(ReconnectingSource, holds_no_lost_or_refused_source_when_it_asks_for_another) {
  std::mutex mutex;
  std::vector<std::weak_ptr<ScriptedSource>> given;
  std::vector<long> holders;
  const std::vector<std::function<std::shared_ptr<ScriptedSource>()>> scripts{
      [] { return std::make_shared<ScriptedSource>("A", Behaviour{.on_device_info = [] { throw 42; }}); },
      [] { return std::make_shared<ScriptedSource>("B", Behaviour{.open = false}); },
      [] { return std::make_shared<ScriptedSource>("C", Behaviour{.on_device_info = [] { throw 42; }}); },
      [] { return std::make_shared<ScriptedSource>("D", Behaviour{.on_is_open = [] { throw 42; }}); },
      [] {
        auto failing = std::make_shared<ScriptedSource>("E");
        failing->fail();
        return failing;
      },
      [] {
        auto last = std::make_shared<ScriptedSource>("F");
        last->deliver(numbered(1));
        return last;
      }};
  ScriptedFactory factory({[&]() -> std::shared_ptr<IDataSource> {
    const std::lock_guard lock(mutex);
    long held = 0;
    for (const auto& earlier : given) held += earlier.use_count();
    holders.push_back(held);
    auto source = scripts[std::min(given.size(), scripts.size() - 1)]();
    given.emplace_back(source);
    return source;
  }});
  ReconnectingSource source(patient(factory));
  expect_values_of(source.read_frame(), 1);
  const std::lock_guard lock(mutex);
  EXPECT_THAT(holders, ElementsAre(0, 0, 0, 0, 0, 0));
}

TEST(ReconnectingSource, takes_the_identity_of_each_new_source_but_not_of_one_it_refuses) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001");
  const auto refused = std::make_shared<ScriptedSource>("TSL-0002", Behaviour{.open = false});
  const auto second = std::make_shared<ScriptedSource>("TSL-0003");
  std::atomic<bool> plugged_in = false;
  ScriptedFactory factory({gives(first), [&]() -> std::shared_ptr<IDataSource> {
                             if (plugged_in) return second;
                             return refused;
                           }});
  ReconnectingSource source(patient(factory));
  EXPECT_EQ(source.device_info().serial, "TSL-0001");
  first->fail();
  ASSERT_TRUE(eventually([&] { return factory.calls() >= 4; }));
  EXPECT_EQ(source.device_info().serial, "TSL-0001");
  EXPECT_EQ(refused->reads(), 0U);
  plugged_in = true;
  ASSERT_TRUE(eventually([&] { return second->reads() == 1; }));
  EXPECT_EQ(source.device_info().serial, "TSL-0003");
  source.close();
  EXPECT_EQ(source.device_info().serial, "TSL-0003");
}

TEST(ReconnectingSource, keeps_queued_frames_across_a_reconnection) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001");
  first->deliver(numbered(1));
  first->deliver(numbered(2));
  first->fail();
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(50));
  ScriptedFactory factory({gives(first), gives(second)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return second->reads() == 2; }));
  for (const std::uint64_t seq : {1, 2, 50}) expect_values_of(source.read_frame(), seq);
}

TEST(ReconnectingSource, serves_the_consumer_while_the_factory_takes_its_time) {
  Gate gate;
  const auto inner = std::make_shared<ScriptedSource>("TSL-0002");
  inner->deliver(numbered(1));
  ScriptedFactory factory({fails(), [&]() -> std::shared_ptr<IDataSource> {
                             gate.wait();
                             return inner;
                           }});
  ReconnectingSource source(impatient(factory));
  ASSERT_TRUE(eventually([&] { return gate.reached(); }));
  const auto served = time_of([&] {
    EXPECT_TRUE(source.read_frame().stale);
    EXPECT_TRUE(source.is_open());
    EXPECT_EQ(source.device_info().serial, "");
  });
  EXPECT_LT(served, kPrompt);
  gate.open();
  expect_values_of(next_fresh(source), 1);
}

// --- Back-off ---

TEST(ReconnectingSource, waits_before_every_attempt_and_twice_as_long_each_time) {
  ScriptedFactory factory({fails()});
  auto config = patient(factory);
  config.initial_backoff_s = 0.015625F;
  config.max_backoff_s = 16.0F;
  const ReconnectingSource source(std::move(config));
  ASSERT_TRUE(eventually([&] { return factory.calls() >= 6; }));
  EXPECT_GE(factory.wait_before(1), 15625us);
  EXPECT_GE(factory.wait_before(2), 31250us);
  EXPECT_GE(factory.wait_before(3), 62500us);
  EXPECT_GE(factory.wait_before(4), 125ms);
  EXPECT_GE(factory.wait_before(5), 250ms);
}

TEST(ReconnectingSource, waits_no_longer_than_the_longest_back_off) {
  ScriptedFactory factory({fails()});
  auto config = patient(factory);
  config.initial_backoff_s = 0.015625F;
  config.max_backoff_s = 0.046875F;
  const ReconnectingSource source(std::move(config));
  // Unlimited doubling would take more than a minute.
  ASSERT_TRUE(eventually([&] { return factory.calls() >= 13; }));
  EXPECT_GE(factory.wait_before(1), 15625us);
  EXPECT_GE(factory.wait_before(2), 31250us);
  for (std::size_t call = 3; call < 13; ++call) EXPECT_GE(factory.wait_before(call), 46875us);
}

TEST(ReconnectingSource, waits_a_first_back_off_that_exceeds_the_longest_once) {
  ScriptedFactory factory({fails()});
  auto config = patient(factory);
  config.initial_backoff_s = 0.5F;
  config.max_backoff_s = 0.0009765625F;
  const ReconnectingSource source(std::move(config));
  // A wait of the first one's length before each of them would take 50 seconds.
  ASSERT_TRUE(eventually([&] { return factory.calls() >= 101; }));
  EXPECT_GE(factory.wait_before(1), 500ms);
  for (std::size_t call = 2; call < 101; ++call) EXPECT_GE(factory.wait_before(call), 976562ns);
}

TEST(ReconnectingSource, begins_every_outage_with_the_first_back_off_and_all_attempts) {
  auto failing = [] {
    auto inner = std::make_shared<ScriptedSource>();
    inner->fail();
    return inner;
  };
  const auto last = std::make_shared<ScriptedSource>("TSL-0009");
  last->deliver(numbered(1));
  ScriptedFactory factory({gives(failing()), fails(), fails(), gives(failing()), fails(), fails(),
                           gives(failing()), fails(), fails(), gives(last)});
  auto config = patient(factory);
  config.initial_backoff_s = 0.125F;
  config.max_backoff_s = 0.001F;
  config.max_attempts = 3;
  ReconnectingSource source(std::move(config));
  expect_values_of(source.read_frame(), 1);
  for (const std::size_t call : {1U, 4U, 7U}) EXPECT_GE(factory.wait_before(call), 125ms);
  EXPECT_TRUE(source.is_open());
}

TEST(ReconnectingSource, waits_before_it_replaces_a_source_that_was_lost) {
  const auto first = std::make_shared<ScriptedSource>("TSL-0001");
  first->fail();
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  ScriptedFactory factory({gives(first), gives(second)});
  auto config = patient(factory);
  config.initial_backoff_s = 0.125F;
  const ReconnectingSource source(std::move(config));
  ASSERT_TRUE(eventually([&] { return factory.calls() == 2; }));
  EXPECT_GE(factory.call_times()[1] - first->close_times().at(0), 125ms);
}

// --- Giving up ---

TEST(ReconnectingSource, gives_up_after_waits_of_a_half_one_and_two_seconds_if_it_has_three_attempts) {
  ScriptedFactory factory({fails()});
  ReconnectingSource source({.factory = [&factory] { return factory.make(); }, .max_attempts = 3});
  EXPECT_TRUE(source.is_open());
  EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
  ASSERT_EQ(factory.calls(), 4U);
  EXPECT_GE(factory.wait_before(1), 500ms);
  EXPECT_GE(factory.wait_before(2), 1000ms);
  EXPECT_GE(factory.wait_before(3), 2000ms);
  expect_at_its_end(source);
}

TEST(ReconnectingSource, makes_exactly_as_many_attempts_as_it_has) {
  for (const std::uint32_t attempts : {0U, 1U, 3U, 10U}) {
    ScriptedFactory factory({fails()});
    auto config = patient(factory);
    config.max_attempts = attempts;
    ReconnectingSource source(std::move(config));
    EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
    expect_at_its_end(source);
    source.close();
    EXPECT_EQ(factory.calls(), 1U + attempts);
  }
}

TEST(ReconnectingSource, without_attempts_gives_up_without_a_wait) {
  const auto inner = std::make_shared<ScriptedSource>();
  inner->fail();
  ScriptedFactory factory({gives(inner)});
  auto config = patient(factory);
  config.initial_backoff_s = kForever;
  config.max_attempts = 0;
  ReconnectingSource source(std::move(config));
  EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
  expect_at_its_end(source);
  EXPECT_EQ(factory.calls(), 1U);
  EXPECT_EQ(inner->closes(), 1U);
}

TEST(ReconnectingSource, gives_what_is_queued_after_it_has_given_up) {
  const auto inner = std::make_shared<ScriptedSource>("TSL-0042");
  for (std::uint64_t seq = 1; seq <= 3; ++seq) inner->deliver(numbered(seq));
  inner->fail();
  ScriptedFactory factory({gives(inner), fails()});
  auto config = patient(factory);
  config.max_attempts = 1;
  ReconnectingSource source(std::move(config));
  ASSERT_TRUE(eventually([&] { return !source.is_open(); }));
  for (std::uint64_t seq = 1; seq <= 3; ++seq) expect_values_of(source.read_frame(), seq);
  expect_at_its_end(source);
  EXPECT_EQ(source.device_info().serial, "TSL-0042");
}

TEST(ReconnectingSource, wakes_a_waiting_consumer_when_it_gives_up) {
  const auto inner = std::make_shared<ScriptedSource>();
  ScriptedFactory factory({gives(inner), fails()});
  auto config = patient(factory);
  config.max_attempts = 2;
  ReconnectingSource source(std::move(config));
  auto reading = std::async(std::launch::async, [&] { expect_at_its_end(source); });
  ASSERT_TRUE(eventually([&] { return inner->reads() == 1; }));
  inner->fail();
  EXPECT_EQ(reading.wait_for(kPatience), std::future_status::ready);
}

// --- Watchdog ---

TEST(ReconnectingSource, breaks_an_inner_read_that_hangs_for_more_than_two_seconds) {
  const auto hanging = std::make_shared<ScriptedSource>("TSL-0001");
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(1));
  ScriptedFactory factory({gives(hanging), gives(second)});
  const auto begin = Clock::now();
  ReconnectingSource source({.factory = [&factory] { return factory.make(); }});
  expect_values_of(next_fresh(source), 1);
  // The watchdog goes by the wall clock, which may run a little faster than the one here.
  EXPECT_GE(hanging->close_times().at(0) - begin, 1990ms);
  EXPECT_LT(hanging->close_times().at(0) - begin, 15s);
  EXPECT_EQ(source.device_info().serial, "TSL-0002");
}

TEST(ReconnectingSource, takes_into_account_only_the_read_in_progress) {
  const auto inner = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.endless = true});
  ScriptedFactory factory({gives(inner), fails()});
  ReconnectingSource source({.factory = [&factory] { return factory.make(); }});
  const auto begin = Clock::now();
  while (Clock::now() - begin < 3s) EXPECT_FALSE(source.read_frame().stale);
  EXPECT_EQ(inner->closes(), 0U);
  EXPECT_EQ(factory.calls(), 1U);
}

TEST(ReconnectingSource, never_breaks_a_read_if_it_is_to_wait_for_ever) {
  for (const float timeout : {kForever, std::numeric_limits<float>::max()}) {
    const auto inner = std::make_shared<ScriptedSource>();
    ScriptedFactory factory({gives(inner), fails()});
    auto config = patient(factory);
    config.read_timeout_s = timeout;
    ReconnectingSource source(std::move(config));
    auto reading = std::async(std::launch::async, [&] { return source.read_frame(); });
    // Two rounds of the watchdog.
    EXPECT_EQ(reading.wait_for(1200ms), std::future_status::timeout);
    EXPECT_EQ(inner->closes(), 0U);
    inner->deliver(numbered(1));
    const Frame frame = reading.get();
    EXPECT_FALSE(frame.stale);
    expect_values_of(frame, 1);
  }
}

TEST(ReconnectingSource, survives_a_close_that_throws_while_a_read_hangs) {
  const std::array<std::function<void()>, 2> throws{[] { throw std::runtime_error("cannot close"); },
                                                    [] { throw 42; }};
  for (const auto& on_close : throws) {
    const auto hanging = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.on_close = on_close});
    const auto second = std::make_shared<ScriptedSource>("TSL-0002");
    second->deliver(numbered(1));
    ScriptedFactory factory({gives(hanging), gives(second), fails()});
    ReconnectingSource source(impatient(factory));
    expect_values_of(next_fresh(source), 1);
    EXPECT_GE(hanging->closes(), 1U);
  }
}

TEST(ReconnectingSource, serves_the_consumer_while_a_hanging_source_is_slow_to_close) {
  Gate gate;
  const auto hanging =
      std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.deaf = true, .on_close = [&] { gate.wait(); }});
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(1));
  ScriptedFactory factory({gives(hanging), gives(second), fails()});
  ReconnectingSource source(impatient(factory));
  ASSERT_TRUE(eventually([&] { return gate.reached(); }));
  const auto served = time_of([&] {
    EXPECT_TRUE(source.read_frame().stale);
    EXPECT_TRUE(source.is_open());
    EXPECT_EQ(source.device_info().serial, "TSL-0001");
  });
  EXPECT_LT(served, kPrompt);
  gate.open();
  hanging->fail();
  expect_values_of(next_fresh(source), 1);
}

TEST(ReconnectingSource, repeats_frames_for_as_long_as_a_read_does_not_notice_that_it_was_closed) {
  const auto deaf = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.deaf = true});
  const auto second = std::make_shared<ScriptedSource>("TSL-0002");
  second->deliver(numbered(100));
  deaf->deliver(numbered(1));
  ScriptedFactory factory({gives(deaf), gives(second), fails()});
  ReconnectingSource source(impatient(factory));
  expect_values_of(next_fresh(source), 1);
  ASSERT_TRUE(eventually([&] { return deaf->closes() >= 2; }));
  EXPECT_EQ(factory.calls(), 1U);
  const Frame stale = source.read_frame();
  EXPECT_TRUE(stale.stale);
  expect_values_of(stale, 1);
  // What the read brings in the end still counts; then the source is seen to be closed.
  deaf->deliver(numbered(2));
  expect_values_of(next_fresh(source), 2);
  expect_values_of(next_fresh(source), 100);
}

// --- Times that are no times ---

TEST(ReconnectingSource, repeats_a_frame_at_once_if_the_read_timeout_is_no_time) {
  for (const float timeout : {0.0F, -1.0F, -kForever, kNaN}) {
    ScriptedFactory factory({fails()});
    auto config = patient(factory);
    config.read_timeout_s = timeout;
    ReconnectingSource source(std::move(config));
    for (int repetition = 0; repetition < 10; ++repetition) EXPECT_TRUE(source.read_frame().stale);
    EXPECT_TRUE(source.is_open());
    source.close();
    expect_at_its_end(source);
  }
}

TEST(ReconnectingSource, still_delivers_frames_if_the_read_timeout_is_no_time) {
  for (const float timeout : {0.0F, -1.0F, -kForever, kNaN}) {
    ScriptedFactory factory({[]() -> std::shared_ptr<IDataSource> {
      auto inner = std::make_shared<ScriptedSource>();
      inner->deliver(numbered(1));
      return inner;
    }});
    auto config = patient(factory);
    config.read_timeout_s = timeout;
    ReconnectingSource source(std::move(config));
    expect_values_of(next_fresh(source), 1);
  }
}

TEST(ReconnectingSource, attempts_at_once_if_the_back_off_is_no_time) {
  const std::vector<std::pair<float, float>> no_times{{0.0F, 0.0F},           {-1.0F, -1.0F}, {kNaN, kNaN},
                                                      {-kForever, -kForever}, {0.001F, kNaN}, {kNaN, 0.001F},
                                                      {0.0F, kForever},       {0.001F, -1.0F}};
  for (const auto& [initial, longest] : no_times) {
    ScriptedFactory factory({fails()});
    auto config = patient(factory);
    config.initial_backoff_s = initial;
    config.max_backoff_s = longest;
    config.max_attempts = 20;
    ReconnectingSource source(std::move(config));
    EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
    EXPECT_EQ(factory.calls(), 21U);
    expect_at_its_end(source);
  }
}

TEST(ReconnectingSource, makes_no_attempt_while_the_back_off_lasts_for_ever) {
  for (const float backoff : {kForever, std::numeric_limits<float>::max(), 1e10F}) {
    ScriptedFactory factory({fails()});
    auto config = impatient(factory);
    config.initial_backoff_s = backoff;
    config.max_backoff_s = backoff;
    ReconnectingSource source(std::move(config));
    for (int repetition = 0; repetition < 4; ++repetition) EXPECT_TRUE(source.read_frame().stale);
    EXPECT_EQ(factory.calls(), 1U);
    EXPECT_LT(time_of([&] { source.close(); }), kPrompt);
    EXPECT_EQ(factory.calls(), 1U);
  }
}

TEST(ReconnectingSource, goes_on_doubling_if_there_is_no_longest_back_off) {
  ScriptedFactory factory({fails()});
  auto config = patient(factory);
  config.initial_backoff_s = 0.015625F;
  config.max_backoff_s = kForever;
  config.max_attempts = 4;
  ReconnectingSource source(std::move(config));
  EXPECT_TRUE(eventually([&] { return !source.is_open(); }));
  ASSERT_EQ(factory.calls(), 5U);
  EXPECT_GE(factory.wait_before(4), 125ms);
}

// --- Closing ---

namespace {

/// A reconnecting source together with what it runs on. After the first inner source there is no other.
struct Stage {
  explicit Stage(Behaviour behaviour = {}) : inner(std::make_shared<ScriptedSource>("A", behaviour)) {}

  void start(ReconnectingConfig config) { source = std::make_unique<ReconnectingSource>(std::move(config)); }

  std::shared_ptr<ScriptedSource> inner;
  ScriptedFactory factory{{gives(inner), fails()}};
  std::unique_ptr<ReconnectingSource> source;
};

/// A state in which a source may be closed.
struct State {
  const char* name;
  /// Makes a source that comes into the state by itself.
  std::function<std::unique_ptr<Stage>()> make;
  /// Whether it is there.
  std::function<bool(const Stage&)> reached;
};

std::unique_ptr<Stage> delivering() {
  auto stage = std::make_unique<Stage>(Behaviour{.endless = true});
  stage->start(patient(stage->factory));
  return stage;
}

std::unique_ptr<Stage> hanging() {
  auto stage = std::make_unique<Stage>();
  stage->start(patient(stage->factory));
  return stage;
}

std::unique_ptr<Stage> backing_off(float seconds) {
  auto stage = std::make_unique<Stage>();
  stage->inner->fail();
  auto config = patient(stage->factory);
  config.initial_backoff_s = seconds;
  stage->start(std::move(config));
  return stage;
}

std::unique_ptr<Stage> given_up() {
  auto stage = std::make_unique<Stage>();
  stage->inner->fail();
  auto config = patient(stage->factory);
  config.max_attempts = 1;
  stage->start(std::move(config));
  return stage;
}

std::unique_ptr<Stage> closed() {
  auto stage = hanging();
  stage->source->close();
  return stage;
}

bool has_lost_its_inner_source(const Stage& stage) {
  return stage.inner->closes() == 1;
}

bool is_at_its_end(const Stage& stage) {
  return !stage.source->is_open();
}

class ReconnectingSourceState : public testing::TestWithParam<State> {
 protected:
  static std::unique_ptr<Stage> staged() {
    auto stage = GetParam().make();
    EXPECT_TRUE(eventually([&] { return GetParam().reached(*stage); }));
    return stage;
  }
};

}  // namespace

TEST_P(ReconnectingSourceState, does_not_delay_close) {
  const auto stage = staged();
  EXPECT_LT(time_of([&] { stage->source->close(); }), kPrompt);
  EXPECT_FALSE(stage->source->is_open());
}

TEST_P(ReconnectingSourceState, does_not_delay_the_destructor) {
  const auto stage = staged();
  EXPECT_LT(time_of([&] { stage->source.reset(); }), kPrompt);
}

TEST_P(ReconnectingSourceState, allows_several_closes) {
  const auto stage = staged();
  stage->source->close();
  const std::size_t calls = stage->factory.calls();
  EXPECT_LT(time_of([&] { stage->source->close(); }), kPrompt);
  EXPECT_FALSE(stage->source->is_open());
  EXPECT_EQ(stage->factory.calls(), calls);
}

TEST_P(ReconnectingSourceState, allows_closes_from_several_threads_at_once) {
  const auto stage = staged();
  std::vector<std::future<Clock::duration>> closings;
  for (int closer = 0; closer < 4; ++closer) {
    closings.push_back(
        std::async(std::launch::async, [&] { return time_of([&] { stage->source->close(); }); }));
  }
  for (auto& closing : closings) EXPECT_LT(closing.get(), kPrompt);
  EXPECT_FALSE(stage->source->is_open());
}

TEST_P(ReconnectingSourceState, ends_for_a_consumer_in_another_thread_when_closed) {
  const auto stage = staged();
  std::atomic<bool> started = false;
  auto consuming = std::async(std::launch::async, [&] {
    started = true;
    while (true) stage->source->read_frame();
  });
  ASSERT_TRUE(eventually([&] { return started.load(); }));
  EXPECT_LT(time_of([&] { stage->source->close(); }), kPrompt);
  EXPECT_THAT([&] { consuming.get(); },
              ThrowsMessage<StreamUnderrunError>(StrEq("ReconnectingSource: closed")));
}

TEST_P(ReconnectingSourceState, leaves_no_thread_behind) {
  const std::size_t before = test::running_threads();
  for (int round = 0; round < 50; ++round) {
    const auto stage = round % 2 == 0 ? staged() : GetParam().make();
    if (round % 3 == 0) stage->source->close();
  }
  // The kernel lists a thread for a moment longer than a join lasts.
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= before; }));
}

TEST_P(ReconnectingSourceState, may_be_left_at_any_moment) {
  for (int round = 0; round < 50; ++round) {
    const auto stage = GetParam().make();
    for (int look = 0; look < 20 * round; ++look) static_cast<void>(stage->source->device_info());
    ASSERT_LT(time_of([&] { stage->source->close(); }), kPrompt);
  }
}

INSTANTIATE_TEST_SUITE_P(
    States, ReconnectingSourceState,
    testing::Values(
        State{"delivering", delivering, [](const Stage& stage) { return stage.inner->reads() > 20; }},
        State{"hanging", hanging, [](const Stage& stage) { return stage.inner->reads() == 1; }},
        State{"backing_off", [] { return backing_off(16.0F); }, has_lost_its_inner_source},
        State{"backing_off_for_ever", [] { return backing_off(kForever); }, has_lost_its_inner_source},
        State{"attempting", [] { return backing_off(0.0F); },
              [](const Stage& stage) { return stage.factory.calls() >= 10; }},
        State{"given_up", given_up, is_at_its_end}, State{"closed", closed, is_at_its_end}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(ReconnectingSource, closes_its_inner_source_once_when_closed) {
  const auto silent = std::make_shared<ScriptedSource>();
  const auto busy = std::make_shared<ScriptedSource>("TSL-0002", Behaviour{.endless = true});
  for (const auto& inner : {silent, busy}) {
    {
      ScriptedFactory factory({gives(inner)});
      ReconnectingSource source(patient(factory));
      ASSERT_TRUE(eventually([&] { return inner->reads() >= 1; }));
      source.close();
      EXPECT_EQ(inner->closes(), 1U);
      source.close();
      EXPECT_EQ(factory.calls(), 1U);
    }
    EXPECT_EQ(inner->closes(), 1U);
  }
}

TEST(ReconnectingSource, closes_its_inner_source_when_destroyed) {
  const auto inner = std::make_shared<ScriptedSource>();
  ScriptedFactory factory({gives(inner)});
  {
    const ReconnectingSource source(patient(factory));
    ASSERT_TRUE(eventually([&] { return inner->reads() == 1; }));
  }
  EXPECT_EQ(inner->closes(), 1U);
}

TEST(ReconnectingSource, releases_its_inner_source_when_closed) {
  auto inner = std::make_shared<ScriptedSource>();
  const std::weak_ptr<ScriptedSource> watched = inner;
  ReconnectingSource source(
      {.factory = [given = std::move(inner)]() mutable { return std::exchange(given, nullptr); }});
  EXPECT_FALSE(watched.expired());
  source.close();
  EXPECT_TRUE(watched.expired());
}

TEST(ReconnectingSource, keeps_to_itself_that_its_inner_source_cannot_be_closed) {
  const std::array<std::function<void()>, 2> throws{[] { throw std::runtime_error("cannot close"); },
                                                    [] { throw 42; }};
  for (const auto& on_close : throws) {
    const auto inner = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.on_close = on_close});
    ScriptedFactory factory({gives(inner)});
    ReconnectingSource source(patient(factory));
    ASSERT_TRUE(eventually([&] { return inner->reads() == 1; }));
    EXPECT_NO_THROW(source.close());
    EXPECT_EQ(inner->closes(), 1U);
    expect_at_its_end(source);
  }
}

TEST(ReconnectingSource, asks_the_inner_source_to_close_before_it_waits_for_the_read_in_progress) {
  const auto deaf = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.deaf = true});
  ScriptedFactory factory({gives(deaf)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return deaf->reads() == 1; }));
  auto closing = std::async(std::launch::async, [&] { source.close(); });
  EXPECT_TRUE(eventually([&] { return deaf->closes() == 1; }));
  EXPECT_FALSE(source.is_open());
  EXPECT_EQ(closing.wait_for(0s), std::future_status::timeout);
  deaf->fail();
  closing.get();
  expect_at_its_end(source);
}

TEST(ReconnectingSource, wakes_a_consumer_before_it_waits_for_a_read_that_hangs) {
  const auto deaf = std::make_shared<ScriptedSource>("TSL-0001", Behaviour{.deaf = true});
  ScriptedFactory factory({gives(deaf)});
  ReconnectingSource source(patient(factory));
  ASSERT_TRUE(eventually([&] { return deaf->reads() == 1; }));
  auto consuming = std::async(std::launch::async, [&] { expect_at_its_end(source); });
  auto closing = std::async(std::launch::async, [&] { source.close(); });
  EXPECT_EQ(consuming.wait_for(kPrompt), std::future_status::ready);
  deaf->fail();
  closing.get();
}

namespace {

/// A source whose second factory call is waiting at the gate.
struct Overtaken {
  Overtaken()
      : factory({fails(),
                 [this]() -> std::shared_ptr<IDataSource> {
                   gate.wait();
                   return late;
                 }}),
        source(patient(factory)) {}

  Gate gate;
  std::shared_ptr<ScriptedSource> late = std::make_shared<ScriptedSource>("TSL-0002");
  ScriptedFactory factory;
  ReconnectingSource source;
};

void close_during_the_factory_call(Overtaken& overtaken) {
  ASSERT_TRUE(eventually([&] { return overtaken.gate.reached(); }));
  auto closing = std::async(std::launch::async, [&] { overtaken.source.close(); });
  ASSERT_TRUE(eventually([&] { return !overtaken.source.is_open(); }));
  EXPECT_EQ(closing.wait_for(0s), std::future_status::timeout);
  overtaken.gate.open();
  EXPECT_EQ(closing.wait_for(kPrompt), std::future_status::ready);
}

}  // namespace

TEST(ReconnectingSource, waits_for_a_factory_call_in_progress_when_closed_and_does_not_read_its_result) {
  Overtaken overtaken;
  close_during_the_factory_call(overtaken);
  expect_at_its_end(overtaken.source);
  EXPECT_EQ(overtaken.factory.calls(), 2U);
  EXPECT_EQ(overtaken.late->reads(), 0U);
}

TEST(ReconnectingSource, closes_a_source_that_the_factory_made_while_it_was_being_closed) {
  Overtaken overtaken;
  close_during_the_factory_call(overtaken);
  EXPECT_EQ(overtaken.late->closes(), 1U);
}

TEST(ReconnectingSource, is_consistent_for_many_threads_through_many_outages) {
  std::atomic<std::uint64_t> made = 0;
  ScriptedFactory factory({[&]() -> std::shared_ptr<IDataSource> {
    const std::uint64_t number = ++made;
    auto inner = std::make_shared<ScriptedSource>("TSL-" + std::to_string(number));
    for (std::uint64_t frame = 0; frame < 3; ++frame) inner->deliver(numbered(number * 10 + frame));
    inner->fail();
    return inner;
  }});
  auto config = patient(factory);
  config.initial_backoff_s = 0.0F;
  ReconnectingSource source(std::move(config));

  std::atomic<bool> over = false;
  std::vector<std::future<void>> onlookers;
  for (int onlooker = 0; onlooker < 2; ++onlooker) {
    onlookers.push_back(std::async(std::launch::async, [&] {
      while (!over) {
        EXPECT_TRUE(source.is_open());
        EXPECT_THAT(source.device_info().serial, testing::StartsWith("TSL-"));
        std::this_thread::yield();
      }
    }));
  }
  std::uint64_t previous = 0;
  for (int frame = 0; frame < 300; ++frame) {
    const Frame fresh = source.read_frame();
    EXPECT_GT(fresh.seq, previous);
    expect_values_of(fresh, fresh.seq);
    previous = fresh.seq;
  }
  over = true;
  for (auto& onlooker : onlookers) onlooker.get();
  source.close();
  // What was still queued comes out, and no more than fits.
  int left = 0;
  EXPECT_THAT(
      [&] {
        for (;; ++left) source.read_frame();
      },
      ThrowsMessage<StreamUnderrunError>(StrEq("ReconnectingSource: closed")));
  EXPECT_LE(left, 8);
}

}  // namespace tarsil
