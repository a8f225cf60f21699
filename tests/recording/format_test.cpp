// The bytes of the three formats.
#include "tarsil/recording/format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <string>

#include "tests/recording/samples.h"

namespace tarsil::detail {
namespace {

using test::small_frame;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::bit_cast<float>(std::uint32_t{0x7FC00000});
constexpr float kNegativeNan = std::bit_cast<float>(std::uint32_t{0xFFC00000});

std::string tsl_frame(const Frame& frame) {
  std::string text;
  append_tsl_frame(text, frame);
  return text;
}

std::string csv_heading(const Frame& frame) {
  std::string text;
  append_csv_heading(text, frame);
  return text;
}

std::string csv_row(const Frame& frame) {
  std::string text;
  append_csv_row(text, frame);
  return text;
}

std::string quoted_text(std::string_view value) {
  std::string text;
  append_quoted(text, value);
  return text;
}

std::string string_map(const StringMap& map) {
  std::string text;
  append_string_map(text, map);
  return text;
}

TEST(TslFrame, is_one_line_with_its_keys_in_order) {
  EXPECT_EQ(tsl_frame(small_frame()),
            "{\"type\":\"frame\",\"seq\":42,\"t\":1.234000,\"q\":[0.100000,0.200000],\"touch\":[0.000000],"
            "\"imu\":[{\"acc\":[0.010,-0.020,9.810],\"gyro\":[0.000,0.001,-0.002]}],\"stale\":false}\n");
}

TEST(TslFrame, says_when_it_is_stale) {
  Frame frame = test::bare_frame(7, 0.5);
  frame.stale = true;
  EXPECT_EQ(
      tsl_frame(frame),
      "{\"type\":\"frame\",\"seq\":7,\"t\":0.500000,\"q\":[],\"touch\":[],\"imu\":[],\"stale\":true}\n");
}

TEST(TslFrame, with_empty_arrays_keeps_their_keys) {
  EXPECT_EQ(
      tsl_frame(Frame{}),
      "{\"type\":\"frame\",\"seq\":0,\"t\":0.000000,\"q\":[],\"touch\":[],\"imu\":[],\"stale\":false}\n");
}

TEST(TslFrame, writes_every_inertial_sample_with_three_decimals) {
  Frame frame;
  frame.imu = {{{9.80665F, -9.81F, 0.0004F}, {1234.5678F, -0.0F, 0.0005F}}, {}};
  EXPECT_EQ(tsl_frame(frame),
            "{\"type\":\"frame\",\"seq\":0,\"t\":0.000000,\"q\":[],\"touch\":[],\"imu\":["
            "{\"acc\":[9.807,-9.810,0.000],\"gyro\":[1234.568,-0.000,0.001]},"
            "{\"acc\":[0.000,0.000,0.000],\"gyro\":[0.000,0.000,0.000]}],\"stale\":false}\n");
}

TEST(TslFrame, widens_floats_to_double_before_it_writes_them) {
  Frame frame = test::bare_frame(std::numeric_limits<std::uint64_t>::max(), 1700000000.123456);
  frame.q = {0.25F, 12.0F, 16777216.0F, 1234.5678F, -0.0F, 1e-7F};
  frame.touch = {std::numeric_limits<float>::max()};
  EXPECT_EQ(tsl_frame(frame),
            "{\"type\":\"frame\",\"seq\":18446744073709551615,\"t\":1700000000.123456,"
            "\"q\":[0.250000,12.000000,16777216.000000,1234.567749,-0.000000,0.000000],"
            "\"touch\":[340282346638528859811704183484516925440.000000],\"imu\":[],\"stale\":false}\n");
}

TEST(TslFrame, writes_what_is_no_number_as_printf_does) {
  Frame frame = test::bare_frame(1, -std::numeric_limits<double>::infinity());
  frame.q = {kNan, kNegativeNan, kInfinity, -kInfinity};
  frame.imu = {{{kNan, kInfinity, -kInfinity}, {0.0F, 0.0F, kNegativeNan}}};
  EXPECT_EQ(tsl_frame(frame),
            "{\"type\":\"frame\",\"seq\":1,\"t\":-inf,\"q\":[nan,-nan,inf,-inf],\"touch\":[],"
            "\"imu\":[{\"acc\":[nan,inf,-inf],\"gyro\":[0.000,0.000,-nan]}],\"stale\":false}\n");
}

TEST(TslFrame, leaves_the_status_bytes_out) {
  Frame frame = small_frame();
  frame.status_lo = {1, 2, 3, 4, 5};
  frame.status_hi = {6, 7, 8, 9, 10};
  EXPECT_EQ(tsl_frame(frame), tsl_frame(small_frame()));
}

TEST(TslFrame, is_appended_to_what_is_there) {
  std::string text = "before\n";
  append_tsl_frame(text, Frame{});
  append_tsl_frame(text, Frame{});
  EXPECT_EQ(text, "before\n" + tsl_frame(Frame{}) + tsl_frame(Frame{}));
}

TEST(TslFrame, is_what_printf_makes_of_worn_gloves) {
  std::string reused;
  for (const Frame& frame : test::worn_frames(500, 1)) {
    reused.clear();
    append_tsl_frame(reused, frame);
    ASSERT_EQ(reused, test::printed_tsl_line(frame));
  }
}

TEST(TslHeader, carries_version_file_time_and_metadata) {
  std::string text;
  append_tsl_header(text, "take1.tsl", 1700000000.5, {{"side", "right"}, {"firmware", "mock-0.1.0"}});
  EXPECT_EQ(text,
            "{\"type\":\"header\",\"version\":1,\"sdk\":\"0.3.0\",\"format\":\"tsl\",\"file\":\"take1.tsl\","
            "\"t_created\":1700000000.500000,\"metadata\":{\"firmware\": \"mock-0.1.0\", \"side\": "
            "\"right\"}}\n");
}

TEST(TslHeader, quotes_the_file_name_and_takes_no_metadata_for_an_empty_object) {
  std::string text;
  append_tsl_header(text, "a \"b\"\\.tsl", 0.0, {});
  EXPECT_EQ(text,
            "{\"type\":\"header\",\"version\":1,\"sdk\":\"0.3.0\",\"format\":\"tsl\","
            "\"file\":\"a \\\"b\\\"\\\\.tsl\",\"t_created\":0.000000,\"metadata\":{}}\n");
}

TEST(TslMarker, carries_time_name_and_data) {
  std::string text;
  append_tsl_marker(text, {1700000001.25, "grasp \"1\"", {{"try", "2"}, {"hand", "left"}}});
  append_tsl_marker(text, {0.0, "", {}});
  EXPECT_EQ(text,
            "{\"type\":\"marker\",\"t\":1700000001.250000,\"name\":\"grasp \\\"1\\\"\","
            "\"data\":{\"hand\": \"left\", \"try\": \"2\"}}\n"
            "{\"type\":\"marker\",\"t\":0.000000,\"name\":\"\",\"data\":{}}\n");
}

TEST(Quoted, escapes_exactly_five_characters) {
  EXPECT_EQ(quoted_text("\"\\\n\r\t"), "\"\\\"\\\\\\n\\r\\t\"");
  EXPECT_EQ(quoted_text(""), "\"\"");
  EXPECT_EQ(quoted_text("a/b"), "\"a/b\"");
}

TEST(Quoted, copies_every_other_byte) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (c == '"' || c == '\\' || c == '\n' || c == '\r' || c == '\t') continue;
    EXPECT_EQ(quoted_text(std::string(1, c)), std::string("\"") + c + "\"") << byte;
  }
  EXPECT_EQ(quoted_text("\xC3\xA9\xE2\x80\x94"), "\"\xC3\xA9\xE2\x80\x94\"");
}

