// The source that reads a glove: what it says to the glove, what it keeps for the consumer, how it ends.
#include "tarsil/serial/serial_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <termios.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "tarsil/core/errors.h"
#include "tests/serial/child.h"
#include "tests/serial/scripted_glove.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tools/virtual_glove/motion.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil {
namespace {

using test::Bytes;
using test::Child;
using test::eventually;
using test::inertial_block;
using test::join;
using test::joint_block;
using test::joint_packet;
using test::kPatience;
using test::packet;
using test::payload;
using test::pressure_block;
using test::ScriptedGlove;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::int32_t kPatienceMs = milliseconds(kPatience).count();

/// Long enough for something wrong to show, when nothing is to happen.
constexpr milliseconds kAWhile{150};

constexpr const char* kClosed = "SerialSource stream closed";

double wall_clock() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::future<std::unique_ptr<SerialSource>> begin_opening(const SerialConfig& config) {
  return std::async(std::launch::async, [config] { return std::make_unique<SerialSource>(config); });
}

/// A source on `glove`, whose stream begins with `first`.
std::unique_ptr<SerialSource> open_source(ScriptedGlove& glove, const Bytes& first,
                                          std::int32_t queue_depth = 4096) {
  auto opening = begin_opening({.port = glove.port(), .queue_depth = queue_depth, .timeout_ms = kPatienceMs});
  glove.start();
  glove.send(first);
  return opening.get();
}

/// The text of the StreamUnderrunError that reading raises; empty if there is a frame.
std::string underrun_text(SerialSource& source) {
  try {
    source.read_frame();
  } catch (const StreamUnderrunError& error) {
    return error.what();
  }
  return {};
}

/// Every frame up to the end of the stream.
std::vector<Frame> read_all(SerialSource& source) {
  std::vector<Frame> frames;
  for (;;) {
    try {
      frames.push_back(source.read_frame());
    } catch (const StreamUnderrunError& error) {
      EXPECT_STREQ(error.what(), kClosed);
      return frames;
    }
  }
}

/// The next frame that is no repetition.
Frame read_fresh(SerialSource& source) {
  for (;;) {
    Frame frame = source.read_frame();
    if (!frame.stale) return frame;
  }
}

std::vector<std::uint64_t> fresh_numbers(const std::vector<Frame>& frames) {
  std::vector<std::uint64_t> all;
  for (const Frame& frame : frames) {
    if (!frame.stale) all.push_back(frame.seq);
  }
  return all;
}

std::vector<bool> staleness(const std::vector<Frame>& frames) {
  std::vector<bool> all;
  for (const Frame& frame : frames) all.push_back(frame.stale);
  return all;
}

// The conversation.

TEST(SerialSource, resets_the_glove_and_starts_it_once_it_has_identified_itself) {
  ScriptedGlove glove;
  auto opening = begin_opening({.port = glove.port(), .timeout_ms = kPatienceMs});
  ASSERT_TRUE(eventually([&] { return !glove.heard().empty(); }));

  // Garbage, a stream that is still running, and a damaged identity are no reason to start it.
  Bytes damaged = test::identity_frame("TSL-BAD");
  damaged.back() ^= 0x10;
  glove.send(join({{0x00, 0xC1, 0x40}, joint_packet(3), damaged}));
  const Bytes identity = test::identity_frame("TSL-0042", 1, 12);
  glove.send(Bytes(identity.begin(), identity.begin() + 10));
  EXPECT_FALSE(eventually([&] { return glove.heard().size() > 1; }, kAWhile));
  EXPECT_THAT(glove.heard(), ElementsAre(0xFF));

  // What comes in one piece with the identity is dropped.
  glove.send(join({Bytes(identity.begin() + 10, identity.end()), joint_packet(7, 0, 0x01)}));
  ASSERT_TRUE(eventually([&] { return glove.heard().size() > 1; }));
  EXPECT_THAT(glove.heard(), ElementsAre(0xFF, 0xA5));

  glove.send(joint_packet(20, 100));
  const auto source = opening.get();
  EXPECT_TRUE(source->is_open());
  const Frame frame = source->read_frame();
  EXPECT_EQ(frame.seq, 0U);
  EXPECT_EQ(frame.q.at(0), 1.0F * 0.017453292F);
  const DeviceInfo info = source->device_info();
  EXPECT_EQ(info.serial, "TSL-0042");
  EXPECT_EQ(info.firmware, "1.12");
  EXPECT_EQ(info.side, 1);
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
  EXPECT_EQ(source->dropped_cycles(), 0U);

  source->close();
  EXPECT_THAT(glove.heard(), ElementsAre(0xFF, 0xA5));
}

TEST(SerialSource, reads_an_identity_that_comes_byte_by_byte) {
  ScriptedGlove glove;
  auto opening = begin_opening({.port = glove.port(), .timeout_ms = kPatienceMs});
  ASSERT_TRUE(eventually([&] { return !glove.heard().empty(); }));
  for (const std::uint8_t byte : test::identity_frame("")) glove.send({byte});
  ASSERT_TRUE(eventually([&] { return glove.heard().size() > 1; }));
  glove.send(joint_packet(0));
  const auto source = opening.get();
  EXPECT_EQ(source->device_info().serial, "");
  EXPECT_EQ(source->device_info().firmware, "1.4");
}

TEST(SerialSource, takes_the_side_from_the_first_packet) {
  ScriptedGlove glove;
  const auto source =
      open_source(glove, join({packet(0, {}, 0x01, 9), joint_packet(1, 0, 0x00), joint_packet(2, 0, 0x00)}));
  EXPECT_EQ(source->device_info().side, 0);
}

TEST(SerialSource, sets_the_line_to_the_rate_asked_for) {
  struct Rate {
    std::int32_t baud;
    speed_t speed;
  };
  for (const Rate& rate : {Rate{921600, B921600}, Rate{250000, B115200}}) {
    ScriptedGlove glove;
    auto opening = begin_opening({.port = glove.port(), .baud = rate.baud, .timeout_ms = kPatienceMs});
    glove.start();
    const termios line = glove.settings();
    EXPECT_EQ(line.c_cflag, 0x8B0U | rate.speed);
    EXPECT_EQ(line.c_iflag | line.c_oflag | line.c_lflag, 0U);
    EXPECT_EQ(line.c_cc[VTIME], 1);
    EXPECT_EQ(line.c_cc[VMIN], 0);
    EXPECT_TRUE(glove.exclusive());
    glove.send(joint_packet(0));
    opening.get();
  }
}

TEST(SerialSource, uses_2000000_bit_per_second_unless_told_otherwise) {
  ScriptedGlove glove;
  const auto source = open_source(glove, joint_packet(0));
  const termios line = glove.settings();
  EXPECT_EQ(cfgetispeed(&line), static_cast<speed_t>(B2000000));
  EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B2000000));
}

