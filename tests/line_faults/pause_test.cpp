// Programs that stand still for a while, on either side of the line or behind the tool: what was sent
// meanwhile arrives or is counted, and memory stays where it is.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using testing::StartsWith;
using virtual_glove::Account;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};

const std::string kIntact = "USB integrity: OK — no dropped hardware cycles.\n";

/// The queue of a recording.
constexpr std::ptrdiff_t kRecordQueue = 4096;

std::vector<RecordedFrame> frames_in(const std::string& path) {
  return read_tsl(read_file(path)).frames;
}

/// Stale frames at the end of a recording.
std::ptrdiff_t trailing_stale(const std::string& path) {
  const std::vector<RecordedFrame> frames = frames_in(path);
  return std::find_if(frames.rbegin(), frames.rend(), [](const auto& frame) { return !frame.stale; }) -
         frames.rbegin();
}

TEST(StoppedHost, finds_everything_on_a_line_that_waits) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  VirtualGlove glove({.hz = 1000});
  Process record(tool({"record", path, "--port", glove.port()}));
  ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
  record.send_signal(SIGSTOP);
  ASSERT_TRUE(glove.wait_until([](const Account& account) { return account.line_full; }, kPatience));
  const std::uint64_t then = glove.account().cycles;
  record.send_signal(SIGCONT);
  ASSERT_TRUE(eventually([&] { return frames_in(path).size() > then + 100; }));
  record.send_signal(SIGINT);
  EXPECT_EQ(record.wait(), kSuccess);
  EXPECT_TRUE(record.output().ends_with(kIntact)) << record.output();
  HandText hand({.hz = 1000}, HandStyle::json);
  EXPECT_EQ(check_frames(frames_in(path), hand).dropped, 0U);
}

TEST(StoppedHost, counts_what_a_line_that_does_not_wait_has_lost) {
  const GloveConfig config{.hz = 1000, .frames = 1500, .overrun = true};
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  VirtualGlove glove(config);
  Process record(tool({"record", path, "--port", glove.port()}));
  ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
  record.send_signal(SIGSTOP);
  ASSERT_TRUE(glove.wait_until([](const Account& account) { return account.cycles_lost >= 200; }, kPatience));
  record.send_signal(SIGCONT);
  ASSERT_TRUE(glove.wait_until([](const Account& account) { return account.exhausted; }, kPatience));
  // All is read when the last frame begins to be repeated.
  ASSERT_TRUE(record.wait_until([&] { return trailing_stale(path) > 0; }));
  record.send_signal(SIGINT);
  static_cast<void>(record.wait());

  HandText hand(config, HandStyle::json);
  const Tally tally = check_frames(frames_in(path), hand);
  const Account account = glove.account();
  EXPECT_EQ(account.cycles, 1500U);
  EXPECT_EQ(tally.fresh, account.packets);
  const std::uint64_t lost_at_the_end = account.cycles - 1 - tally.last_seq;
  EXPECT_EQ(tally.dropped, account.cycles_lost - lost_at_the_end);
  if (!record.error().starts_with("Error: ")) {
    EXPECT_THAT(record.error(),
                StartsWith("WARNING: " + std::to_string(tally.dropped) + " hardware cycle(s) were dropped"));
  }
}

/// A busy machine may let a pause grow into the end of the stream; then there is another chance.
TEST(StoppedGlove, is_repeated_and_then_heard_again_without_a_loss) {
  constexpr int kChances = 5;
  for (int chance = 1; chance <= kChances; ++chance) {
    const TempDirectory directory;
    const std::string path = directory.file("take.tsl");
    GloveProgram glove({"--hz", "200"});
    Process record(tool({"record", path, "--port", glove.port()}));
    ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
    ASSERT_TRUE(eventually([&] { return frames_in(path).size() >= 20; }));
    glove.process().send_signal(SIGSTOP);
    ASSERT_TRUE(eventually([&] { return trailing_stale(path) >= 3; }));
    glove.process().send_signal(SIGCONT);
    const std::size_t then = frames_in(path).size();
    const bool heard_again =
        record.wait_until([&] { return trailing_stale(path) == 0 && frames_in(path).size() >= then + 20; });
    if (!heard_again && chance < kChances) continue;
    ASSERT_TRUE(heard_again) << record.error();
    record.send_signal(SIGINT);
    EXPECT_EQ(record.wait(), kSuccess);
    EXPECT_TRUE(record.output().ends_with(kIntact)) << record.output();
    HandText hand({.hz = 200}, HandStyle::json);
    const Tally tally = check_frames(frames_in(path), hand);
    EXPECT_EQ(tally.dropped, 0U);
    EXPECT_GE(tally.stale, 3U);
    EXPECT_EQ(account_value(glove.account(), "hosts"), 1U);
    return;
  }
}

TEST(StoppedGlove, is_connected_to_anew_when_it_was_away_for_long) {
  GloveProgram glove({"--hz", "100"});
  Process stream(tool({"stream", "--raw", "--port", glove.port()}));
  const auto rows = [&] { return rows_in(stream.output()); };
  ASSERT_TRUE(stream.wait_until([&] { return rows().size() >= 10; }));
  glove.process().send_signal(SIGSTOP);
  // The reader has given up; the tool repeats the last frame every two seconds.
  ASSERT_TRUE(stream.wait_until([&] {
    const std::vector<Row> seen = rows();
    return seen.back().values == seen[seen.size() - 2].values &&
           seen.back().t - seen[seen.size() - 2].t > 1.5;
  }));
  const Row frozen = rows().back();
  glove.process().send_signal(SIGCONT);
  ASSERT_TRUE(stream.wait_until([&] { return rows().back().values != frozen.values; }));
  const std::size_t then = rows().size();
  EXPECT_TRUE(stream.wait_until([&] { return rows().size() >= then + 20; }));
  HandText hand({.hz = 100}, HandStyle::row);
  for (const Row& row : rows()) ASSERT_TRUE(hand.find(row.values)) << row.values;
  EXPECT_EQ(stream.error(), "");
}