TEST(StringMap, has_its_entries_in_byte_order_with_blanks_between) {
  EXPECT_EQ(string_map({}), "{}");
  EXPECT_EQ(string_map({{"side", "right"}, {"firmware", "mock-0.1.0"}}),
            "{\"firmware\": \"mock-0.1.0\", \"side\": \"right\"}");
  EXPECT_EQ(string_map({{"b", "1"}, {"B", "2"}, {"\xC3\xA4", "3"}, {"", "4"}}),
            "{\"\": \"4\", \"B\": \"2\", \"b\": \"1\", \"\xC3\xA4\": \"3\"}");
}

TEST(StringMap, escapes_keys_and_values) {
  EXPECT_EQ(string_map({{"a\"k", "quote \" backslash \\ tab \t feed \n raw \x01"}}),
            "{\"a\\\"k\": \"quote \\\" backslash \\\\ tab \\t feed \\n raw \x01\"}");
}

TEST(CsvHeading, names_a_column_for_every_value_of_the_frame) {
  EXPECT_EQ(csv_heading(small_frame()),
            "seq,t,stale,q_0,q_1,touch_0,imu_0_ax,imu_0_ay,imu_0_az,imu_0_gx,imu_0_gy,imu_0_gz\n");
}

TEST(CsvHeading, numbers_columns_in_decimal) {
  Frame frame;
  frame.q.resize(11);
  frame.imu.resize(2);
  EXPECT_EQ(csv_heading(frame),
            "seq,t,stale,q_0,q_1,q_2,q_3,q_4,q_5,q_6,q_7,q_8,q_9,q_10,"
            "imu_0_ax,imu_0_ay,imu_0_az,imu_0_gx,imu_0_gy,imu_0_gz,"
            "imu_1_ax,imu_1_ay,imu_1_az,imu_1_gx,imu_1_gy,imu_1_gz\n");
}

