// Loading a recording and handing it out, without pacing.
#include "tarsil/recording/replayer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarsil/core/errors.h"
#include "tests/recording/samples.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr ReplayerConfig kUnpaced{0.0F, false};
constexpr ReplayerConfig kLooping{0.0F, true};

const std::string kFrameLine =
    "{\"type\":\"frame\",\"seq\":1,\"t\":10.0,\"q\":[0.5],\"touch\":[],\"imu\":[]}\n";

std::string frame_line(std::uint64_t seq, double t) {
  return test::printed_tsl_line(test::bare_frame(seq, t));
}

std::string header_line(const std::string& metadata) {
  return "{\"type\":\"header\",\"version\":1,\"sdk\":\"0.2.9\",\"format\":\"tsl\",\"file\":\"a.tsl\","
         "\"t_created\":1.000000,\"metadata\":{" +
         metadata + "}}\n";
}

/// What the message of the error of this type is that `action` raises.
template <typename Error = std::runtime_error>
std::string error_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

class ReplayerTest : public testing::Test {
 protected:
  /// A path to a file with these bytes.
  std::string file(const std::string& bytes) {
    const std::string path = directory_.file("recording.tsl");
    test::write_file(path, bytes);
    return path;
  }
  [[nodiscard]] std::string path(const std::string& name) const { return directory_.file(name); }
  [[nodiscard]] std::string directory() const { return directory_.path(); }

  DeviceInfo info_of(const std::string& bytes) { return Replayer(file(bytes), kUnpaced).device_info(); }

  /// The numbers of the frames that a file gives.
  std::vector<std::uint64_t> numbers_of(const std::string& bytes) {
    std::vector<std::uint64_t> numbers;
    const Replayer replayer(file(bytes), kUnpaced);
    for (const Frame& frame : replayer.frames()) numbers.push_back(frame.seq);
    return numbers;
  }

  std::string load_error(const std::string& bytes) {
    return error_of([&] { const Replayer replayer(file(bytes)); });
  }

 private:
  test::TempDirectory directory_;
};

TEST(ReplayerConfig, plays_once_at_the_speed_of_the_recording) {
  EXPECT_EQ(ReplayerConfig{}.speed, 1.0F);
  EXPECT_FALSE(ReplayerConfig{}.loop);
}

TEST_F(ReplayerTest, names_a_file_that_cannot_be_opened) {
  EXPECT_EQ(error_of([&] { const Replayer replayer(path("missing.tsl")); }),
            "Replayer: cannot open: " + path("missing.tsl"));
  EXPECT_EQ(error_of([] { const Replayer replayer(""); }), "Replayer: cannot open: ");
}

TEST_F(ReplayerTest, finds_no_frames_in_what_is_no_recording) {
  const std::string expected = "Replayer: no frames found in: " + path("recording.tsl");
  EXPECT_EQ(load_error(""), expected);
  EXPECT_EQ(load_error("\n\n\n"), expected);
  EXPECT_EQ(load_error("hello\nworld"), expected);
  EXPECT_EQ(load_error(header_line("\"n_dofs\": \"20\"")), expected);
  EXPECT_EQ(load_error("seq,t,stale,q_0\n1,0.500000,0,0.100000\n# marker t=1.000000 name=x\n"), expected);
  EXPECT_EQ(load_error("{\n  \"version\": 1,\n  \"frames\": [\n    {\"seq\":1,\"t\":1.000000,\"q\":[],"
                       "\"touch\":[],\"imu\":[],\"stale\":false}\n  ],\n  \"markers\": [\n  ]\n}\n"),
            expected);
  EXPECT_EQ(load_error(std::string(1000, '\0')), expected);
}

TEST_F(ReplayerTest, finds_no_frames_in_a_directory) {
  EXPECT_EQ(error_of([&] { const Replayer replayer(directory()); }),
            "Replayer: no frames found in: " + directory());
}

