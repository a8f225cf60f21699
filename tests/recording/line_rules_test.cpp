// The rules by which fields are found, on lines as they come and as they should not.
#include "tarsil/recording/line_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tests/recording/samples.h"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Map = std::map<std::string, std::string>;

std::vector<float> floats(const std::string& line, const std::string& key = "q") {
  std::vector<float> values;
  append_float_array_field(line, key, values);
  return values;
}

TEST(NumberField, is_what_follows_the_key) {
  EXPECT_EQ(number_field(R"({"seq":42,"t":1.5})", "t"), 1.5);
  EXPECT_EQ(number_field(R"({"seq":42,"t":1.5})", "seq"), 42.0);
}

TEST(NumberField, may_have_blanks_before_it) {
  EXPECT_EQ(number_field(R"({"t":   -1.5 ,"u":2})", "t"), -1.5);
  EXPECT_EQ(number_field("{\"t\":\t1.5}", "t"), 1.5);
}

TEST(NumberField, that_is_absent_or_none_is_zero) {
  EXPECT_EQ(number_field("", "t"), 0.0);
  EXPECT_EQ(number_field("{}", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t")", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t":)", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t":true})", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t":"5"})", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t":[5]})", "t"), 0.0);
}

TEST(NumberField, needs_the_colon_right_behind_the_quote) {
  EXPECT_EQ(number_field(R"({"t" :5})", "t"), 0.0);
  EXPECT_EQ(number_field(R"({t:5})", "t"), 0.0);
}

TEST(NumberField, belongs_to_the_whole_key) {
  EXPECT_EQ(number_field(R"({"tt":5,"xt":6,"t":7})", "t"), 7.0);
}

TEST(NumberField, of_a_repeated_key_is_the_first) {
  EXPECT_EQ(number_field(R"({"t":1,"t":2})", "t"), 1.0);
  EXPECT_EQ(number_field(R"({"t":x,"t":2})", "t"), 0.0);
}

TEST(NumberField, is_found_inside_other_values_too) {
  EXPECT_EQ(number_field(R"({"name":"\"t":9","t":2})", "t"), 9.0);
  EXPECT_EQ(number_field(R"({"data":{"t":8},"t":2})", "t"), 8.0);
}

