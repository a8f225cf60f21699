// Recording where nothing can be written, or nothing more.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "tarsil/recording/recorder.h"
#include "tests/recording/samples.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

constexpr const char* kWriteFailed =
    "Recorder: write failed (disk full or I/O error) \xE2\x80\x94 recording is incomplete";

/// Stands for the free space of a disk.
constexpr rlim_t kSpace = 2000;

/// What the message of the runtime error is that `action` raises.
std::string error_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

/// Runs `action` in a child process whose files cannot grow beyond kSpace bytes, and returns what it returns.
std::string on_a_small_disk(const std::function<std::string()>& action) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  const pid_t child = fork();
  if (child == 0) {
    const rlimit limit{kSpace, kSpace};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string result = action();
    const bool told = ::write(ends[1], result.data(), result.size()) == static_cast<ssize_t>(result.size());
    _exit(told ? 0 : 1);
  }
  ::close(ends[1]);
  std::string result;
  std::array<char, 4096> bytes;
  for (ssize_t count = 1; count > 0;) {
    count = ::read(ends[0], bytes.data(), bytes.size());
    if (count > 0) result.append(bytes.data(), static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return result;
}

class RecorderFailure : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }
  [[nodiscard]] std::string content(const std::string& name) const {
    return test::read_file(directory_.file(name));
  }

  /// A path that leads to a device without room for a single byte.
  [[nodiscard]] std::string full(const std::string& name) const {
    std::filesystem::create_symlink("/dev/full", directory_.file(name));
    return directory_.file(name);
  }

  test::TempDirectory directory_;
};

/// Records small frames until that fails; the frames that went well, the counter and the message.
std::string record_until_failure(const std::string& path) {
  Recorder recorder(path);
  std::uint64_t accepted = 0;
  const std::string message = error_of([&] {
    for (; accepted < 1000; ++accepted) recorder.write_frame(test::small_frame());
  });
  return std::to_string(accepted) + " " + std::to_string(recorder.frames_written()) + " " + message;
}

TEST_F(RecorderFailure, names_the_path_that_cannot_be_opened) {
  const std::string missing = file("no/such/directory/a.tsl");
  EXPECT_EQ(error_of([&] { const Recorder recorder(missing); }), "Recorder: cannot open: " + missing);
  EXPECT_EQ(error_of([&] { const Recorder recorder(missing, Recorder::Format::csv); }),
            "Recorder: cannot open: " + missing);
}

TEST_F(RecorderFailure, names_the_path_with_the_extension_it_was_given) {
  const std::string missing = file("no/take");
  EXPECT_EQ(error_of([&] { const Recorder recorder(missing, Recorder::Format::json); }),
            "Recorder: cannot open: " + missing + ".json");
  EXPECT_EQ(error_of([&] { const Recorder recorder(missing); }), "Recorder: cannot open: " + missing);
}

TEST_F(RecorderFailure, opens_neither_a_directory_nor_an_empty_path) {
  EXPECT_EQ(error_of([&] { const Recorder recorder(directory_.path()); }),
            "Recorder: cannot open: " + directory_.path().string());
  EXPECT_EQ(error_of([] { const Recorder recorder(""); }), "Recorder: cannot open: ");
}

