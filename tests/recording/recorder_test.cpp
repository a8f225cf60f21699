// When the recorder writes what, under which name, and what it counts.
#include "tarsil/recording/recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "tarsil/core/clock.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

using Format = Recorder::Format;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// Written times have six decimals.
constexpr double kMicrosecond = 1e-6;

class RecorderTest : public testing::Test {
 protected:
  [[nodiscard]] std::string content(const std::string& name) const {
    return test::read_file(directory_.file(name));
  }
  [[nodiscard]] bool exists(const std::string& name) const {
    return std::filesystem::exists(directory_.file(name));
  }
  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }

 private:
  test::TempDirectory directory_;
};

static_assert(!std::is_copy_constructible_v<Recorder> && !std::is_move_constructible_v<Recorder>);
static_assert(std::is_nothrow_destructible_v<Recorder>);

TEST(RecordingFormat, follows_from_the_extension) {
  EXPECT_EQ(recording_format_for("a.tsl"), Format::tsl);
  EXPECT_EQ(recording_format_for("a.TSL"), Format::tsl);
  EXPECT_EQ(recording_format_for("a.csv"), Format::csv);
  EXPECT_EQ(recording_format_for("a.CSV"), Format::csv);
  EXPECT_EQ(recording_format_for("a.json"), Format::json);
  EXPECT_EQ(recording_format_for("a.JSON"), Format::json);
  EXPECT_EQ(recording_format_for("dir.tsl/a.csv"), Format::csv);
}

TEST(RecordingFormat, of_anything_else_is_tsl) {
  for (const char* const path : {"a.Csv", "a.Json", "a.jSON", "a", "", "a.", ".csv", "dir/.json", "a.csv.bak",
                                 "a.csv2", "dir.csv/a", "csv", "a.json "}) {
    EXPECT_EQ(recording_format_for(path), Format::tsl) << path;
  }
}

TEST(RecordingFormat, has_a_default_extension) {
  EXPECT_EQ(default_extension(Format::tsl), ".tsl");
  EXPECT_EQ(default_extension(Format::csv), ".csv");
  EXPECT_EQ(default_extension(Format::json), ".json");
  EXPECT_EQ(default_extension(static_cast<Format>(17)), ".tsl");
}

TEST(RecordingFormat, has_its_number) {
  EXPECT_EQ(static_cast<int>(Format::tsl), 0);
  EXPECT_EQ(static_cast<int>(Format::csv), 1);
  EXPECT_EQ(static_cast<int>(Format::json), 2);
}

TEST_F(RecorderTest, appends_the_formats_extension_to_a_path_without_one) {
  { const Recorder recorder(file("take1"), Format::json); }
  { const Recorder recorder(file("take2"), Format::csv); }
  { const Recorder recorder(file("take3"), Format::tsl); }
  { const Recorder recorder(file(".hidden"), Format::csv); }
  EXPECT_TRUE(exists("take1.json"));
  EXPECT_TRUE(exists("take2.csv"));
  EXPECT_TRUE(exists("take3.tsl"));
  EXPECT_TRUE(exists(".hidden.csv"));
  EXPECT_FALSE(exists("take1"));
  EXPECT_FALSE(exists("take2"));
  EXPECT_FALSE(exists("take3"));
}

TEST_F(RecorderTest, looks_for_an_extension_in_the_last_component_only) {
  std::filesystem::create_directory(file("session.v1"));
  { const Recorder recorder(file("session.v1/take"), Format::csv); }
  EXPECT_TRUE(exists("session.v1/take.csv"));
}

TEST_F(RecorderTest, keeps_an_extension_that_does_not_match_the_format) {
  {
    Recorder recorder(file("take1.dat"), Format::csv);
    recorder.write_frame(test::bare_frame(1, 0.5));
  }
  EXPECT_EQ(content("take1.dat"), "seq,t,stale\n1,0.500000,0\n");
  { const Recorder recorder(file("take2.csv"), Format::tsl); }
  EXPECT_THAT(content("take2.csv"), StartsWith("{\"type\":\"header\","));
}