TEST(NumberField, takes_whatever_strtod_takes) {
  EXPECT_EQ(number_field(R"({"t":1e3})", "t"), 1000.0);
  EXPECT_EQ(number_field(R"({"t":0x10})", "t"), 16.0);
  EXPECT_EQ(number_field(R"({"t":0x})", "t"), 0.0);
  EXPECT_EQ(number_field(R"({"t":+5})", "t"), 5.0);
  EXPECT_EQ(number_field(R"({"t":1e999})", "t"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(number_field(R"({"t":-inf})", "t"), -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(number_field(R"({"t":-nan})", "t")));
  EXPECT_EQ(number_field(R"({"t":1,5})", "t"), 1.0);
}

TEST(NumberField, ends_at_a_zero_byte) {
  EXPECT_EQ(number_field(std::string("{\"t\":1\0002}", 9), "t"), 1.0);
  EXPECT_EQ(number_field(std::string("{\0\"t\":12}", 9), "t"), 12.0);
}

TEST(StringField, is_the_text_between_the_next_two_quotes) {
  EXPECT_EQ(string_field(R"({"type":"frame","seq":1})", "type"), "frame");
  EXPECT_EQ(string_field(R"({"type":  "frame"})", "type"), "frame");
  EXPECT_EQ(string_field(R"({"type":""})", "type"), "");
  EXPECT_EQ(string_field("{\"type\":\"fr\xC3\xA4me\"}", "type"), "fr\xC3\xA4me");
  EXPECT_EQ(string_field(std::string("{\"type\":\"a\0b\"}", 13), "type"), std::string("a\0b", 3));
}

TEST(StringField, that_is_absent_or_cut_is_empty) {
  EXPECT_EQ(string_field("", "type"), "");
  EXPECT_EQ(string_field(R"({"type")", "type"), "");
  EXPECT_EQ(string_field(R"({"type":)", "type"), "");
  EXPECT_EQ(string_field(R"({"type":")", "type"), "");
  EXPECT_EQ(string_field(R"({"type":"fram)", "type"), "");
  EXPECT_EQ(string_field(R"({"type":frame})", "type"), "");
}

TEST(StringField, of_something_else_is_whatever_stands_in_quotes_next) {
  EXPECT_EQ(string_field(R"({"type":5,"seq":1})", "type"), "seq");
}

TEST(StringField, keeps_escapes_and_ends_at_an_escaped_quote) {
  EXPECT_EQ(string_field(R"({"name":"a\"b"})", "name"), "a\\");
  EXPECT_EQ(string_field(R"({"name":"a\nb\\"})", "name"), "a\\nb\\\\");
}

TEST(FloatArrayField, is_what_stands_between_its_brackets) {
  EXPECT_THAT(floats(R"({"q":[1,-2.5,3e2]})"), ElementsAre(1.0F, -2.5F, 300.0F));
  EXPECT_THAT(floats(R"({"q":[]})"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":[1]})"), ElementsAre(1.0F));
}

TEST(FloatArrayField, is_appended) {
  std::vector<float> values{7.0F};
  append_float_array_field(R"({"q":[1]})", "q", values);
  EXPECT_THAT(values, ElementsAre(7.0F, 1.0F));
}

TEST(FloatArrayField, skips_blanks_and_commas) {
  EXPECT_THAT(floats(R"({"q":  [ 1 ,, 2,3 , ]})"), ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(floats(R"({"q":[1 2 3]})"), ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(floats(R"({"q":[,]})"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":[1-2]})"), ElementsAre(1.0F, -2.0F));
}

TEST(FloatArrayField, stops_at_what_is_no_number) {
  EXPECT_THAT(floats(R"({"q":[1,null,3]})"), ElementsAre(1.0F));
  EXPECT_THAT(floats(R"({"q":["1",2]})"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":[1,-,3]})"), ElementsAre(1.0F));
  EXPECT_THAT(floats(R"({"q":[0x,3]})"), ElementsAre(0.0F));
}

TEST(FloatArrayField, stops_at_a_nested_bracket) {
  EXPECT_THAT(floats(R"({"q":[1,[2,3],4]})"), ElementsAre(1.0F));
  EXPECT_THAT(floats(R"({"q":[1,{"a":2},4]})"), ElementsAre(1.0F));
  EXPECT_THAT(floats(R"({"q":[[1,2]]})"), IsEmpty());
}

TEST(FloatArrayField, without_its_closing_bracket_is_empty) {
  EXPECT_THAT(floats(R"({"q":[1,2)"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":[1,[2],3)"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":)"), IsEmpty());
  EXPECT_THAT(floats(R"({"q")"), IsEmpty());
  EXPECT_THAT(floats(R"({"q":5})"), IsEmpty());
}

TEST(FloatArrayField, of_something_else_is_the_next_array) {
  EXPECT_THAT(floats(R"({"q":5,"touch":[1,2]})"), ElementsAre(1.0F, 2.0F));
}

TEST(FloatArrayField, takes_whatever_strtof_takes) {
  const std::vector<float> values = floats(R"({"q":[nan,-nan,inf,-inf,0x10,1e60,1e-60]})");
  ASSERT_EQ(values.size(), 7U);
  EXPECT_TRUE(std::isnan(values[0]) && !std::signbit(values[0]));
  EXPECT_TRUE(std::isnan(values[1]) && std::signbit(values[1]));
  EXPECT_EQ(values[2], std::numeric_limits<float>::infinity());
  EXPECT_EQ(values[3], -std::numeric_limits<float>::infinity());
  EXPECT_EQ(values[4], 16.0F);
  EXPECT_EQ(values[5], std::numeric_limits<float>::infinity());
  EXPECT_EQ(values[6], 0.0F);
}

TEST(FloatArrayField, converts_to_float_without_a_detour) {
  EXPECT_THAT(floats(R"({"q":[1.00000005960464477539062500001]})"), ElementsAre(1.00000011920928955078125F));
}

TEST(FloatArrayField, ends_at_a_zero_byte) {
  EXPECT_THAT(floats(std::string("{\"q\":[1,\0002]}", 12)), ElementsAre(1.0F));
}

TEST(FloatArrayField, takes_tabs_before_numbers_as_strtof_does) {
  EXPECT_THAT(floats("{\"q\":[1,\t2,\r3]}"), ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(floats("{\"q\":[1,\t]} 5"), ElementsAre(1.0F));
}

TEST(MapField, is_the_quoted_pairs_between_its_braces) {
  EXPECT_EQ(map_field(R"({"metadata":{"firmware": "mock-0.1.0", "side": "right"}})", "metadata"),
            (Map{{"firmware", "mock-0.1.0"}, {"side", "right"}}));
  EXPECT_EQ(map_field(R"({"metadata":{}})", "metadata"), Map{});
  EXPECT_EQ(map_field(R"({"metadata": {"a":"1","b" : "2"}})", "metadata"), (Map{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(map_field(R"({"metadata":{"": ""}})", "metadata"), (Map{{"", ""}}));
}

TEST(MapField, of_a_repeated_key_keeps_the_later_value) {
  EXPECT_EQ(map_field(R"({"data":{"a": "1", "a": "2"}})", "data"), (Map{{"a", "2"}}));
}

TEST(MapField, that_is_absent_or_cut_is_empty) {
  EXPECT_EQ(map_field("", "data"), Map{});
  EXPECT_EQ(map_field("{}", "data"), Map{});
  EXPECT_EQ(map_field(R"({"data":)", "data"), Map{});
  EXPECT_EQ(map_field(R"({"data":{"a": "1")", "data"), Map{});
}

TEST(MapField, stops_where_a_quote_is_missing) {
  EXPECT_EQ(map_field(R"({"data":{"a": "1", "b}})", "data"), (Map{{"a", "1"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "1", "b"}})", "data"), (Map{{"a", "1"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "1", "b": 2}})", "data"), (Map{{"a", "1"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "1", "b": "2}})", "data"), (Map{{"a", "1"}}));
}

TEST(MapField, understands_quoted_values_only) {
  // What stands between the next two quotes is taken for the value, and the pairs are out of step then.
  EXPECT_EQ(map_field(R"({"data":{"n": 5, "m": "6"}})", "data"), (Map{{"n", "m"}}));
}

TEST(MapField, counts_nested_braces) {
  EXPECT_EQ(map_field(R"({"data":{"a": {"b": "c"}, "d": "e"},"x":{"y": "z"}})", "data"),
            (Map{{"a", "b"}, {"c", "d"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "{", "b": "}"}})", "data"), (Map{{"a", "{"}, {"b", "}"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "{"}})", "data"), (Map{{"a", "{"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "}"}})", "data"), Map{});
}

TEST(MapField, keeps_escapes_and_ends_at_an_escaped_quote) {
  EXPECT_EQ(map_field(R"({"data":{"a": "x\ty"}})", "data"), (Map{{"a", "x\\ty"}}));
  EXPECT_EQ(map_field(R"({"data":{"a": "x\"y"}})", "data"), (Map{{"a", "x\\"}}));
}

TEST(MapField, looks_for_a_value_from_two_bytes_behind_the_key_on) {
  EXPECT_EQ(map_field(R"({"data":{"a":"1"}})", "data"), (Map{{"a", "1"}}));
  // The byte behind the key counts as the colon, whatever it is.
  EXPECT_EQ(map_field(R"({"data":{"a""1"}})", "data"), Map{});
  EXPECT_EQ(map_field(R"({"data":{"a"":"1"}})", "data"), (Map{{"a", "1"}}));
  EXPECT_EQ(map_field(R"({"data":{"a"}})", "data"), Map{});
}

TEST(ImuField, is_a_sample_for_each_object) {
  const auto samples =
      imu_field(R"({"imu":[{"acc":[1,2,3],"gyro":[4,5,6]},{"gyro":[7,8,9],"acc":[10,11,12]}]})");
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_THAT(samples[0].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(samples[0].gyro, ElementsAre(4.0F, 5.0F, 6.0F));
  EXPECT_THAT(samples[1].acc, ElementsAre(10.0F, 11.0F, 12.0F));
  EXPECT_THAT(samples[1].gyro, ElementsAre(7.0F, 8.0F, 9.0F));
}

TEST(ImuField, that_is_absent_or_cut_is_empty) {
  EXPECT_THAT(imu_field(""), IsEmpty());
  EXPECT_THAT(imu_field(R"({"imu":[]})"), IsEmpty());
  EXPECT_THAT(imu_field(R"({"imu":)"), IsEmpty());
  EXPECT_THAT(imu_field(R"({"imu":[{"acc":[1,2,3],"gyro":[4,5,6]})"), IsEmpty());
  EXPECT_THAT(imu_field(R"({"imu":[1,2,3]})"), IsEmpty());
}

TEST(ImuField, takes_a_vector_of_fewer_than_three_values_for_zero) {
  const auto samples = imu_field(R"({"imu":[{"acc":[1,2],"gyro":[4,5,6]},{"acc":[1,2,3]},{}]})");
  ASSERT_EQ(samples.size(), 3U);
  EXPECT_THAT(samples[0].acc, ElementsAre(0.0F, 0.0F, 0.0F));
  EXPECT_THAT(samples[0].gyro, ElementsAre(4.0F, 5.0F, 6.0F));
  EXPECT_THAT(samples[1].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(samples[1].gyro, ElementsAre(0.0F, 0.0F, 0.0F));
  EXPECT_THAT(samples[2].acc, ElementsAre(0.0F, 0.0F, 0.0F));
}

TEST(ImuField, takes_the_first_three_of_more_values) {
  const auto samples = imu_field(R"({"imu":[{"acc":[1,2,3,4],"gyro":[5,6,7,8]}]})");
  ASSERT_EQ(samples.size(), 1U);
  EXPECT_THAT(samples[0].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(samples[0].gyro, ElementsAre(5.0F, 6.0F, 7.0F));
}

TEST(ImuField, looks_for_vectors_inside_their_own_object) {
  const auto samples = imu_field(R"({"imu":[{"acc":[1,2,3]},{"gyro":[4,5,6]}],"acc":[7,8,9]})");
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_THAT(samples[0].gyro, ElementsAre(0.0F, 0.0F, 0.0F));
  EXPECT_THAT(samples[1].acc, ElementsAre(0.0F, 0.0F, 0.0F));
}

TEST(ImuField, counts_nested_braces) {
  const auto samples = imu_field(R"({"imu":[{"x":{"y":1},"acc":[1,2,3]},{"acc":[4,5,6]}]})");
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_THAT(samples[0].acc, ElementsAre(1.0F, 2.0F, 3.0F));
  EXPECT_THAT(samples[1].acc, ElementsAre(4.0F, 5.0F, 6.0F));
}

TEST(ImuField, leaves_out_an_object_without_its_closing_brace) {
  const auto samples = imu_field(R"({"imu":[{"acc":[1,2,3]},{"acc":[4,5,6]]})");
  ASSERT_EQ(samples.size(), 1U);
  EXPECT_THAT(samples[0].acc, ElementsAre(1.0F, 2.0F, 3.0F));
}

TEST(FrameByRules, takes_every_field_but_stale) {
  const Frame frame = frame_by_rules(
      R"({"type":"frame","seq":42,"t":1.234,"q":[0.1,0.2],"touch":[0],"imu":[{"acc":[0.01,-0.02,9.81],)"
      R"("gyro":[0,0.001,-0.002]}],"stale":true})");
  EXPECT_TRUE(test::same_bits(frame, test::small_frame())) << test::exact_text(frame);
}

TEST(FrameByRules, takes_fields_in_any_order) {
  const Frame frame = frame_by_rules(R"({"touch":[3],"q":[1,2],"t":5,"seq":6,"type":"frame"})");
  EXPECT_EQ(frame.seq, 6U);
  EXPECT_EQ(frame.t, 5.0);
  EXPECT_THAT(frame.q, ElementsAre(1.0F, 2.0F));
  EXPECT_THAT(frame.touch, ElementsAre(3.0F));
  EXPECT_THAT(frame.imu, IsEmpty());
}

TEST(FrameByRules, uses_a_line_with_a_malformed_number) {
  const Frame frame = frame_by_rules(R"({"type":"frame","seq":x,"t":y,"q":[1]})");
  EXPECT_EQ(frame.seq, 0U);
  EXPECT_EQ(frame.t, 0.0);
  EXPECT_THAT(frame.q, ElementsAre(1.0F));
}

TEST(FrameByRules, brings_the_number_into_range) {
  EXPECT_EQ(frame_by_rules(R"({"seq":-5})").seq, 0U);
  EXPECT_EQ(frame_by_rules(R"({"seq":nan})").seq, 0U);
  EXPECT_EQ(frame_by_rules(R"({"seq":-inf})").seq, 0U);
  EXPECT_EQ(frame_by_rules(R"({"seq":1e30})").seq, 18446744073709551615U);
  EXPECT_EQ(frame_by_rules(R"({"seq":inf})").seq, 18446744073709551615U);
  EXPECT_EQ(frame_by_rules(R"({"seq":18446744073709551615})").seq, 18446744073709551615U);
  EXPECT_EQ(frame_by_rules(R"({"seq":7.9})").seq, 7U);
}

TEST(FrameByRules, gives_what_a_torn_line_holds) {
  const Frame frame = frame_by_rules(R"({"type":"frame","seq":42,"t":1.234,"q":[0.1,0.2],"touch":[0.5,0.)");
  EXPECT_EQ(frame.seq, 42U);
  EXPECT_EQ(frame.t, 1.234);
  EXPECT_THAT(frame.q, ElementsAre(0.1F, 0.2F));
  EXPECT_THAT(frame.touch, IsEmpty());
  EXPECT_EQ(frame_by_rules(R"({"type":"frame","seq":4)").seq, 4U);
}

TEST(MarkerByRules, takes_time_name_and_data) {
  const Marker marker =
      marker_by_rules(R"({"type":"marker","t":12.5,"name":"grasp","data":{"hand": "left", "try": "2"}})");
  EXPECT_EQ(marker.t, 12.5);
  EXPECT_EQ(marker.name, "grasp");
  EXPECT_EQ(marker.data, (Map{{"hand", "left"}, {"try", "2"}}));
}

TEST(MarkerByRules, reads_a_key_inside_its_name_where_it_stands_first) {
  // The recorder escapes the quotes of a name, so a name never hides the key behind it.
  const Marker marker =
      marker_by_rules(R"({"type":"marker","t":12.5,"name":"\"data\":{","data":{"k": "v"}})");
  EXPECT_EQ(marker.name, "\\");
  EXPECT_EQ(marker.data, (Map{{"k", "v"}}));
}

}  // namespace
}  // namespace tarsil::detail
