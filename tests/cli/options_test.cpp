// The quirks of the option parser, which scripts rely on.
#include "tarsil/cli/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/recording/comma_locale.h"

namespace tarsil::cli {
namespace {

using testing::ThrowsMessage;

Options parse(const std::vector<const char*>& arguments) {
  return parse_options(static_cast<int>(arguments.size()), arguments.data());
}

TEST(ParseOptions, gives_nothing_for_nothing) {
  EXPECT_EQ(parse({}), Options{});
  EXPECT_EQ(parse_options(0, nullptr), Options{});
}

TEST(ParseOptions, takes_the_next_argument_for_the_value) {
  EXPECT_EQ(parse({"--count", "5", "--port", "/dev/ttyACM0"}),
            (Options{{"count", "5"}, {"port", "/dev/ttyACM0"}}));
}

TEST(ParseOptions, gives_an_option_without_a_value_the_value_1) {
  EXPECT_EQ(parse({"--raw"}), (Options{{"raw", "1"}}));
  EXPECT_EQ(parse({"--raw", "--mock"}), (Options{{"raw", "1"}, {"mock", "1"}}));
  EXPECT_EQ(parse({"--raw", "-x"}), (Options{{"raw", "1"}}));
  EXPECT_EQ(parse({"--raw", "-"}), (Options{{"raw", "1"}}));
  EXPECT_EQ(parse({"--raw", "--"}), (Options{{"raw", "1"}}));
}

TEST(ParseOptions, never_takes_a_negative_number_for_a_value) {
  EXPECT_EQ(parse({"--speed", "-1"}), (Options{{"speed", "1"}}));
  EXPECT_EQ(parse({"--speed", "-1", "--loop"}), (Options{{"speed", "1"}, {"loop", "1"}}));
}

TEST(ParseOptions, lets_a_flag_swallow_the_positional_argument_behind_it) {
  EXPECT_EQ(parse({"--loop", "session.tsl"}), (Options{{"loop", "session.tsl"}}));
  EXPECT_EQ(parse({"--mock", "stray", "more"}), (Options{{"mock", "stray"}, {"1", "more"}}));
}

TEST(ParseOptions, takes_an_empty_argument_for_a_value) {
  EXPECT_EQ(parse({"--port", ""}), (Options{{"port", ""}}));
  EXPECT_EQ(parse({"--port", "", "x"}), (Options{{"port", ""}, {"1", "x"}}));
}

TEST(ParseOptions, skips_what_begins_with_one_dash) {
  EXPECT_EQ(parse({"-x", "-", "--", "-5", "-abc"}), Options{});
  EXPECT_EQ(parse({"-x", "value"}), (Options{{"0", "value"}}));
  EXPECT_EQ(parse({"--", "value"}), (Options{{"0", "value"}}));
}

TEST(ParseOptions, takes_everything_behind_two_dashes_for_the_name) {
  EXPECT_EQ(parse({"--x"}), (Options{{"x", "1"}}));
  EXPECT_EQ(parse({"---"}), (Options{{"-", "1"}}));
  EXPECT_EQ(parse({"---raw", "2"}), (Options{{"-raw", "2"}}));
  EXPECT_EQ(parse({"--count=5", "6"}), (Options{{"count=5", "6"}}));
  EXPECT_EQ(parse({"--a b"}), (Options{{"a b", "1"}}));
}

TEST(ParseOptions, numbers_positional_arguments_by_the_entries_before_them) {
  EXPECT_EQ(parse({"out.tsl"}), (Options{{"0", "out.tsl"}}));
  EXPECT_EQ(parse({"a", "b", "c"}), (Options{{"0", "a"}, {"1", "b"}, {"2", "c"}}));
  EXPECT_EQ(parse({"out.tsl", "--frames", "10"}), (Options{{"0", "out.tsl"}, {"frames", "10"}}));
  EXPECT_EQ(parse({"--frames", "10", "out.tsl"}), (Options{{"1", "out.tsl"}, {"frames", "10"}}));
  EXPECT_EQ(parse({"--frames", "10", "--frames", "20", "out.tsl"}),
            (Options{{"1", "out.tsl"}, {"frames", "20"}}));
}

TEST(ParseOptions, takes_an_empty_argument_for_a_positional_one) {
  EXPECT_EQ(parse({"", "x"}), (Options{{"0", ""}, {"1", "x"}}));
}

TEST(ParseOptions, lets_the_last_of_repeated_options_win) {
  EXPECT_EQ(parse({"--count", "5", "--count", "6"}), (Options{{"count", "6"}}));
  EXPECT_EQ(parse({"--count", "5", "--count"}), (Options{{"count", "1"}}));
}

TEST(ParseOptions, lets_an_option_and_a_positional_argument_share_a_key) {
  EXPECT_EQ(parse({"--1", "option", "positional"}), (Options{{"1", "positional"}}));
  EXPECT_EQ(parse({"positional", "--0", "option"}), (Options{{"0", "option"}}));
}

TEST(ParseOptions, keeps_keys_in_byte_order) {
  const Options options = parse({"--b", "--\xC3\xA9", "--B", "--a"});
  std::vector<std::string> keys;
  for (const auto& [key, value] : options) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"B", "a", "b", "\xC3\xA9"}));
}

TEST(ParseOptions, looks_no_further_than_the_count) {
  const std::vector<const char*> arguments{"--count", "5"};
  EXPECT_EQ(parse_options(1, arguments.data()), (Options{{"count", "1"}}));
}

TEST(OptionOr, gives_what_is_stored_or_else_the_fallback) {
  const Options options{{"port", "/dev/ttyUSB0"}, {"empty", ""}};
  EXPECT_EQ(option_or(options, "port", "none"), "/dev/ttyUSB0");
  EXPECT_EQ(option_or(options, "empty", "none"), "");
  EXPECT_EQ(option_or(options, "count", "0"), "0");
}

TEST(RealNumber, is_read_as_far_as_it_is_one) {
  EXPECT_EQ(real_number("2.25"), 2.25F);
  EXPECT_EQ(real_number(" -0.5e1x"), -5.0F);
  EXPECT_EQ(real_number("0x1.8p1"), 3.0F);
  EXPECT_EQ(real_number("2,25"), 2.0F);
  EXPECT_EQ(real_number("inf"), std::numeric_limits<float>::infinity());
}

TEST(RealNumber, is_complained_about_in_the_words_of_the_standard_conversion) {
  EXPECT_THAT([] { static_cast<void>(real_number("fast")); }, ThrowsMessage<std::invalid_argument>("stof"));
  EXPECT_THAT([] { static_cast<void>(real_number("")); }, ThrowsMessage<std::invalid_argument>("stof"));
  EXPECT_THAT([] { static_cast<void>(real_number("1e99")); }, ThrowsMessage<std::out_of_range>("stof"));
  EXPECT_THAT([] { static_cast<void>(real_number("1e-99")); }, ThrowsMessage<std::out_of_range>("stof"));
}

TEST(RealNumber, has_a_decimal_point_in_every_locale) {
  const test::CommaLocale locale;
  EXPECT_EQ(real_number("2.25"), 2.25F);
  EXPECT_EQ(real_number("2,25"), 2.0F);
}

}  // namespace
}  // namespace tarsil::cli