TEST_F(ReplayerTest, keeps_no_descriptor) {
  const std::size_t before = test::open_descriptors();
  const Replayer replayer(file(kFrameLine));
  EXPECT_EQ(load_error("nothing"), "Replayer: no frames found in: " + path("recording.tsl"));
  EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(ReplayerTest, takes_frames_in_file_order) {
  EXPECT_THAT(numbers_of(frame_line(3, 1.0) + frame_line(1, 2.0) + frame_line(2, 0.5)), ElementsAre(3, 1, 2));
}

TEST_F(ReplayerTest, takes_every_field_but_stale) {
  Frame stale = test::small_frame();
  stale.stale = true;
  const Replayer replayer(file(test::printed_tsl_line(stale)), kUnpaced);
  ASSERT_EQ(replayer.frame_count(), 1U);
  EXPECT_TRUE(test::same_bits(replayer.frames()[0], test::small_frame()))
      << test::exact_text(replayer.frames()[0]);
}

TEST_F(ReplayerTest, leaves_the_status_bytes_at_their_defaults) {
  Replayer replayer(file(kFrameLine), kUnpaced);
  const Frame frame = replayer.read_frame();
  EXPECT_THAT(frame.status_lo, ElementsAre(0x0F, 0x0F, 0x0F, 0x0F, 0x0F));
  EXPECT_THAT(frame.status_hi, ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(ReplayerTest, takes_a_last_line_without_line_feed) {
  EXPECT_THAT(numbers_of("{\"type\":\"frame\",\"seq\":1}\n{\"type\":\"frame\",\"seq\":2}"),
              ElementsAre(1, 2));
}

TEST_F(ReplayerTest, passes_over_lines_it_does_not_know) {
  EXPECT_THAT(
      numbers_of(std::string("\n") + frame_line(1, 1.0) +
                 "\n\n{\"type\":\"comment\",\"seq\":9}\n{\"seq\":9}\nfree text\n" + frame_line(2, 2.0) +
                 "{\"type\":\"Frame\",\"seq\":9}\n{\"type\":\"frame \",\"seq\":9}\n"),
      ElementsAre(1, 2));
}

TEST_F(ReplayerTest, reads_files_with_carriage_returns) {
  EXPECT_THAT(numbers_of("\r\n{\"type\":\"frame\",\"seq\":1}\r\n{\"type\":\"frame\",\"seq\":2}\r\n"),
              ElementsAre(1, 2));
  const std::string line = test::printed_tsl_line(test::small_frame());
  const Replayer replayer(file(line.substr(0, line.size() - 1) + "\r\n"), kUnpaced);
  EXPECT_TRUE(test::same_bits(replayer.frames().at(0), test::small_frame()));
}

TEST_F(ReplayerTest, reads_lines_that_a_parser_would_refuse) {
  EXPECT_THAT(numbers_of("garbage \"type\":\"frame\" more \"seq\":5 garbage\n"), ElementsAre(5));
  EXPECT_THAT(numbers_of(std::string("\0\0{\"type\":\"frame\",\0\"seq\":6}\n", 28)), ElementsAre(6));
  EXPECT_THAT(numbers_of("{\"type\":  \"frame\", \"seq\":7}\n"), ElementsAre(7));
}

TEST_F(ReplayerTest, uses_frames_with_malformed_numbers) {
  const Replayer replayer(file("{\"type\":\"frame\",\"seq\":abc,\"t\":,\"q\":[1,x,2]}\n"), kUnpaced);
  ASSERT_EQ(replayer.frame_count(), 1U);
  EXPECT_EQ(replayer.frames()[0].seq, 0U);
  EXPECT_EQ(replayer.frames()[0].t, 0.0);
  EXPECT_THAT(replayer.frames()[0].q, ElementsAre(1.0F));
}

TEST_F(ReplayerTest, brings_numbers_into_range) {
  EXPECT_THAT(
      numbers_of("{\"type\":\"frame\",\"seq\":-5,\"t\":1}\n{\"type\":\"frame\",\"seq\":nan,\"t\":1}\n"
                 "{\"type\":\"frame\",\"seq\":1e300,\"t\":1}\n{\"type\":\"frame\",\"seq\":inf,\"t\":1}\n"),
      ElementsAre(0U, 0U, 18446744073709551615U, 18446744073709551615U));
}

TEST_F(ReplayerTest, brings_numbers_of_whole_lines_into_range) {
  const auto line = [](const std::string& seq) {
    return "{\"type\":\"frame\",\"seq\":" + seq +
           ",\"t\":1.0,\"q\":[],\"touch\":[],\"imu\":[],\"stale\":false}\n";
  };
  EXPECT_THAT(
      numbers_of(line("-5") + line("-nan") + line("nan") + line("18446744073709551615") + line("1e300")),
      ElementsAre(0U, 0U, 0U, 18446744073709551615U, 18446744073709551615U));
}

TEST_F(ReplayerTest, takes_a_short_vector_for_zero) {
  const Replayer replayer(file("{\"type\":\"frame\",\"seq\":1,\"t\":1.0,\"q\":[],\"touch\":[],"
                               "\"imu\":[{\"acc\":[1.0,2.0],\"gyro\":[3.0,4.0,5.0]}],\"stale\":false}\n"),
                          kUnpaced);
  ASSERT_EQ(replayer.frames().at(0).imu.size(), 1U);
  EXPECT_THAT(replayer.frames()[0].imu[0].acc, ElementsAre(0.0F, 0.0F, 0.0F));
  EXPECT_THAT(replayer.frames()[0].imu[0].gyro, ElementsAre(3.0F, 4.0F, 5.0F));
}

TEST_F(ReplayerTest, reads_lines_longer_than_any_buffer) {
  Frame long_frame = test::bare_frame(1, 1.0);
  long_frame.q.resize(200'000, 0.25F);
  const std::string line = test::printed_tsl_line(long_frame);
  ASSERT_GT(line.size(), std::size_t{1024 * 1024});
  const Replayer replayer(file(frame_line(0, 0.5) + line + frame_line(2, 1.5) + line), kUnpaced);
  ASSERT_EQ(replayer.frame_count(), 4U);
  EXPECT_TRUE(test::same_bits(replayer.frames()[1], long_frame));
  EXPECT_EQ(replayer.frames()[2].seq, 2U);
  EXPECT_TRUE(test::same_bits(replayer.frames()[3], long_frame));
}

TEST_F(ReplayerTest, takes_markers_in_file_order) {
  const Replayer replayer(
      file("{\"type\":\"marker\",\"t\":1.500000,\"name\":\"one\",\"data\":{\"k\": \"v\", \"l\": \"w\"}}\n" +
           kFrameLine + "{\"type\":\"marker\",\"t\":0.500000,\"name\":\"two\",\"data\":{}}\n" +
           "{\"type\":\"marker\"}\n"),
      kUnpaced);
  ASSERT_EQ(replayer.markers().size(), 3U);
  EXPECT_EQ(replayer.markers()[0].t, 1.5);
  EXPECT_EQ(replayer.markers()[0].name, "one");
  EXPECT_EQ(replayer.markers()[0].data, (std::map<std::string, std::string>{{"k", "v"}, {"l", "w"}}));
  EXPECT_EQ(replayer.markers()[1].t, 0.5);
  EXPECT_EQ(replayer.markers()[1].name, "two");
  EXPECT_THAT(replayer.markers()[1].data, IsEmpty());
  EXPECT_EQ(replayer.markers()[2].t, 0.0);
  EXPECT_EQ(replayer.markers()[2].name, "");
}

TEST_F(ReplayerTest, cuts_a_name_at_an_escaped_quote) {
  const Replayer replayer(
      file("{\"type\":\"marker\",\"t\":1.000000,\"name\":\"a\\\"b\",\"data\":{}}\n" + kFrameLine), kUnpaced);
  EXPECT_EQ(replayer.markers().at(0).name, "a\\");
}

TEST_F(ReplayerTest, is_anonymous_and_right_without_a_header) {
  const DeviceInfo info = info_of(kFrameLine);
  EXPECT_EQ(info.serial, "");
  EXPECT_EQ(info.side, 1);
  EXPECT_EQ(info.firmware, "");
}

TEST_F(ReplayerTest, is_who_the_header_says) {
  const DeviceInfo info =
      info_of(header_line("\"firmware\": \"4.2\", \"n_dofs\": \"20\", \"n_imu\": \"5\", "
                          "\"n_pads\": \"30\", \"serial\": \"TSL-7\", \"side\": \"left\"") +
              kFrameLine);
  EXPECT_EQ(info.serial, "TSL-7");
  EXPECT_EQ(info.side, 0);
  EXPECT_EQ(info.firmware, "0.2.9");
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
}

TEST_F(ReplayerTest, is_left_only_by_the_exact_word) {
  EXPECT_EQ(info_of(header_line("\"side\": \"left\"") + kFrameLine).side, 0);
  for (const char* const side : {"LEFT", "Left", "left ", "", "right", "0"}) {
    EXPECT_EQ(info_of(header_line("\"side\": \"" + std::string(side) + "\"") + kFrameLine).side, 1) << side;
  }
}

TEST_F(ReplayerTest, takes_counts_from_the_first_frame_that_has_any) {
  const std::string full = test::printed_tsl_line(test::worn_frames(1, 1).front());
  const DeviceInfo info = info_of(header_line("\"side\": \"left\"") + frame_line(1, 0.5) + kFrameLine + full);
  EXPECT_EQ(info.n_dofs, 1);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
}

TEST_F(ReplayerTest, counts_twenty_joints_in_the_first_frame) {
  EXPECT_EQ(info_of(header_line("") + test::printed_tsl_line(test::worn_frames(1, 1).front())).n_dofs, 20);
}

TEST_F(ReplayerTest, takes_a_count_of_zero_for_unknown) {
  const DeviceInfo info = info_of(header_line("\"n_dofs\": \"0\", \"n_imu\": \"0\", \"n_pads\": \"0\"") +
                                  test::printed_tsl_line(test::small_frame()));
  EXPECT_EQ(info.n_dofs, 2);
  EXPECT_EQ(info.n_pads, 1);
  EXPECT_EQ(info.n_imu, 1);
}

TEST_F(ReplayerTest, reads_the_leading_digits_of_a_count) {
  const DeviceInfo info = info_of(
      header_line("\"n_dofs\": \"12 joints\", \"n_imu\": \"-3\", \"n_pads\": \" +7.9\"") + kFrameLine);
  EXPECT_EQ(info.n_dofs, 12);
  EXPECT_EQ(info.n_pads, 7);
  EXPECT_EQ(info.n_imu, -3);
}

TEST_F(ReplayerTest, refuses_a_count_that_is_no_number) {
  for (const char* const key : {"n_dofs", "n_pads", "n_imu"}) {
    for (const char* const value : {"", "many", "x12", "-"}) {
      const std::string metadata = std::string("\"") + key + "\": \"" + value + "\"";
      EXPECT_EQ(error_of<std::invalid_argument>(
                    [&] { const Replayer replayer(file(header_line(metadata) + kFrameLine)); }),
                "stoi")
          << metadata;
    }
  }
}

TEST_F(ReplayerTest, refuses_a_count_that_is_out_of_range) {
  for (const char* const value : {"2147483648", "-2147483649", "99999999999999999999999999"}) {
    const std::string metadata = "\"n_dofs\": \"" + std::string(value) + "\"";
    EXPECT_EQ(error_of<std::out_of_range>(
                  [&] { const Replayer replayer(file(header_line(metadata) + kFrameLine)); }),
              "stoi")
        << metadata;
  }
}

TEST_F(ReplayerTest, goes_by_the_first_header_alone) {
  const DeviceInfo info = info_of(header_line("\"n_dofs\": \"3\", \"serial\": \"first\"") + kFrameLine +
                                  header_line("\"n_dofs\": \"none\", \"serial\": \"second\"") + kFrameLine);
  EXPECT_EQ(info.serial, "first");
  EXPECT_EQ(info.n_dofs, 3);
}

TEST_F(ReplayerTest, takes_a_header_wherever_it_stands) {
  const DeviceInfo info = info_of(kFrameLine + header_line("\"n_dofs\": \"3\", \"serial\": \"late\""));
  EXPECT_EQ(info.serial, "late");
  EXPECT_EQ(info.n_dofs, 3);
}

TEST_F(ReplayerTest, does_without_metadata_in_the_header) {
  const DeviceInfo info = info_of("{\"type\":\"header\",\"sdk\":\"9\"}\n" + kFrameLine);
  EXPECT_EQ(info.firmware, "9");
  EXPECT_EQ(info.serial, "");
  EXPECT_EQ(info.n_dofs, 1);
  EXPECT_EQ(info_of("{\"type\":\"header\"}\n" + kFrameLine).firmware, "");
}

TEST_F(ReplayerTest, lasts_from_the_first_frame_to_the_last) {
  EXPECT_EQ(Replayer(file(header_line("") + frame_line(1, 10.0) + frame_line(2, 12.5)), kUnpaced).duration(),
            2.5);
  EXPECT_EQ(Replayer(file(header_line("") + frame_line(1, 10.0)), kUnpaced).duration(), 0.0);
  EXPECT_EQ(
      Replayer(file(frame_line(1, 10.0) + frame_line(2, 50.0) + frame_line(3, 9.0)), kUnpaced).duration(),
      -1.0);
}

TEST_F(ReplayerTest, hands_out_one_frame_after_the_other) {
  Replayer replayer(file(frame_line(1, 1.0) + frame_line(2, 1000.0) + frame_line(3, 5.0)), kUnpaced);
  EXPECT_TRUE(replayer.is_open());
  EXPECT_EQ(replayer.read_frame().seq, 1U);
  EXPECT_EQ(replayer.read_frame().seq, 2U);
  EXPECT_TRUE(replayer.is_open());
  EXPECT_EQ(replayer.read_frame().seq, 3U);
  EXPECT_FALSE(replayer.is_open());
}

TEST_F(ReplayerTest, reports_an_underrun_past_the_end) {
  Replayer replayer(file(kFrameLine), kUnpaced);
  static_cast<void>(replayer.read_frame());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(error_of<StreamUnderrunError>([&] { static_cast<void>(replayer.read_frame()); }),
              "Replayer: end of recording");
  }
  EXPECT_FALSE(replayer.is_open());
}

TEST_F(ReplayerTest, hands_out_copies) {
  Replayer replayer(file(kFrameLine), kLooping);
  Frame frame = replayer.read_frame();
  frame.q.clear();
  EXPECT_THAT(replayer.read_frame().q, ElementsAre(0.5F));
}

TEST_F(ReplayerTest, starts_again_when_it_loops) {
  Replayer replayer(file(frame_line(0, 1.0) + frame_line(1, 2.0) + frame_line(2, 3.0)), kLooping);
  for (std::uint64_t i = 0; i < 10; ++i) {
    EXPECT_TRUE(replayer.is_open());
    EXPECT_EQ(replayer.read_frame().seq, i % 3);
  }
}

TEST_F(ReplayerTest, loops_over_a_single_frame) {
  Replayer replayer(file(kFrameLine), kLooping);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(replayer.read_frame().seq, 1U);
  EXPECT_TRUE(replayer.is_open());
}

TEST_F(ReplayerTest, is_not_open_once_closed) {
  Replayer once(file(kFrameLine), kUnpaced);
  once.close();
  EXPECT_FALSE(once.is_open());
  Replayer looping(file(kFrameLine), kLooping);
  looping.close();
  looping.close();
  EXPECT_FALSE(looping.is_open());
}

TEST_F(ReplayerTest, keeps_everything_else_when_it_is_closed) {
  Replayer replayer(file(header_line("\"serial\": \"s\"") + frame_line(1, 1.0) + frame_line(2, 2.0)),
                    kUnpaced);
  static_cast<void>(replayer.read_frame());
  replayer.close();
  EXPECT_EQ(replayer.frame_count(), 2U);
  EXPECT_EQ(replayer.duration(), 1.0);
  EXPECT_EQ(replayer.device_info().serial, "s");
  EXPECT_EQ(replayer.read_frame().seq, 2U);
}

}  // namespace
}  // namespace tarsil