TEST_F(RecorderTest, takes_the_format_from_the_path_and_the_path_as_it_is) {
  { Recorder(file("a.csv")).write_frame(test::bare_frame(1, 0.5)); }
  { const Recorder recorder(file("b.JSON")); }
  { const Recorder recorder(file("c.Csv")); }
  { const Recorder recorder(file("d")); }
  EXPECT_EQ(content("a.csv"), "seq,t,stale\n1,0.500000,0\n");
  EXPECT_THAT(content("b.JSON"), StartsWith("{\n  \"version\": 1,\n"));
  EXPECT_THAT(content("c.Csv"), StartsWith("{\"type\":\"header\","));
  EXPECT_THAT(content("d"), StartsWith("{\"type\":\"header\","));
  EXPECT_FALSE(exists("d.tsl"));
}

TEST_F(RecorderTest, replaces_a_file_of_that_name) {
  for (const char* const name : {"a.tsl", "a.csv", "a.json"}) {
    test::write_file(file(name), std::string(100'000, 'x'));
    const auto recorder = std::make_unique<Recorder>(file(name));
    EXPECT_EQ(content(name).find('x'), std::string::npos);
  }
}

TEST_F(RecorderTest, has_the_header_in_a_tsl_file_as_soon_as_it_is_open) {
  const double before = detail::wall_clock_seconds();
  const Recorder recorder(file("take1"), Format::tsl, {{"side", "right"}, {"firmware", "mock-0.1.0"}});
  const double after = detail::wall_clock_seconds();
  const std::string header = content("take1.tsl");
  EXPECT_THAT(header, StartsWith("{\"type\":\"header\",\"version\":1,\"sdk\":\"0.3.0\",\"format\":\"tsl\","
                                 "\"file\":\"take1.tsl\",\"t_created\":"));
  EXPECT_THAT(header, EndsWith(",\"metadata\":{\"firmware\": \"mock-0.1.0\", \"side\": \"right\"}}\n"));
  EXPECT_EQ(test::lines_of(header).size(), 1U);
  EXPECT_GE(test::number_after(header, "t_created"), before - kMicrosecond);
  EXPECT_LE(test::number_after(header, "t_created"), after + kMicrosecond);
}

TEST_F(RecorderTest, has_every_tsl_line_in_the_file_when_the_call_returns) {
  Recorder recorder(file("a.tsl"));
  const std::string header = content("a.tsl");
  recorder.write_frame(test::small_frame());
  const std::string frame_line = test::printed_tsl_line(test::small_frame());
  EXPECT_EQ(content("a.tsl"), header + frame_line);
  recorder.add_marker("grasp", {{"try", "1"}});
  const std::string with_marker = content("a.tsl");
  EXPECT_THAT(with_marker, StartsWith(header + frame_line + "{\"type\":\"marker\",\"t\":"));
  EXPECT_THAT(with_marker, EndsWith(",\"name\":\"grasp\",\"data\":{\"try\": \"1\"}}\n"));
  recorder.write_frame(test::bare_frame(43, 2.0));
  EXPECT_EQ(content("a.tsl"), with_marker +
                                  "{\"type\":\"frame\",\"seq\":43,\"t\":2.000000,\"q\":[],\"touch\":[],"
                                  "\"imu\":[],\"stale\":false}\n");
}

TEST_F(RecorderTest, gives_a_marker_the_wall_clock_time_of_its_own) {
  Recorder recorder(file("a.tsl"));
  recorder.write_frame(test::bare_frame(1, 1.0));
  const double before = detail::wall_clock_seconds();
  recorder.add_marker("here");
  const double after = detail::wall_clock_seconds();
  recorder.write_frame(test::bare_frame(2, 2.0));
  const auto lines = test::lines_of(content("a.tsl"));
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_THAT(lines[1], HasSubstr("\"seq\":1,"));
  EXPECT_THAT(lines[2], EndsWith(",\"name\":\"here\",\"data\":{}}"));
  EXPECT_THAT(lines[3], HasSubstr("\"seq\":2,"));
  EXPECT_GE(test::number_after(lines[2], "t"), before - kMicrosecond);
  EXPECT_LE(test::number_after(lines[2], "t"), after + kMicrosecond);
}

TEST_F(RecorderTest, leaves_only_the_header_in_a_tsl_file_without_frames) {
  { const Recorder recorder(file("a.tsl")); }
  const auto lines = test::lines_of(content("a.tsl"));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], StartsWith("{\"type\":\"header\","));
}