/// Memory that a process has in use, in KiB.
std::uint64_t memory_of(const Process& process) {
  const std::string status = read_file("/proc/" + std::to_string(process.pid()) + "/status");
  const std::string words = "\nVmRSS:";
  return std::stoull(status.substr(status.find(words) + words.size()));
}

/// Sanitizers keep what is given back for a while.
ProcessOptions with_plain_memory(ProcessOptions program) {
  const char* options = std::getenv("ASAN_OPTIONS");
  program.environment["ASAN_OPTIONS"] = (options == nullptr ? "" : std::string(options) + ":") +
                                        "quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
  return program;
}

constexpr std::uint64_t kMemoryTolerance = 4096;

/// A pipe in the place of a file, whose reader has other things to do until it is asked to read.
class SlowReader {
 public:
  explicit SlowReader(const std::string& path) {
    if (::mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make a pipe");
    end_ = virtual_glove::Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

  /// Reads until so many lines have come, or the writer has closed its end; returns everything read so far.
  const std::string& read_lines(std::ptrdiff_t lines) {
    constexpr int kPatienceMs = std::chrono::milliseconds(kPatience).count();
    std::array<char, 65536> bytes;
    while (lines_ < lines) {
      pollfd polled{end_.get(), POLLIN, 0};
      if (::poll(&polled, 1, kPatienceMs) != 1) throw std::runtime_error("nothing more is written");
      const ssize_t count = ::read(end_.get(), bytes.data(), bytes.size());
      if (count <= 0) break;
      text_.append(bytes.data(), static_cast<std::size_t>(count));
      lines_ += std::count(bytes.begin(), bytes.begin() + count, '\n');
    }
    return text_;
  }

 private:
  virtual_glove::Descriptor end_;
  std::string text_;
  std::ptrdiff_t lines_ = 0;
};

TEST(StalledRecording, keeps_the_newest_frames_and_says_what_is_missing) {
  const GloveConfig config{.hz = 5000};
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  SlowReader reader(path);
  VirtualGlove glove(config);
  Process record(with_plain_memory(tool({"record", path, "--port", glove.port()})));
  ASSERT_TRUE(record.wait_for_output("Ctrl+C to stop"));
  // The pipe and the queue are full, and frames are pushed out from here on.
  ASSERT_TRUE(glove.wait_for_cycles(kRecordQueue + 1000, kPatience));
  const std::uint64_t memory = memory_of(record);
  ASSERT_TRUE(glove.wait_for_cycles(3 * kRecordQueue, kPatience));
  EXPECT_LE(memory_of(record), memory + kMemoryTolerance);

  reader.read_lines(kRecordQueue + 1000);
  record.send_signal(SIGINT);
  const Recording taken = read_tsl(reader.read_lines(std::numeric_limits<std::ptrdiff_t>::max()));
  EXPECT_EQ(record.wait(), kSuccess);
  HandText hand(config, HandStyle::json);
  const Tally tally = check_frames(taken.frames, hand);
  EXPECT_EQ(tally.fresh + tally.dropped, tally.last_seq + 1);
  EXPECT_GE(tally.dropped, static_cast<std::uint64_t>(kRecordQueue));
  EXPECT_THAT(record.error(),
              StartsWith("WARNING: " + std::to_string(tally.dropped) + " hardware cycle(s) were dropped"));
  // The beginning went into the pipe. Behind the gap comes what the queue held.
  const auto gap = std::adjacent_find(
      taken.frames.begin(), taken.frames.end(),
      [](const RecordedFrame& one, const RecordedFrame& next) { return next.seq > one.seq + 1; });
  ASSERT_NE(gap, taken.frames.end());
  EXPECT_GE(taken.frames.end() - gap, kRecordQueue);
}

TEST(StalledRows, go_on_with_the_newest_frames) {
  const GloveConfig config{.hz = 2000};
  VirtualGlove glove(config);
  // More rows than a pipe holds.
  Process stream(with_plain_memory(tool({"stream", "--raw", "--count", "2500", "--port", glove.port()})));
  ASSERT_TRUE(glove.wait_for_cycles(3000, kPatience));
  const std::uint64_t memory = memory_of(stream);
  ASSERT_TRUE(glove.wait_for_cycles(6000, kPatience));
  EXPECT_LE(memory_of(stream), memory + kMemoryTolerance);
  EXPECT_EQ(stream.wait(), kSuccess);
  const std::vector<Row> rows = rows_in(stream.output());
  ASSERT_EQ(rows.size(), 2500U);
  HandText hand(config, HandStyle::row);
  std::uint64_t cycle = 0;
  for (const Row& row : rows) {
    const auto found = hand.find(row.values, cycle);
    ASSERT_TRUE(found) << "behind cycle " << cycle;
    cycle = *found;
  }
  EXPECT_GE(cycle, 6000U);
}

}  // namespace
}  // namespace tarsil::test