TEST(SerialSource, keeps_the_port_to_itself) {
  ScriptedGlove glove;
  ASSERT_EQ(::chmod(glove.port().c_str(), 0666), 0);
  Child second([&](const auto& tell) {
    test::become_ordinary_user();
    tell();
    // The parent has its source once it plays on.
    while (!glove.exclusive()) std::this_thread::sleep_for(milliseconds(1));
    const SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
    return source.is_open() ? 1 : 0;
  });
  ASSERT_TRUE(second.wait_until_told());
  const auto source = open_source(glove, joint_packet(0));
  EXPECT_EQ(second.wait(), 0);
}

TEST(SerialSource, starts_from_the_beginning_with_every_new_source) {
  ScriptedGlove glove;
  for (int round = 0; round < 3; ++round) {
    glove.end_exclusive_use();
    const auto source = open_source(glove, joint_packet(100 * round));
    EXPECT_EQ(source->read_frame().seq, 0U);
    EXPECT_EQ(source->dropped_cycles(), 0U);
  }
  EXPECT_THAT(glove.heard(), ElementsAre(0xFF, 0xA5, 0xFF, 0xA5, 0xFF, 0xA5));
}

TEST(SerialSource, stamps_frames_with_the_wall_clock) {
  ScriptedGlove glove;
  const double before = wall_clock();
  const auto source = open_source(glove, joint_packet(0));
  const Frame frame = source->read_frame();
  EXPECT_GE(frame.t, before);
  EXPECT_LE(frame.t, wall_clock());
}