TEST_F(RecorderTest, leaves_a_csv_file_without_frames_empty) {
  { const Recorder recorder(file("a.csv"), {{"side", "left"}}); }
  EXPECT_EQ(content("a.csv"), "");
}

TEST_F(RecorderTest, writes_the_csv_heading_with_the_first_frame) {
  Recorder recorder(file("a.csv"), {{"side", "left"}});
  EXPECT_EQ(content("a.csv"), "");
  recorder.write_frame(test::small_frame());
  EXPECT_EQ(content("a.csv"),
            "seq,t,stale,q_0,q_1,touch_0,imu_0_ax,imu_0_ay,imu_0_az,imu_0_gx,imu_0_gy,imu_0_gz\n"
            "42,1.234000,0,0.100000,0.200000,0.000000,"
            "0.010000,-0.020000,9.810000,0.000000,0.001000,-0.002000\n");
}

TEST_F(RecorderTest, lets_later_csv_rows_be_as_wide_as_their_frames) {
  Recorder recorder(file("a.csv"));
  recorder.write_frame(test::bare_frame(1, 0.5));
  recorder.write_frame(test::small_frame());
  recorder.write_frame(test::bare_frame(3, 2.0));
  EXPECT_EQ(content("a.csv"),
            "seq,t,stale\n"
            "1,0.500000,0\n"
            "42,1.234000,0,0.100000,0.200000,0.000000,"
            "0.010000,-0.020000,9.810000,0.000000,0.001000,-0.002000\n"
            "3,2.000000,0\n");
}

TEST_F(RecorderTest, puts_a_csv_marker_before_the_first_frame_above_the_heading) {
  Recorder recorder(file("a.csv"));
  recorder.add_marker("first, \"one\"", {{"dropped", "yes"}});
  recorder.write_frame(test::bare_frame(1, 0.5));
  recorder.add_marker("second");
  const auto lines = test::lines_of(content("a.csv"));
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_THAT(lines[0], testing::MatchesRegex("# marker t=[0-9]+\\.[0-9]{6} name=first, \"one\""));
  EXPECT_EQ(lines[1], "seq,t,stale");
  EXPECT_EQ(lines[2], "1,0.500000,0");
  EXPECT_THAT(lines[3], testing::MatchesRegex("# marker t=[0-9]+\\.[0-9]{6} name=second"));
}

TEST_F(RecorderTest, writes_no_csv_heading_when_there_are_only_markers) {
  {
    Recorder recorder(file("a.csv"));
    recorder.add_marker("one");
    recorder.add_marker("two");
  }
  const auto lines = test::lines_of(content("a.csv"));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0], testing::MatchesRegex("# marker t=[0-9]+\\.[0-9]{6} name=one"));
  EXPECT_THAT(lines[1], testing::MatchesRegex("# marker t=[0-9]+\\.[0-9]{6} name=two"));
}

