// The command line: every option, its limits, and what is said about a bad value.
#include "tools/virtual_glove/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace tarsil::virtual_glove {
namespace {

GloveConfig parsed(const std::vector<std::string_view>& words) {
  return parse_options(words).config;
}

std::string complaint(const std::vector<std::string_view>& words) {
  try {
    parse_options(words);
    return "";
  } catch (const OptionError& error) {
    return error.what();
  }
}

TEST(Options, nothing_given_means_the_defaults) {
  const Options options = parse_options({});
  EXPECT_FALSE(options.help);
  EXPECT_EQ(options.config.link, "");
  EXPECT_EQ(options.config.serial, "TSL-VG000001");
  EXPECT_FALSE(options.config.left);
  EXPECT_EQ(options.config.firmware_major, 1);
  EXPECT_EQ(options.config.firmware_minor, 4);
  EXPECT_EQ(options.config.hz, 200);
  EXPECT_EQ(options.config.seed, 1U);
  EXPECT_FALSE(options.config.announce);
  EXPECT_EQ(options.config.frames, 0U);
  EXPECT_FALSE(options.config.overrun);
  EXPECT_FALSE(options.config.replug);
  EXPECT_TRUE(options.config.faults.empty());
  EXPECT_TRUE(options.config.defects.empty());
  EXPECT_EQ(options.config.first_counter, 0);
}

TEST(Options, every_option_is_understood) {
  const GloveConfig config =
      parsed({"--link",     "/tmp/glove", "--serial", "TSL-X",    "--side",   "left",
              "--firmware", "2.13",       "--hz",     "62.5",     "--seed",   "18446744073709551615",
              "--announce", "--frames",   "500",      "--replug", "2.5:0.25", "--counter",
              "65535",      "--overrun"});
  EXPECT_EQ(config.link, "/tmp/glove");
  EXPECT_EQ(config.serial, "TSL-X");
  EXPECT_TRUE(config.left);
  EXPECT_EQ(config.firmware_major, 2);
  EXPECT_EQ(config.firmware_minor, 13);
  EXPECT_EQ(config.hz, 62.5);
  EXPECT_EQ(config.seed, 18446744073709551615U);
  EXPECT_TRUE(config.announce);
  EXPECT_TRUE(config.overrun);
  EXPECT_EQ(config.frames, 500U);
  ASSERT_TRUE(config.replug);
  EXPECT_EQ(config.replug->seconds, 2.5);
  EXPECT_EQ(config.replug->away, 0.25);
  EXPECT_EQ(config.first_counter, 65535);
}

TEST(Options, help_is_recognised_and_names_every_option_and_fault) {
  EXPECT_TRUE(parse_options(std::vector<std::string_view>{"--help"}).help);
  for (const char* name :
       {"--link", "--serial", "--side", "--firmware", "--hz", "--seed", "--counter", "--announce", "--frames",
        "--overrun", "--replug", "--defect", "--fault", "--help"}) {
    EXPECT_THAT(std::string(kHelp), testing::HasSubstr(name));
  }
  for (const std::string_view name : kFaultNames) {
    EXPECT_THAT(std::string(kHelp), testing::HasSubstr(std::string(name)));
  }
}

TEST(Options, serial_may_be_empty) {
  EXPECT_EQ(parsed({"--serial", ""}).serial, "");
}

TEST(Options, replug_is_away_for_a_second_and_happens_without_end_by_default) {
  EXPECT_EQ(parsed({"--replug", "3"}).replug->away, 1);
  EXPECT_EQ(parsed({"--replug", "3"}).replug->times, 0U);
  EXPECT_EQ(parsed({"--replug", "3:2"}).replug->times, 0U);
}

TEST(Options, replugs_can_be_counted) {
  const auto replug = parsed({"--replug", "3:0.5:200"}).replug;
  EXPECT_EQ(replug->seconds, 3);
  EXPECT_EQ(replug->away, 0.5);
  EXPECT_EQ(replug->times, 200U);
}

TEST(Options, last_value_of_a_repeated_option_counts) {
  EXPECT_EQ(parsed({"--hz", "10", "--hz", "20"}).hz, 20);
}

TEST(Options, faults_add_up_in_their_forms) {
  const GloveConfig config = parsed({"--fault", "garbage=0.25", "--fault", "hang@1.5", "--fault",
                                     "silence@2+0.5", "--fault", "silence=1+3", "--fault", "silence@7"});
  ASSERT_EQ(config.faults.size(), 5U);
  EXPECT_EQ(config.faults[0].kind, FaultKind::garbage);
  EXPECT_EQ(config.faults[0].rate, 0.25);
  EXPECT_EQ(config.faults[1].kind, FaultKind::hang);
  EXPECT_EQ(config.faults[1].rate, 0);
  EXPECT_EQ(config.faults[1].at_seconds, 1.5);
  EXPECT_EQ(config.faults[2].at_seconds, 2);
  EXPECT_EQ(config.faults[2].duration_seconds, 0.5);
  EXPECT_EQ(config.faults[3].rate, 1);
  EXPECT_EQ(config.faults[3].duration_seconds, 3);
  EXPECT_EQ(config.faults[4].duration_seconds, 1);
}

TEST(Options, every_fault_has_its_name) {
  for (std::size_t kind = 0; kind < kFaultKinds; ++kind) {
    const std::string fault = std::string(kFaultNames[kind]) + "=0.5";
    EXPECT_EQ(parsed({"--fault", fault}).faults.at(0).kind, static_cast<FaultKind>(kind));
  }
  EXPECT_EQ(fault_kind_named("lost-cycles"), FaultKind::lost_cycles);
  EXPECT_EQ(fault_kind_named("unknown-blocks"), FaultKind::unknown_blocks);
}

TEST(Options, defects_add_up_with_their_default_degrees) {
  const GloveConfig config = parsed(
      {"--defect", "stuck:0", "--defect", "noisy:7", "--defect", "backlash:19", "--defect", "stuck:3:-12.5"});
  ASSERT_EQ(config.defects.size(), 4U);
  EXPECT_EQ(config.defects[0].kind, DefectKind::stuck);
  EXPECT_EQ(config.defects[0].joint, 0);
  EXPECT_EQ(config.defects[0].degrees, 20);
  EXPECT_EQ(config.defects[1].kind, DefectKind::noisy);
  EXPECT_EQ(config.defects[1].joint, 7);
  EXPECT_EQ(config.defects[1].degrees, 2);
  EXPECT_EQ(config.defects[2].kind, DefectKind::backlash);
  EXPECT_EQ(config.defects[2].joint, 19);
  EXPECT_EQ(config.defects[2].degrees, 5);
  EXPECT_EQ(config.defects[3].degrees, -12.5);
}

TEST(Options, complaint_names_option_and_value) {
  EXPECT_EQ(complaint({"--hz", "fast"}), "--hz: 'fast' is not a rate of 0.01 to 20000");
  EXPECT_EQ(complaint({"--side", "Left"}), "--side: 'Left' is not left or right");
  EXPECT_EQ(complaint({"--frames"}), "--frames: a value is missing");
  EXPECT_EQ(complaint({"--speed", "3"}), "unknown option '--speed'");
  EXPECT_EQ(complaint({"glove"}), "unknown option 'glove'");
}

class RefusedValue : public testing::TestWithParam<std::pair<std::string_view, std::string>> {};

TEST_P(RefusedValue, is_named_in_the_complaint) {
  const auto& [option, value] = GetParam();
  EXPECT_THAT(complaint({option, value}),
              testing::StartsWith(std::string(option) + ": '" + value + "' is not "));
}

INSTANTIATE_TEST_SUITE_P(
    Options, RefusedValue,
    testing::Values(
        std::pair{"--link", ""}, std::pair{"--serial", std::string(256, 'x')}, std::pair{"--side", ""},
        std::pair{"--firmware", "1"}, std::pair{"--firmware", "1."}, std::pair{"--firmware", "256.0"},
        std::pair{"--firmware", "1.2.3"}, std::pair{"--firmware", "-1.0"}, std::pair{"--hz", "0"},
        std::pair{"--hz", "20001"}, std::pair{"--hz", "nan"}, std::pair{"--hz", "inf"},
        std::pair{"--hz", "10 "}, std::pair{"--hz", " 10"}, std::pair{"--hz", "+10"},
        std::pair{"--hz", "1,5"}, std::pair{"--hz", ""}, std::pair{"--seed", "-1"},
        std::pair{"--seed", "18446744073709551616"}, std::pair{"--seed", "0x10"},
        std::pair{"--counter", "65536"}, std::pair{"--frames", "1.5"}, std::pair{"--replug", ""},
        std::pair{"--replug", "1:"}, std::pair{"--replug", "-1"}, std::pair{"--replug", "1:2:3:4"},
        std::pair{"--replug", "1:2:"}, std::pair{"--replug", "1:2:-1"}, std::pair{"--replug", "1000001"},
        std::pair{"--fault", "garbage"}, std::pair{"--fault", "garbage="}, std::pair{"--fault", "garbage=0"},
        std::pair{"--fault", "garbage=1.01"}, std::pair{"--fault", "garbage=nan"},
        std::pair{"--fault", "garbage@"}, std::pair{"--fault", "garbage@-1"},
        std::pair{"--fault", "garbage=0.1+1"}, std::pair{"--fault", "silence@1+"},
        std::pair{"--fault", "silence@1+x"}, std::pair{"--fault", "noise=0.1"}, std::pair{"--fault", "=0.1"},
        std::pair{"--defect", "stuck"}, std::pair{"--defect", "stuck:20"}, std::pair{"--defect", "stuck:-1"},
        std::pair{"--defect", "noisy:1:-1"}, std::pair{"--defect", "backlash:1:181"},
        std::pair{"--defect", "loose:1"}, std::pair{"--defect", "stuck:1:2:3"}),
    [](const auto& value) { return "value_" + std::to_string(value.index); });

}  // namespace
}  // namespace tarsil::virtual_glove
