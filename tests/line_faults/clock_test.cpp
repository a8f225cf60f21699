// A wall clock that is set while the tool runs: time stamps follow it, and nothing that waits does.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/line_faults/preload.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// An hour forwards, two back, a day forwards: all far beyond any wait of the tool's.
constexpr std::array<double, 3> kSteps{3600, -3600, 86400};

/// How far a stamp may be from the moment in which the test looks at it, on a machine that may be busy.
constexpr double kNear = 60;

/// The wall clock of one tool.
class WallClock {
 public:
  WallClock() {
    write_file(path(), std::string(sizeof(std::int64_t), '\0'));
    const virtual_glove::Descriptor file(::open(path().c_str(), O_RDWR | O_CLOEXEC));
    void* mapped = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (mapped == MAP_FAILED) throw std::runtime_error("cannot map the clock");
    offset_ = static_cast<std::atomic<std::int64_t>*>(mapped);
  }
  WallClock(const WallClock&) = delete;
  WallClock& operator=(const WallClock&) = delete;
  ~WallClock() { ::munmap(offset_, sizeof(std::int64_t)); }

  void set_off_by(double seconds) { *offset_ = std::llround(seconds * 1e9); }

  [[nodiscard]] double now() const {
    const std::chrono::duration<double> real = std::chrono::system_clock::now().time_since_epoch();
    return real.count() + static_cast<double>(*offset_) * 1e-9;
  }

  [[nodiscard]] ProcessOptions tool(const std::vector<std::string>& arguments) const {
    return with_shifted_clock(test::tool(arguments), path());
  }

 private:
  [[nodiscard]] std::string path() const { return directory_.file("offset"); }

  TempDirectory directory_;
  std::atomic<std::int64_t>* offset_ = nullptr;
};

double seconds_since(steady_clock::time_point begin) {
  return std::chrono::duration<double>(steady_clock::now() - begin).count();
}

TEST(SteppedClock, costs_a_recording_nothing_but_the_stamps) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove({.hz = 200});
  WallClock clock;
  Process record(clock.tool({"record", path, "--port", glove.port()}));
  ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
  const auto frames = [&] { return read_tsl(read_file(path)).frames; };
  const auto stamps_follow = [&] {
    const std::vector<RecordedFrame> taken = frames();
    return !taken.empty() && std::abs(taken.back().t - clock.now()) < kNear;
  };
  ASSERT_TRUE(record.wait_until(stamps_follow));
  for (const double step : kSteps) {
    clock.set_off_by(step);
    ASSERT_TRUE(record.wait_until(stamps_follow)) << step << record.error();
    const std::size_t then = frames().size();
    ASSERT_TRUE(record.wait_until([&] { return frames().size() >= then + 20; })) << step;
  }
  record.send_signal(SIGINT);
  EXPECT_EQ(record.wait(), kSuccess);
  EXPECT_TRUE(record.output().ends_with("USB integrity: OK — no dropped hardware cycles.\n"));
  HandText hand({.hz = 200}, HandStyle::json);
  std::uint64_t next = 0;
  for (const RecordedFrame& frame : frames()) {
    if (frame.stale) continue;
    ASSERT_EQ(frame.seq, next++);
    ASSERT_EQ(frame.values, hand.at(frame.seq));
  }
}

TEST(SteppedClock, does_not_keep_a_silent_glove_alive) {
  for (const double step : kSteps) {
    const TempDirectory directory;
    const VirtualGlove glove({.hz = 200, .frames = 40});
    WallClock clock;
    Process record(clock.tool({"record", directory.file("take.tsl"), "--port", glove.port()}));
    ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
    clock.set_off_by(step);
    // A second and a half after its last frame, whatever the clock on the wall says.
    EXPECT_EQ(record.wait(), kFailure) << step;
    EXPECT_EQ(record.error(), "Error: SerialSource stream closed\n");
    HandText hand({.hz = 200}, HandStyle::json);
    const std::vector<RecordedFrame> frames = read_tsl(read_file(directory.file("take.tsl"))).frames;
    EXPECT_EQ(frames.back().seq, 39U);
  }
}

TEST(SteppedClock, leaves_the_pace_of_the_table_alone) {
  const VirtualGlove glove({.hz = 200});
  WallClock clock;
  const auto begin = steady_clock::now();
  Process stream(clock.tool({"stream", "--port", glove.port()}));
  const auto tables = [&] { return tables_in(stream.output(), "Connecting to TSL-VG000001...\n"); };
  ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= 3; }));
  for (const double step : kSteps) {
    clock.set_off_by(step);
    const std::size_t then = tables().size();
    ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= then + 5; })) << step;
    EXPECT_NEAR(tables().back().t, clock.now(), kNear);
  }
  EXPECT_LE(static_cast<double>(tables().size()), seconds_since(begin) * 15 + 2);
  stream.send_signal(SIGINT);
  EXPECT_EQ(stream.wait(), kSuccess);
}

TEST(SteppedClock, leaves_the_waits_for_an_absent_glove_alone) {
  const TempDirectory directory;
  WallClock clock;
  const auto begin = steady_clock::now();
  Process stream(clock.tool({"stream", "--raw", "--count", "2", "--port", directory.file("nothing")}));
  ASSERT_TRUE(stream.wait_for_output("-\n"));
  clock.set_off_by(kSteps[0]);
  ASSERT_TRUE(stream.wait_until([&] { return rows_in(stream.output()).size() == 1; }));
  clock.set_off_by(kSteps[1]);
  EXPECT_EQ(stream.wait(), kSuccess);
  // Two waits of two seconds.
  EXPECT_GE(seconds_since(begin), 3.9);
}

TEST(SteppedClock, leaves_the_pace_of_the_mock_alone) {
  for (const double step : kSteps) {
    const TempDirectory directory;
    WallClock clock;
    const auto begin = steady_clock::now();
    Process record(
        clock.tool({"record", directory.file("take.tsl"), "--mock", "--hz", "50", "--frames", "50"}));
    ASSERT_TRUE(record.wait_for_output("(50 frames)"));
    clock.set_off_by(step);
    EXPECT_EQ(record.wait(), kSuccess) << step;
    EXPECT_GE(seconds_since(begin), 0.9) << step;
    EXPECT_THAT(record.output(), HasSubstr("\nSaved 50 frames  "));
  }
}

/// Deliberately so: a recording's stamps are the wall clock's, and it is played back by that clock.
TEST(SteppedClock, is_what_a_replay_goes_by) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  ASSERT_EQ(run_tool({"record", path, "--mock", "--hz", "100", "--frames", "100"}).status, kSuccess);
  WallClock clock;
  // A second between frames, until the clock says that they are all due.
  Process replay(clock.tool({"replay", path, "--speed", "0.01"}));
  ASSERT_TRUE(replay.wait_for_output("q[0]="));
  clock.set_off_by(kSteps[0]);
  EXPECT_EQ(replay.wait(), kSuccess);
}

}  // namespace
}  // namespace tarsil::test