TEST_F(RecorderTest, writes_a_json_document_when_it_is_destroyed) {
  std::optional<Recorder> recorder;
  recorder.emplace(file("a.json"), Recorder::Metadata{{"side", "left"}});
  recorder->write_frame(test::small_frame());
  recorder->add_marker("m", {{"k", "v"}});
  recorder->write_frame(test::bare_frame(43, 2.0));
  EXPECT_EQ(content("a.json"), "");
  const double before = detail::wall_clock_seconds();
  recorder.reset();
  const double after = detail::wall_clock_seconds();
  const std::string text = content("a.json");
  EXPECT_GE(test::number_after(text, "t_created"), before - kMicrosecond);
  EXPECT_LE(test::number_after(text, "t_created"), after + kMicrosecond);
  const auto lines = test::lines_of(text);
  ASSERT_EQ(lines.size(), 15U);
  EXPECT_EQ(lines[5], "  \"metadata\": {\"side\": \"left\"},");
  EXPECT_EQ(lines[6], "  \"frame_count\": 2,");
  EXPECT_EQ(lines[8],
            "    {\"seq\":42,\"t\":1.234000,\"q\":[0.100000,0.200000],\"touch\":[0.000000],"
            "\"imu\":[{\"acc\":[0.010,-0.020,9.810],\"gyro\":[0.000,0.001,-0.002]}],\"stale\":false},");
  EXPECT_EQ(lines[9], "    {\"seq\":43,\"t\":2.000000,\"q\":[],\"touch\":[],\"imu\":[],\"stale\":false}");
  EXPECT_THAT(lines[12], testing::MatchesRegex(
                             "    \\{\"t\":[0-9]+\\.[0-9]{6},\"name\":\"m\",\"data\":\\{\"k\": \"v\"\\}\\}"));
}

TEST_F(RecorderTest, writes_a_json_document_without_frames) {
  { const Recorder recorder(file("a.json")); }
  EXPECT_THAT(test::lines_of(content("a.json")),
              ElementsAre("{", "  \"version\": 1,", "  \"sdk\": \"0.3.0\",", "  \"format\": \"json\",",
                          StartsWith("  \"t_created\": "), "  \"metadata\": {},", "  \"frame_count\": 0,",
                          "  \"frames\": [", "  ],", "  \"markers\": [", "  ]", "}"));
}

TEST_F(RecorderTest, writes_its_json_document_also_when_an_exception_passes) {
  EXPECT_THROW(
      {
        Recorder recorder(file("a.json"));
        recorder.write_frame(test::small_frame());
        throw std::runtime_error("the glove is gone");
      },
      std::runtime_error);
  EXPECT_THAT(content("a.json"), HasSubstr("  \"frame_count\": 1,\n"));
}

TEST_F(RecorderTest, escapes_metadata) {
  const Recorder recorder(file("a.tsl"), {{"note", "quote \" backslash \\ tab \t feed \n raw \x01"}});
  EXPECT_THAT(content("a.tsl"), EndsWith(",\"metadata\":{\"note\": "
                                         "\"quote \\\" backslash \\\\ tab \\t feed \\n raw \x01\"}}\n"));
}

TEST_F(RecorderTest, counts_the_frames_it_has_accepted) {
  for (const char* const name : {"a.tsl", "a.csv", "a.json"}) {
    Recorder recorder(file(name));
    EXPECT_EQ(recorder.frames_written(), 0U) << name;
    recorder.write_frame(test::small_frame());
    recorder.add_marker("not a frame");
    EXPECT_EQ(recorder.frames_written(), 1U) << name;
    recorder.write_frame(test::small_frame());
    EXPECT_EQ(recorder.frames_written(), 2U) << name;
  }
}

TEST_F(RecorderTest, lasts_from_the_first_frame_to_the_last) {
  for (const char* const name : {"a.tsl", "a.csv", "a.json"}) {
    Recorder recorder(file(name));
    EXPECT_EQ(recorder.duration(), 0.0) << name;
    recorder.write_frame(test::bare_frame(1, 10.0));
    EXPECT_EQ(recorder.duration(), 0.0) << name;
    recorder.write_frame(test::bare_frame(2, 12.5));
    EXPECT_EQ(recorder.duration(), 2.5) << name;
    recorder.write_frame(test::bare_frame(3, 9.0));
    EXPECT_EQ(recorder.duration(), -1.0) << name;
  }
}

TEST_F(RecorderTest, has_a_file_that_line_feeds_alone_divide) {
  {
    Recorder recorder(file("a.tsl"), {{"note", "a\r\nb"}});
    recorder.write_frame(test::small_frame());
    recorder.add_marker("a\rb");
  }
  EXPECT_EQ(content("a.tsl").find('\r'), std::string::npos);
}

}  // namespace
}  // namespace tarsil