TEST(CsvHeading, of_an_empty_frame_has_three_columns) {
  EXPECT_EQ(csv_heading(Frame{}), "seq,t,stale\n");
  EXPECT_EQ(csv_row(Frame{}), "0,0.000000,0\n");
}

TEST(CsvRow, has_six_decimals_for_every_value) {
  EXPECT_EQ(csv_row(small_frame()),
            "42,1.234000,0,0.100000,0.200000,0.000000,"
            "0.010000,-0.020000,9.810000,0.000000,0.001000,-0.002000\n");
  Frame frame = test::bare_frame(1, 0.5);
  frame.stale = true;
  frame.imu = {{{9.80665F, -9.81F, 0.0F}, {}}};
  EXPECT_EQ(csv_row(frame), "1,0.500000,1,9.806650,-9.810000,0.000000,0.000000,0.000000,0.000000\n");
}

TEST(CsvRow, writes_what_is_no_number_as_printf_does) {
  Frame frame = test::bare_frame(1, std::numeric_limits<double>::quiet_NaN());
  frame.q = {kNan, kNegativeNan, kInfinity, -kInfinity};
  EXPECT_EQ(csv_row(frame), "1,nan,0,nan,-nan,inf,-inf\n");
}

TEST(CsvMarker, is_a_comment_with_the_name_as_it_stands) {
  std::string text;
  append_csv_marker(text, {1700000001.25, "grasp, \"1\"\\", {{"try", "2"}}});
  append_csv_marker(text, {0.5, "", {}});
  EXPECT_EQ(text,
            "# marker t=1700000001.250000 name=grasp, \"1\"\\\n"
            "# marker t=0.500000 name=\n");
}

TEST(JsonDocument, without_records_has_two_empty_arrays) {
  std::string text;
  append_json_document(text, 1700000000.25, {}, {}, {});
  EXPECT_EQ(text,
            "{\n"
            "  \"version\": 1,\n"
            "  \"sdk\": \"0.3.0\",\n"
            "  \"format\": \"json\",\n"
            "  \"t_created\": 1700000000.250000,\n"
            "  \"metadata\": {},\n"
            "  \"frame_count\": 0,\n"
            "  \"frames\": [\n"
            "  ],\n"
            "  \"markers\": [\n"
            "  ]\n"
            "}\n");
}

TEST(JsonDocument, has_a_line_for_every_record_and_a_comma_after_all_but_the_last) {
  Frame stale = test::bare_frame(43, 1.5);
  stale.stale = true;
  std::string text;
  append_json_document(text, 2.0, {{"side", "left"}, {"note", "a\tb"}}, {small_frame(), stale},
                       {{1.25, "one", {}}, {1.75, "two", {{"k", "v"}}}});
  EXPECT_EQ(text,
            "{\n"
            "  \"version\": 1,\n"
            "  \"sdk\": \"0.3.0\",\n"
            "  \"format\": \"json\",\n"
            "  \"t_created\": 2.000000,\n"
            "  \"metadata\": {\"note\": \"a\\tb\", \"side\": \"left\"},\n"
            "  \"frame_count\": 2,\n"
            "  \"frames\": [\n"
            "    {\"seq\":42,\"t\":1.234000,\"q\":[0.100000,0.200000],\"touch\":[0.000000],"
            "\"imu\":[{\"acc\":[0.010,-0.020,9.810],\"gyro\":[0.000,0.001,-0.002]}],\"stale\":false},\n"
            "    {\"seq\":43,\"t\":1.500000,\"q\":[],\"touch\":[],\"imu\":[],\"stale\":true}\n"
            "  ],\n"
            "  \"markers\": [\n"
            "    {\"t\":1.250000,\"name\":\"one\",\"data\":{}},\n"
            "    {\"t\":1.750000,\"name\":\"two\",\"data\":{\"k\": \"v\"}}\n"
            "  ]\n"
            "}\n");
}

}  // namespace
}  // namespace tarsil::detail
