// What the recorder and the replayer ask of the system, call by call. write and read of the C library are
// replaced by ones that keep account, and that can be told to be interrupted, to do only a part, or to fail.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace {

/// How a call goes.
struct Outcome {
  /// Fails with this, unless it is 0.
  int error = 0;
  /// Does no more bytes than this.
  std::size_t most = SIZE_MAX;
};

bool watching = false;
/// What each write wrote.
std::vector<std::string> writes;
/// How the next calls go; the calls after them go well.
std::deque<Outcome> next_writes;
std::deque<Outcome> next_reads;

Outcome take(std::deque<Outcome>& outcomes) {
  if (outcomes.empty()) return {};
  const Outcome outcome = outcomes.front();
  outcomes.pop_front();
  return outcome;
}

}  // namespace

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  if (!watching) return syscall(SYS_write, descriptor, bytes, count);
  const Outcome outcome = take(next_writes);
  if (outcome.error != 0) {
    errno = outcome.error;
    return -1;
  }
  const ssize_t written = syscall(SYS_write, descriptor, bytes, std::min(count, outcome.most));
  if (written > 0) writes.emplace_back(static_cast<const char*>(bytes), static_cast<std::size_t>(written));
  return written;
}

extern "C" ssize_t read(int descriptor, void* bytes, std::size_t count) {
  if (!watching) return syscall(SYS_read, descriptor, bytes, count);
  const Outcome outcome = take(next_reads);
  if (outcome.error != 0) {
    errno = outcome.error;
    return -1;
  }
  return syscall(SYS_read, descriptor, bytes, std::min(count, outcome.most));
}

namespace tarsil {
namespace {

constexpr const char* kWriteFailed =
    "Recorder: write failed (disk full or I/O error) \xE2\x80\x94 recording is incomplete";

/// Calls are watched while it lives.
class Watch {
 public:
  Watch() {
    writes.clear();
    next_writes.clear();
    next_reads.clear();
    watching = true;
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { watching = false; }
};

class SystemCalls : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }
  [[nodiscard]] std::string content(const std::string& name) const {
    return test::read_file(directory_.file(name));
  }

  /// A recording of that many small frames, numbered from 0.
  [[nodiscard]] std::string recording(std::size_t frames) const {
    Recorder recorder(file("recording.tsl"));
    for (std::size_t i = 0; i < frames; ++i) recorder.write_frame(test::bare_frame(i, 0.5));
    return file("recording.tsl");
  }

 private:
  test::TempDirectory directory_;
};

/// Whether writing another frame fails as it should.
bool fails(Recorder& recorder) {
  try {
    recorder.write_frame(test::small_frame());
  } catch (const std::runtime_error& error) {
    return error.what() == std::string(kWriteFailed);
  }
  return false;
}

TEST_F(SystemCalls, to_write_a_tsl_line_are_one) {
  const auto frames = test::worn_frames(100, 1);
  {
    const Watch watch;
    Recorder recorder(file("a.tsl"), {{"side", "left"}});
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("end", {{"k", "v"}});
  }
  const auto lines = test::lines_of(content("a.tsl"));
  ASSERT_EQ(lines.size(), 102U);
  ASSERT_EQ(writes.size(), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(writes[i], lines[i] + "\n");
}

TEST_F(SystemCalls, to_write_a_csv_line_are_one) {
  const auto frames = test::worn_frames(100, 1);
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("end");
  }
  const auto lines = test::lines_of(content("a.csv"));
  ASSERT_EQ(lines.size(), 102U);
  ASSERT_EQ(writes.size(), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(writes[i], lines[i] + "\n");
}

TEST_F(SystemCalls, to_write_a_long_line_are_one_too) {
  test::Shape shape{20'000, 20'000, 1000};
  const auto frames = test::worn_frames(3, 1, shape);
  {
    const Watch watch;
    Recorder recorder(file("a.tsl"));
    for (const Frame& frame : frames) recorder.write_frame(frame);
  }
  ASSERT_EQ(writes.size(), 4U);
  for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(writes[i + 1], test::printed_tsl_line(frames[i]));
}

TEST_F(SystemCalls, to_write_a_json_document_are_one_at_the_end) {
  const auto frames = test::worn_frames(1000, 1);
  const Watch watch;
  {
    Recorder recorder(file("a.json"));
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("end");
    EXPECT_TRUE(writes.empty());
  }
  ASSERT_EQ(writes.size(), 1U);
  EXPECT_EQ(writes[0], content("a.json"));
}

TEST_F(SystemCalls, that_are_interrupted_are_made_again) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    next_writes = {{.error = EINTR}, {.error = EINTR}, {}, {.error = EINTR}};
    recorder.write_frame(test::bare_frame(1, 0.5));
    EXPECT_EQ(recorder.frames_written(), 1U);
  }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n");
}