TEST(SerialSource, counts_dropped_cycles_like_the_gaps_between_frames) {
  ScriptedGlove glove;
  const auto source = open_source(glove, join({joint_packet(5), joint_packet(8), joint_packet(9),
                                               joint_packet(9), joint_packet(65535), joint_packet(2)}));
  ASSERT_TRUE(eventually([&] { return source->dropped_cycles() == 2U + 65525U + 2U; }));
  source->close();
  EXPECT_THAT(fresh_numbers(read_all(*source)), ElementsAre(0, 3, 4, 65530, 65533));
  // The count stays with the source.
  EXPECT_EQ(source->dropped_cycles(), 65529U);
}

// Ports that are no glove.

TEST(SerialSource, says_that_no_data_came_from_a_silent_port) {
  const ScriptedGlove glove;
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  const auto begin = Clock::now();
  try {
    const SerialSource source({.port = glove.port(), .timeout_ms = 250});
    ADD_FAILURE() << "a silent port is no glove";
  } catch (const DeviceNotFoundError& error) {
    EXPECT_EQ(error.what(), "No data received from " + glove.port() +
                                " within timeout. Check that the Tarsil glove is powered and sending data.");
  }
  EXPECT_GE(Clock::now() - begin, milliseconds(250));
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

TEST(SerialSource, does_not_wait_without_a_timeout) {
  for (const std::int32_t timeout : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    const ScriptedGlove glove;
    EXPECT_THROW(SerialSource({.port = glove.port(), .timeout_ms = timeout}), DeviceNotFoundError);
  }
}

TEST(SerialSource, does_not_take_an_identity_for_data) {
  ScriptedGlove glove;
  auto opening = begin_opening({.port = glove.port(), .timeout_ms = 1000});
  glove.start();
  EXPECT_THROW(opening.get(), DeviceNotFoundError);
}

TEST(SerialSource, waits_for_joint_data) {
  ScriptedGlove glove;
  auto opening = begin_opening({.port = glove.port(), .timeout_ms = 1000});
  glove.start();
  for (int counter = 1; counter < 10; ++counter) {
    glove.send(packet(counter, payload({pressure_block(0, {1, 1, 1, 1, 1, 1}), inertial_block(0, {{1}})})));
  }
  EXPECT_THROW(opening.get(), DeviceNotFoundError);
}

TEST(SerialSource, is_not_open_on_what_is_no_terminal) {
  const test::TempDirectory directory;
  test::write_file(directory.path() / "file", "bytes");
  ASSERT_EQ(::mkfifo(directory.file("fifo").c_str(), 0600), 0);
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  for (const std::string& path : {directory.file("ttyACM0"), directory.file("file"), directory.file("fifo"),
                                  directory.path().string(), std::string("/dev/null")}) {
    SCOPED_TRACE(path);
    // Were it to wait, it would do so for weeks.
    SerialSource source({.port = path, .timeout_ms = std::numeric_limits<std::int32_t>::max()});
    EXPECT_FALSE(source.is_open());
    EXPECT_EQ(underrun_text(source), kClosed);
    EXPECT_EQ(underrun_text(source), kClosed);
    EXPECT_EQ(source.dropped_cycles(), 0U);
    source.close();
    EXPECT_FALSE(source.is_open());
  }
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

TEST(SerialSource, names_a_glove_after_its_port_until_it_says_more) {
  const test::TempDirectory directory;
  struct Name {
    std::string port, serial;
  };
  for (const auto& [port, serial] :
       {Name{directory.file("ttyACM0"), "TSL-ttyACM0"}, Name{"COM3:missing", "TSL-COM3:missing"},
        Name{"\\\\.\\COM12", "TSL-COM12"}, Name{"/missing\\mixed/a\\b", "TSL-b"},
        Name{"/missing/", "TSL-"}}) {
    SCOPED_TRACE(port);
    const SerialSource source({.port = port});
    EXPECT_FALSE(source.is_open());
    const DeviceInfo info = source.device_info();
    EXPECT_EQ(info.serial, serial);
    EXPECT_EQ(info.side, 1);
    EXPECT_EQ(info.firmware, "unknown");
    EXPECT_EQ(info.n_dofs, 20);
    EXPECT_EQ(info.n_pads, 30);
    EXPECT_EQ(info.n_imu, 5);
  }
}

TEST(SerialSource, is_configured_by_a_record_with_defaults) {
  const SerialConfig config;
  EXPECT_EQ(config.port, "");
  EXPECT_EQ(config.baud, 2000000);
  EXPECT_EQ(config.queue_depth, 4096);
  EXPECT_EQ(config.timeout_ms, 5000);
  EXPECT_FALSE(SerialSource({.port = "/missing/ttyACM0"}).is_open());
}

// The queue. Ten packets for the cycles 0 to 9, and one for cycle 11 whose gap tells that all have been read.

Bytes eleven_packets() {
  Bytes bytes;
  for (int cycle = 0; cycle < 10; ++cycle) bytes = join({bytes, joint_packet(cycle)});
  return join({bytes, joint_packet(11)});
}

/// What a consumer finds that has not read before the source was closed.
std::vector<Frame> kept_of_eleven(std::int32_t queue_depth) {
  ScriptedGlove glove;
  const auto source = open_source(glove, eleven_packets(), queue_depth);
  EXPECT_TRUE(eventually([&] { return source->dropped_cycles() == 1; }));
  source->close();
  return read_all(*source);
}

TEST(SerialSource, gives_queued_frames_after_it_was_closed) {
  ScriptedGlove glove;
  const auto source = open_source(glove, eleven_packets());
  ASSERT_TRUE(eventually([&] { return source->dropped_cycles() == 1; }));
  source->close();
  EXPECT_FALSE(source->is_open());
  EXPECT_THAT(fresh_numbers(read_all(*source)), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 11));
  EXPECT_EQ(underrun_text(*source), kClosed);
}

TEST(SerialSource, keeps_the_newest_frames_when_the_queue_is_full) {
  const auto frames = kept_of_eleven(3);
  EXPECT_THAT(staleness(frames), ElementsAre(false, false, false));
  EXPECT_THAT(fresh_numbers(frames), ElementsAre(8, 9, 11));
}

TEST(SerialSource, keeps_the_newest_frame_in_a_queue_for_one) {
  const auto frames = kept_of_eleven(1);
  EXPECT_THAT(staleness(frames), ElementsAre(false));
  EXPECT_THAT(fresh_numbers(frames), ElementsAre(11));
}

TEST(SerialSource, keeps_one_fresh_frame_in_a_queue_for_none) {
  for (const std::int32_t depth : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    SCOPED_TRACE(depth);
    const auto frames = kept_of_eleven(depth);
    EXPECT_THAT(staleness(frames), ElementsAre(false));
    EXPECT_THAT(fresh_numbers(frames), ElementsAre(11));
  }
}

TEST(SerialSource, fills_only_what_is_left_of_the_queue_with_repetitions) {
  struct Case {
    std::int32_t depth;
    Bytes first;
    std::vector<bool> stale;
  };
  const std::vector<Case> cases{{3, joint_packet(0), {false, true, true}},
                                {2, join({joint_packet(0), joint_packet(1)}), {false, false}},
                                {1, joint_packet(0), {false}},
                                {0, joint_packet(0), {false}},
                                {-1, joint_packet(0), {false}}};
  std::vector<std::unique_ptr<ScriptedGlove>> gloves;
  std::vector<std::unique_ptr<SerialSource>> sources;
  for (const Case& with : cases) {
    gloves.push_back(std::make_unique<ScriptedGlove>());
    sources.push_back(open_source(*gloves.back(), with.first, with.depth));
  }
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].depth);
    ASSERT_TRUE(eventually([&] { return !sources[i]->is_open(); }));
    EXPECT_EQ(staleness(read_all(*sources[i])), cases[i].stale);
  }
}

