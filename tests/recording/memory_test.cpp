// What recording and loading ask of the allocator, which is replaced by one that counts.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "tarsil/core/mock_source.h"
#include "tarsil/recording/format.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace {

std::size_t allocations = 0;
/// Blocks larger than this are refused.
std::size_t largest = SIZE_MAX;
/// Bytes that are in use, with what the allocator adds to each block, and the most there ever were.
std::size_t in_use = 0;
std::size_t peak = 0;

/// A block's size in the heap: what can be used of it and one word of the allocator's.
std::size_t heap_size(void* memory) {
  return malloc_usable_size(memory) + sizeof(std::size_t);
}

void* allocate(std::size_t size) {
  ++allocations;
  void* memory = size > largest ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  in_use += heap_size(memory);
  peak = std::max(peak, in_use);
  return memory;
}

void release(void* memory) {
  if (memory != nullptr) in_use -= heap_size(memory);
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}

namespace tarsil {
namespace {

constexpr std::size_t kFrames = 2000;

/// Frames whose lines are all of one length, with other values in each.
std::vector<Frame> frames_of_one_width() {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> value(1.0F, 9.0F);
  std::vector<Frame> frames(kFrames);
  for (std::size_t i = 0; i < kFrames; ++i) {
    frames[i] = test::bare_frame(100'000 + i, 1700000000.0 + 0.01 * static_cast<double>(i));
    for (int n = 0; n < 20; ++n) frames[i].q.push_back(value(random));
    for (int n = 0; n < 30; ++n) frames[i].touch.push_back(value(random));
    frames[i].imu.resize(5);
    for (ImuSample& sample : frames[i].imu) {
      for (float& axis : sample.acc) axis = value(random);
      for (float& axis : sample.gyro) axis = value(random);
    }
  }
  return frames;
}

using Render = void (*)(std::string&, const Frame&);

std::size_t allocations_to_render(const std::vector<Frame>& frames, Render render) {
  std::string line;
  render(line, frames.front());
  const std::size_t before = allocations;
  for (const Frame& frame : frames) {
    line.clear();
    render(line, frame);
  }
  return allocations - before;
}

std::size_t allocations_to_write(const std::vector<Frame>& frames, const std::string& path) {
  Recorder recorder(path);
  recorder.write_frame(frames.front());
  const std::size_t before = allocations;
  for (const Frame& frame : frames) recorder.write_frame(frame);
  return allocations - before;
}

TEST(RecordingMemory, is_not_asked_for_to_render_a_line) {
  const auto frames = frames_of_one_width();
  EXPECT_EQ(allocations_to_render(frames, detail::append_tsl_frame), 0U);
  EXPECT_EQ(allocations_to_render(frames, detail::append_csv_row), 0U);
}

TEST(RecordingMemory, is_not_asked_for_to_write_a_frame) {
  const test::TempDirectory directory;
  const auto frames = frames_of_one_width();
  EXPECT_EQ(allocations_to_write(frames, directory.file("a.tsl")), 0U);
  EXPECT_EQ(allocations_to_write(frames, directory.file("a.csv")), 0U);
}

TEST(RecordingMemory, grows_with_the_longest_line_only) {
  const test::TempDirectory directory;
  const auto frames = test::worn_frames(kFrames, 2);
  // Lines of worn gloves differ by some minus signs and digits: the buffer doubles once, at most.
  EXPECT_LE(allocations_to_write(frames, directory.file("a.tsl")), 1U);
  EXPECT_LE(allocations_to_write(frames, directory.file("a.csv")), 1U);
}

TEST(RecordingMemory, of_a_loaded_frame_is_one_exact_block_for_each_array) {
  const test::TempDirectory directory;
  {
    Recorder recorder(directory.file("a.tsl"));
    MockSource source({.realtime = false});
    for (std::size_t i = 0; i < kFrames; ++i) recorder.write_frame(source.read_frame());
  }
  const std::size_t before = allocations;
  const Replayer replayer(directory.file("a.tsl"));
  const std::size_t taken = allocations - before;
  ASSERT_EQ(replayer.frame_count(), kFrames);
  for (const Frame& frame : replayer.frames()) {
    ASSERT_EQ(frame.q.size(), 20U);
    ASSERT_EQ(frame.q.capacity(), 20U);
    ASSERT_EQ(frame.touch.size(), 30U);
    ASSERT_EQ(frame.touch.capacity(), 30U);
    ASSERT_EQ(frame.imu.size(), 5U);
    ASSERT_EQ(frame.imu.capacity(), 5U);
  }
  // The file's buffer, the header's texts and the growing list of frames come on top.
  EXPECT_GE(taken, 3 * kFrames);
  EXPECT_LE(taken, 3 * kFrames + 100);
}

TEST(RecordingMemory, to_load_a_recording_is_little_more_than_that_of_its_frames) {
  constexpr std::size_t kMany = 60'000;
  const test::TempDirectory directory;
  {
    Recorder recorder(directory.file("a.tsl"));
    MockSource source({.realtime = false});
    for (std::size_t i = 0; i < kMany; ++i) recorder.write_frame(source.read_frame());
  }
  peak = in_use;
  const std::size_t before = in_use;
  const Replayer replayer(directory.file("a.tsl"));
  ASSERT_EQ(replayer.frame_count(), kMany);
  // A frame's record and its three arrays.
  constexpr double kFrameSize = 464;
  EXPECT_LT(static_cast<double>(peak - before), 1.06 * kFrameSize * kMany);
}

TEST(RecordingMemory, is_not_taken_for_arrays_without_values) {
  const test::TempDirectory directory;
  {
    Recorder recorder(directory.file("a.tsl"));
    for (std::size_t i = 0; i < kFrames; ++i) recorder.write_frame(test::bare_frame(i, 0.5));
  }
  const std::size_t before = allocations;
  const Replayer replayer(directory.file("a.tsl"));
  EXPECT_LE(allocations - before, 100U);
  EXPECT_EQ(replayer.frame_count(), kFrames);
}

TEST(RecordingMemory, is_not_taken_for_what_a_header_promises) {
  const test::TempDirectory directory;
  const std::string path = directory.file("a.tsl");
  test::write_file(
      path,
      R"({"type":"header","metadata":{"n_dofs": "2147483647", "n_imu": "2147483647", "n_pads": "2147483647"}})"
      "\n"
      R"({"type":"frame","seq":0,"t":0.5,"q":[1.0],"touch":[],"imu":[]})");
  largest = 1'000'000;
  Replayer replayer(path);
  EXPECT_EQ(replayer.read_frame().q, std::vector<float>{1.0F});
  largest = SIZE_MAX;
  EXPECT_EQ(replayer.device_info().n_dofs, 2147483647);
}

TEST(RecordingMemoryDeathTest, that_lacks_for_a_json_document_ends_the_process) {
  const test::TempDirectory directory;
  EXPECT_EXIT(
      {
        auto recorder = std::make_unique<Recorder>(directory.file("a.json"));
        for (const Frame& frame : test::worn_frames(1000, 3)) recorder->write_frame(frame);
        largest = 100'000;
        recorder.reset();
      },
      testing::KilledBySignal(SIGABRT), "bad_alloc");
}

}  // namespace
}  // namespace tarsil