TEST_F(SystemCalls, that_write_a_part_are_followed_by_the_rest) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    next_writes = {{.most = 3}, {.most = 1}, {}, {.most = 5}, {.error = EINTR}, {.most = 1}};
    recorder.write_frame(test::bare_frame(1, 0.5));
  }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n");
}

TEST_F(SystemCalls, that_fail_end_the_recording) {
  for (const int error : {ENOSPC, EIO, EDQUOT, EFBIG}) {
    {
      const Watch watch;
      Recorder recorder(file("a.csv"));
      recorder.write_frame(test::bare_frame(1, 0.5));
      next_writes = {{.error = error}};
      EXPECT_TRUE(fails(recorder));
      EXPECT_EQ(recorder.frames_written(), 1U);
      // There is room again, but what comes behind a gap would pass for a whole recording.
      recorder.add_marker("behind the gap");
      EXPECT_TRUE(fails(recorder));
      EXPECT_EQ(recorder.frames_written(), 1U);
    }
    EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n");
  }
}

TEST_F(SystemCalls, that_fail_in_the_middle_of_a_line_leave_its_beginning) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    recorder.write_frame(test::bare_frame(1, 0.5));
    next_writes = {{.most = 4}, {.error = ENOSPC}};
    EXPECT_TRUE(fails(recorder));
    EXPECT_EQ(recorder.frames_written(), 1U);
  }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n42,1");
}

TEST_F(SystemCalls, that_take_nothing_end_the_recording) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    recorder.write_frame(test::bare_frame(1, 0.5));
    next_writes = {{.most = 4}, {.most = 0}};
    EXPECT_TRUE(fails(recorder));
    EXPECT_EQ(recorder.frames_written(), 1U);
  }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n42,1");
}

TEST_F(SystemCalls, that_fail_to_write_a_marker_show_with_the_next_frame) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    recorder.write_frame(test::bare_frame(1, 0.5));
    next_writes = {{.error = ENOSPC}};
    EXPECT_NO_THROW(recorder.add_marker("lost"));
    EXPECT_TRUE(fails(recorder));
    EXPECT_EQ(recorder.frames_written(), 1U);
  }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n");
}

TEST_F(SystemCalls, that_fail_to_write_the_heading_keep_the_row_out) {
  {
    const Watch watch;
    Recorder recorder(file("a.csv"));
    next_writes = {{.error = ENOSPC}};
    EXPECT_TRUE(fails(recorder));
    EXPECT_EQ(recorder.frames_written(), 0U);
  }
  EXPECT_EQ(content("a.csv"), "");
}

TEST_F(SystemCalls, that_fail_to_write_a_document_go_unnoticed) {
  {
    const Watch watch;
    Recorder recorder(file("a.json"));
    recorder.write_frame(test::small_frame());
    next_writes = {{.most = 10}, {.error = ENOSPC}};
  }
  EXPECT_EQ(content("a.json").size(), 10U);
}

TEST_F(SystemCalls, to_read_may_bring_little_at_a_time) {
  const std::string path = recording(50);
  const Watch watch;
  for (int i = 0; i < 2000; ++i) next_reads.push_back({.most = 1 + static_cast<std::size_t>(i % 3)});
  const Replayer replayer(path);
  ASSERT_EQ(replayer.frame_count(), 50U);
  for (std::size_t i = 0; i < 50; ++i) EXPECT_EQ(replayer.frames()[i].seq, i);
}

TEST_F(SystemCalls, to_read_that_are_interrupted_are_made_again) {
  const std::string path = recording(10);
  const Watch watch;
  next_reads = {{.error = EINTR}, {.most = 500}, {.error = EINTR},
                {.error = EINTR}, {.most = 100}, {.error = EINTR}};
  const Replayer replayer(path);
  EXPECT_EQ(replayer.frame_count(), 10U);
}

TEST_F(SystemCalls, to_read_that_fail_within_a_line_leave_it_out) {
  const std::string path = recording(10);
  const std::size_t within_number_4 = content("recording.tsl").find("\"seq\":4,\"t\":") + 12;
  const Watch watch;
  next_reads = {{.most = within_number_4}, {.error = EIO}};
  const Replayer replayer(path);
  EXPECT_EQ(replayer.frame_count(), 4U);
}

TEST_F(SystemCalls, to_read_that_fail_end_the_recording_there) {
  const std::string path = recording(10);
  const std::string text = content("recording.tsl");
  const std::size_t four_frames = text.find("\"seq\":4,") - std::string("{\"type\":\"frame\",").size();
  const Watch watch;
  next_reads = {{.most = four_frames}, {.error = EIO}};
  const Replayer replayer(path);
  EXPECT_EQ(replayer.frame_count(), 4U);
}

}  // namespace
}  // namespace tarsil