// The end.

TEST(SerialSource, repeats_the_last_frame_of_a_glove_that_falls_silent_and_then_ends) {
  ScriptedGlove glove;
  const auto source = open_source(glove, join({joint_packet(4), joint_packet(6, 100)}));
  const auto frames = read_all(*source);
  const double end = wall_clock();
  EXPECT_FALSE(source->is_open());

  ASSERT_GE(frames.size(), 3U);
  EXPECT_THAT(fresh_numbers(frames), ElementsAre(0, 2));
  EXPECT_FALSE(frames[1].stale);
  const double last_data = frames[1].t;
  for (std::size_t i = 2; i < frames.size(); ++i) {
    EXPECT_TRUE(frames[i].stale);
    EXPECT_EQ(frames[i].seq, 2U);
    EXPECT_EQ(frames[i].q, frames[1].q);
    // The wall clock may be slewed a little against the one that counts.
    EXPECT_GE(frames[i].t - frames[i - 1].t, 0.0605);
    EXPECT_LT(frames[i].t - last_data, 1.502);
  }
  EXPECT_LE(frames.size(), 2U + 24U);
  EXPECT_GE(end - last_data, 1.5);
  EXPECT_EQ(source->dropped_cycles(), 1U);
}

TEST(SerialSource, ends_by_itself_although_nobody_reads) {
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  {
    ScriptedGlove glove;
    const auto source = open_source(glove, join({joint_packet(0), joint_packet(1)}));
    ASSERT_TRUE(eventually([&] { return !source->is_open(); }));
    EXPECT_THAT(fresh_numbers(read_all(*source)), ElementsAre(0, 1));
    source->close();
    EXPECT_EQ(underrun_text(*source), kClosed);
  }
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

TEST(SerialSource, has_closed_the_port_when_it_has_stopped) {
  ScriptedGlove glove;
  const std::size_t descriptors = test::open_descriptors();
  const auto source = open_source(glove, joint_packet(0));
  EXPECT_EQ(test::open_descriptors(), descriptors + 1);
  ASSERT_TRUE(eventually([&] { return !source->is_open(); }));
  EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST(SerialSource, goes_on_when_a_glove_speaks_again) {
  ScriptedGlove glove;
  const auto source = open_source(glove, joint_packet(0));
  Frame frame = source->read_frame();
  EXPECT_FALSE(frame.stale);
  frame = source->read_frame();
  EXPECT_TRUE(frame.stale);
  EXPECT_EQ(frame.seq, 0U);
  glove.send(joint_packet(1));
  frame = read_fresh(*source);
  EXPECT_EQ(frame.seq, 1U);
  EXPECT_TRUE(source->is_open());
  EXPECT_EQ(source->dropped_cycles(), 0U);
}

TEST(SerialSource, ends_when_the_glove_is_unplugged) {
  ScriptedGlove glove;
  const auto source = open_source(glove, join({joint_packet(0), joint_packet(1)}));
  EXPECT_EQ(read_fresh(*source).seq, 0U);
  EXPECT_EQ(read_fresh(*source).seq, 1U);
  const double cpu = test::cpu_seconds();
  glove.unplug();
  for (const Frame& frame : read_all(*source)) {
    EXPECT_TRUE(frame.stale);
    EXPECT_EQ(frame.seq, 1U);
  }
  EXPECT_FALSE(source->is_open());
  EXPECT_LT(test::cpu_seconds() - cpu, 0.6);
}

// The host is stopped while the plug is pulled, so that it finds a line that has hung up when it reads next:
// every read comes back at once with nothing.
TEST(SerialSource, takes_a_line_that_has_hung_up_for_a_silent_glove) {
  ScriptedGlove glove;
  Child host([&](const auto& tell) {
    const std::string port = glove.port();
    glove.unplug();  // of this process's copies: the plug is the parent's
    SerialSource source({.port = port, .timeout_ms = kPatienceMs});
    const Frame first = source.read_frame();
    tell();
    const double cpu = test::cpu_seconds();
    const auto repetitions = read_all(source);
    const double end = wall_clock();
    for (const Frame& frame : repetitions) {
      if (!frame.stale || frame.seq != first.seq) return 1;
    }
    // One for each tenth of a second; fewer if the machine is busy.
    if (repetitions.size() < 5 || repetitions.size() > 24) return 2;
    if (end - first.t < 1.5) return 3;
    return test::cpu_seconds() - cpu < 0.6 ? 0 : 4;
  });
  glove.start();
  glove.send(joint_packet(0));
  ASSERT_TRUE(host.wait_until_told());
  host.stop();
  glove.unplug();
  host.resume();
  EXPECT_EQ(host.wait(), 0);
}

TEST(SerialSource, ends_when_a_read_fails_and_keeps_what_it_has) {
  ScriptedGlove glove;
  Child host([&](const auto&) {
    const auto source = open_source(glove, join({joint_packet(0), joint_packet(1)}));
    const test::ReadsFail reads_fail(glove.slave());
    // The glove goes on: it is no silence that ends the stream.
    int cycle = 2;
    const auto ended = [&] {
      glove.send(joint_packet(cycle++));
      return !source->is_open();
    };
    if (!eventually(ended)) return 1;
    const auto frames = read_all(*source);
    // Cycles 0, 1 and perhaps a few more that were read in time.
    const auto numbers = fresh_numbers(frames);
    if (numbers.size() < 2 || numbers[0] != 0 || numbers[1] != 1) return 2;
    // A silence would have brought one repetition for each tenth of a second.
    return frames.size() - numbers.size() < 8 ? 0 : 3;
  });
  EXPECT_EQ(host.wait(), 0);
}

// Closing.

TEST(SerialSource, wakes_a_reader_when_it_is_closed) {
  for (int round = 0; round < 10; ++round) {
    ScriptedGlove glove;
    // Without room for repetitions, the second read waits.
    const auto source = open_source(glove, joint_packet(0), 0);
    std::atomic<bool> reading = false;
    auto consumer = std::async(std::launch::async, [&] {
      source->read_frame();
      reading = true;
      return underrun_text(*source);
    });
    ASSERT_TRUE(eventually([&] { return reading.load(); }));
    source->close();
    EXPECT_FALSE(source->is_open());
    ASSERT_EQ(consumer.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(consumer.get(), kClosed);
  }
}

TEST(SerialSource, may_be_closed_again) {
  ScriptedGlove glove;
  const auto source = open_source(glove, joint_packet(0));
  source->close();
  source->close();
  EXPECT_FALSE(source->is_open());
  EXPECT_EQ(source->read_frame().seq, 0U);
  source->close();
}

TEST(SerialSource, may_be_closed_by_several_threads_at_once) {
  for (int round = 0; round < 10; ++round) {
    ScriptedGlove glove;
    const std::size_t descriptors = test::open_descriptors();
    const auto source = open_source(glove, joint_packet(0));
    std::vector<std::future<std::size_t>> closing;
    for (int i = 0; i < 4; ++i) {
      closing.push_back(std::async(std::launch::async, [&] {
        source->close();
        // Whoever comes back finds the port closed.
        return test::open_descriptors();
      }));
    }
    for (auto& closed : closing) {
      // Looking takes a descriptor itself, in each of the threads.
      EXPECT_LE(closed.get(), descriptors + 3);
    }
    EXPECT_FALSE(source->is_open());
  }
}

TEST(SerialSource, has_closed_the_port_when_close_returns) {
  ScriptedGlove glove;
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  const auto source = open_source(glove, joint_packet(0));
  source->close();
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

TEST(SerialSource, closes_when_it_goes) {
  ScriptedGlove glove;
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  open_source(glove, joint_packet(0)).reset();
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

TEST(SerialSource, answers_other_threads_while_it_streams) {
  virtual_glove::VirtualGlove glove({.hz = 2000});
  SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
  std::atomic<bool> done = false;
  auto asking = std::async(std::launch::async, [&] {
    while (!done) {
      if (source.device_info().serial != "TSL-VG000001" || source.dropped_cycles() != 0) return false;
      static_cast<void>(source.is_open());
    }
    return true;
  });
  for (std::uint64_t k = 0; k < 1000; ++k) ASSERT_EQ(read_fresh(source).seq, k);
  done = true;
  EXPECT_TRUE(asking.get());
}

TEST(SerialSource, leaks_nothing_in_many_sessions) {
  virtual_glove::VirtualGlove glove({.hz = 2000});
  std::uint64_t sessions = 0;
  const auto session = [&] {
    {
      SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
      ASSERT_TRUE(source.is_open());
      ASSERT_EQ(source.read_frame().seq, 0U);
      // Some are closed, some just go.
      if (++sessions % 2 == 0) source.close();
    }
    // The glove gives the line free once it has seen the host leave.
    const auto left = [&](const virtual_glove::Account& account) {
      return account.hosts == sessions && account.hosts_open == 0;
    };
    ASSERT_TRUE(glove.wait_until(left, kPatience));
  };
  ASSERT_NO_FATAL_FAILURE(session());
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  for (int round = 0; round < 300; ++round) ASSERT_NO_FATAL_FAILURE(session());
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_TRUE(eventually([&] { return test::running_threads() <= threads; }));
}

// Whole gloves.

std::vector<float> converted(std::span<const std::int16_t> raw, float factor) {
  std::vector<float> values;
  for (const std::int16_t value : raw) values.push_back(static_cast<float>(value) / 100.0F * factor);
  return values;
}

void expect_sample(const Frame& frame, const virtual_glove::HandSample& sample) {
  ASSERT_EQ(frame.q, converted(sample.joints, 0.017453292F));
  ASSERT_EQ(frame.touch, converted(sample.pads, 1.0F));
  ASSERT_EQ(frame.imu.size(), sample.imu.size());
  for (std::size_t unit = 0; unit < sample.imu.size(); ++unit) {
    const auto values = converted(sample.imu[unit], 1.0F);
    ASSERT_TRUE(std::equal(values.begin(), values.begin() + 3, frame.imu[unit].acc.begin()));
    ASSERT_TRUE(std::equal(values.begin() + 3, values.end(), frame.imu[unit].gyro.begin()));
    ASSERT_EQ(frame.status_lo[unit], sample.status[unit] & 0xFF);
    ASSERT_EQ(frame.status_hi[unit], sample.status[unit] >> 8);
  }
}

TEST(SerialSource, delivers_every_cycle_of_a_glove_at_1000_hz) {
  constexpr std::uint64_t kCycles = 3000;
  virtual_glove::GloveConfig config;
  config.serial = "TSL-FAST";
  config.left = true;
  config.hz = 1000;
  config.seed = 77;
  config.frames = kCycles;
  config.first_counter = 64000;  // wraps on the way
  virtual_glove::VirtualGlove glove(config);
  SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
  EXPECT_EQ(source.device_info().serial, "TSL-FAST");
  EXPECT_EQ(source.device_info().side, 0);

  const virtual_glove::HandMotion motion(77, 1000);
  double last = 0.0;
  for (std::uint64_t cycle = 0; cycle < kCycles; ++cycle) {
    const Frame frame = read_fresh(source);
    ASSERT_EQ(frame.seq, cycle);
    ASSERT_NO_FATAL_FAILURE(expect_sample(frame, motion.at(cycle)));
    ASSERT_GE(frame.t, last);
    last = frame.t;
  }
  EXPECT_EQ(source.dropped_cycles(), 0U);
  EXPECT_THAT(fresh_numbers(read_all(source)), IsEmpty());
  EXPECT_EQ(glove.account().packets, kCycles);
}

TEST(SerialSource, counts_exactly_the_cycles_that_a_glove_loses) {
  constexpr std::uint64_t kCycles = 2000;
  virtual_glove::GloveConfig config;
  config.hz = 1000;
  config.seed = 5;
  config.frames = kCycles;
  config.first_counter = 65000;
  config.faults = {{.kind = virtual_glove::FaultKind::lost_cycles, .rate = 0.05},
                   {.kind = virtual_glove::FaultKind::garbage, .rate = 0.05},
                   {.kind = virtual_glove::FaultKind::splits, .rate = 0.05},
                   {.kind = virtual_glove::FaultKind::unknown_types, .rate = 0.05},
                   {.kind = virtual_glove::FaultKind::unknown_blocks, .rate = 0.05}};
  virtual_glove::VirtualGlove glove(config);
  SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
  const auto frames = read_all(source);
  const auto account = glove.account();
  ASSERT_GT(account.cycles_lost, 20U);
  const auto numbers = fresh_numbers(frames);
  EXPECT_EQ(numbers.size(), account.packets);
  // This seed loses neither the first nor the last cycle, which a host could not know of.
  ASSERT_FALSE(numbers.empty());
  EXPECT_EQ(numbers.back(), kCycles - 1);
  EXPECT_EQ(source.dropped_cycles(), account.cycles_lost);

  const virtual_glove::HandMotion motion(5, 1000);
  for (const Frame& frame : frames) ASSERT_NO_FATAL_FAILURE(expect_sample(frame, motion.at(frame.seq)));
}

TEST(SerialSource, outlasts_a_short_silence_and_not_a_long_one) {
  virtual_glove::GloveConfig config;
  config.hz = 500;
  config.faults = {{.kind = virtual_glove::FaultKind::silence, .at_seconds = 0.1, .duration_seconds = 0.4},
                   {.kind = virtual_glove::FaultKind::hang, .at_seconds = 0.7}};
  virtual_glove::VirtualGlove glove(config);
  SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
  const auto frames = read_all(source);
  const auto account = glove.account();
  EXPECT_TRUE(account.hung);
  EXPECT_EQ(fresh_numbers(frames).size(), account.packets);
  EXPECT_EQ(source.dropped_cycles(), 0U);
  // Repetitions in the middle and at the end.
  EXPECT_TRUE(frames.back().stale);
  const auto first_stale = std::find_if(frames.begin(), frames.end(), [](const Frame& f) { return f.stale; });
  EXPECT_LT(first_stale->seq, frames.back().seq);
}

TEST(SerialSource, ends_with_an_unplugged_glove_and_reads_it_anew_when_it_is_back) {
  virtual_glove::VirtualGlove glove({.hz = 500});
  {
    SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
    for (int i = 0; i < 20; ++i) source.read_frame();
    glove.unplug();
    read_all(source);
    EXPECT_FALSE(source.is_open());
  }
  glove.plug();
  SerialSource source({.port = glove.port(), .timeout_ms = kPatienceMs});
  EXPECT_EQ(source.read_frame().seq, 0U);
}

}  // namespace
}  // namespace tarsil