TEST_F(RecorderFailure, keeps_no_descriptor) {
  const std::size_t before = test::open_descriptors();
  for (const char* const name : {"no/a.tsl", "no/a.csv", "no/a.json"}) {
    EXPECT_THROW(Recorder{file(name)}, std::runtime_error);
  }
  { const Recorder recorder(file("a.tsl")); }
  { const Recorder recorder(full("full.json")); }
  EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(RecorderFailure, of_a_tsl_header_shows_with_the_first_frame) {
  Recorder recorder(full("full.tsl"), Recorder::Format::tsl);
  EXPECT_EQ(error_of([&] { recorder.write_frame(test::small_frame()); }), kWriteFailed);
  EXPECT_EQ(recorder.frames_written(), 0U);
}

TEST_F(RecorderFailure, of_a_csv_row_shows_at_once) {
  Recorder recorder(full("full.csv"), Recorder::Format::csv);
  EXPECT_EQ(error_of([&] { recorder.write_frame(test::small_frame()); }), kWriteFailed);
  EXPECT_EQ(recorder.frames_written(), 0U);
}

TEST_F(RecorderFailure, of_a_marker_shows_with_the_next_frame) {
  Recorder recorder(full("full.csv"), Recorder::Format::csv);
  EXPECT_NO_THROW(recorder.add_marker("lost"));
  EXPECT_NO_THROW(recorder.add_marker("lost, too"));
  EXPECT_EQ(error_of([&] { recorder.write_frame(test::small_frame()); }), kWriteFailed);
}

TEST_F(RecorderFailure, stays) {
  Recorder recorder(full("full.csv"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(error_of([&] { recorder.write_frame(test::small_frame()); }), kWriteFailed);
  }
  EXPECT_EQ(recorder.frames_written(), 0U);
  EXPECT_EQ(recorder.duration(), 0.0);
}

TEST_F(RecorderFailure, of_a_json_document_is_not_detected) {
  const std::string path = full("full.json");
  EXPECT_NO_THROW({
    Recorder recorder(path);
    recorder.write_frame(test::small_frame());
    recorder.add_marker("lost");
    EXPECT_EQ(recorder.frames_written(), 1U);
  });
}

TEST_F(RecorderFailure, on_a_full_disk_leaves_the_tsl_lines_before_it) {
  const std::string result = on_a_small_disk([&] { return record_until_failure(file("a.tsl")); });
  const std::string text = content("a.tsl");
  const auto lines = test::lines_of(text);
  const std::string frame_line = test::printed_tsl_line(test::small_frame());
  const std::size_t header = lines.at(0).size() + 1;
  const std::size_t accepted = (kSpace - header) / frame_line.size();
  ASSERT_GT(accepted, 3U);
  EXPECT_EQ(result, std::to_string(accepted) + " " + std::to_string(accepted) + " " + kWriteFailed);
  for (std::size_t i = 1; i <= accepted; ++i) EXPECT_EQ(lines.at(i) + "\n", frame_line);
  EXPECT_LE(text.size(), kSpace);
  // At most the beginning of one more line.
  EXPECT_TRUE(frame_line.starts_with(text.substr(header + accepted * frame_line.size())));
}

TEST_F(RecorderFailure, on_a_full_disk_leaves_the_csv_rows_before_it) {
  const std::string result = on_a_small_disk([&] { return record_until_failure(file("a.csv")); });
  const std::string text = content("a.csv");
  const std::string heading =
      "seq,t,stale,q_0,q_1,touch_0,imu_0_ax,imu_0_ay,imu_0_az,imu_0_gx,imu_0_gy,imu_0_gz\n";
  const std::string row =
      "42,1.234000,0,0.100000,0.200000,0.000000,0.010000,-0.020000,9.810000,0.000000,0.001000,-0.002000\n";
  const std::size_t accepted = (kSpace - heading.size()) / row.size();
  EXPECT_EQ(result, std::to_string(accepted) + " " + std::to_string(accepted) + " " + kWriteFailed);
  std::string expected = heading;
  for (std::size_t i = 0; i < accepted; ++i) expected += row;
  EXPECT_EQ(text.substr(0, expected.size()), expected);
  EXPECT_TRUE(row.starts_with(text.substr(expected.size())));
}

TEST_F(RecorderFailure, on_a_full_disk_writes_nothing_behind_the_gap) {
  const std::string result = on_a_small_disk([&] {
    Recorder recorder(file("a.csv"));
    recorder.write_frame(test::bare_frame(1, 0.5));
    recorder.add_marker(std::string(5000, 'm'));
    // These would still fit, had the marker not taken what was left.
    const std::string first = error_of([&] { recorder.write_frame(test::bare_frame(2, 1.0)); });
    recorder.add_marker("late");
    const std::string second = error_of([&] { recorder.write_frame(test::bare_frame(3, 1.5)); });
    return std::to_string(recorder.frames_written()) + " " + first + " " + second;
  });
  EXPECT_EQ(result, std::string("1 ") + kWriteFailed + " " + kWriteFailed);
  const std::string text = content("a.csv");
  EXPECT_THAT(text, testing::StartsWith("seq,t,stale\n1,0.500000,0\n# marker t="));
  EXPECT_LE(text.size(), kSpace);
  EXPECT_EQ(text.find("late"), std::string::npos);
  EXPECT_EQ(text.find("\n2,"), std::string::npos);
}

TEST_F(RecorderFailure, on_a_full_disk_cuts_a_json_document_without_a_word) {
  const std::string result = on_a_small_disk([&] {
    Recorder recorder(file("a.json"));
    for (int i = 0; i < 100; ++i) recorder.write_frame(test::small_frame());
    return std::to_string(recorder.frames_written());
  });
  EXPECT_EQ(result, "100");
  EXPECT_EQ(content("a.json").size(), kSpace);
}

}  // namespace
}  // namespace tarsil
