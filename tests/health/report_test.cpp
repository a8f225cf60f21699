// Both renderings byte for byte.
#include "tarsil/health/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>
#include <string>
#include <string_view>

#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil {

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kRule = "--------------------------------------------------------\n";

HealthReport small_report() {
  HealthReport report;
  report.joints = {{3, 0.9123F, 0.00123F, 0.0105F, 2}, {4, 0.7F, 0.0123456F, 0.03F, 11}, {}};
  report.overall_score = 0.5374F;
  report.frames_analyzed = 500;
  report.timestamp = 1763231343.9;
  report.device_serial = "TSL-R-000042";
  report.device_firmware = "1.4";
  return report;
}

DeviceInfo glove_info(std::int32_t side) {
  DeviceInfo info;
  info.serial = "TSL-OTHER";
  info.firmware = "9.9";
  info.side = side;
  info.n_dofs = 20;
  return info;
}

/// The row of one joint in the table.
std::string row_of(const JointHealth& joint) {
  HealthReport report;
  report.joints = {joint};
  const std::string table = format_health_report(report);
  const std::size_t begin = table.find(kRule) + kRule.size();
  return table.substr(begin, table.find('\n', begin) - begin);
}

std::string row_with_score(float score) {
  return row_of({0, score, 0.0F, 0.0F, 0});
}

/// The last line of the table.
std::string overall_line(float score) {
  HealthReport report;
  report.overall_score = score;
  const std::string table = format_health_report(report);
  return table.substr(table.rfind("Overall"));
}

/// The value of the document's time line.
std::string time_in_document(double timestamp) {
  HealthReport report;
  report.timestamp = timestamp;
  const std::string document = health_report_to_json(report, glove_info(1));
  const std::size_t begin = document.find("  \"timestamp\": \"") + 16;
  return document.substr(begin, document.find("\",\n", begin) - begin);
}

TEST(Report, table_reads_like_this) {
  EXPECT_EQ(format_health_report(small_report()),
            "\n"
            "Health check — TSL-R-000042  fw 1.4\n"
            "Frames analyzed: 500\n"
            "\n"
            "DOF   Score     Noise(mrad)   Backlash(mrad)  Dropouts  \n"
            "--------------------------------------------------------\n"
            "   3      91%         1.2          10.5       2 ✓\n"
            "   4      70%        12.3          30.0      11 ⚠\n"
            "   0       0%         0.0           0.0       0 ✗\n"
            "--------------------------------------------------------\n"
            "Overall: 53%\n");
}

TEST(Report, table_without_joints_has_two_rules_back_to_back) {
  HealthReport report;
  report.overall_score = 1.0F;
  report.device_serial = "TSL-1";
  report.device_firmware = "1.0";
  EXPECT_EQ(format_health_report(report),
            "\nHealth check — TSL-1  fw 1.0\n"
            "Frames analyzed: 0\n\n"
            "DOF   Score     Noise(mrad)   Backlash(mrad)  Dropouts  \n"
            "--------------------------------------------------------\n"
            "--------------------------------------------------------\n"
            "Overall: 100%\n");
}

TEST(Report, scores_are_truncated_to_whole_per_cent) {
  EXPECT_EQ(row_with_score(0.999F), "   0      99%         0.0           0.0       0 ✓");
  EXPECT_EQ(row_with_score(1.0F), "   0     100%         0.0           0.0       0 ✓");
  EXPECT_EQ(row_with_score(0.0F), "   0       0%         0.0           0.0       0 ✗");
  EXPECT_EQ(overall_line(0.999F), "Overall: 99%\n");
  EXPECT_EQ(overall_line(0.009F), "Overall: 0%\n");
  EXPECT_EQ(overall_line(1.0F), "Overall: 100%\n");
}

TEST(Report, per_cent_are_computed_in_single_precision) {
  // The nearest float to 0.29 lies below it, but a hundred times that rounds to 29.
  EXPECT_EQ(overall_line(0.29F), "Overall: 29%\n");
  EXPECT_EQ(overall_line(0.57F), "Overall: 57%\n");
  EXPECT_EQ(overall_line(0.58F), "Overall: 58%\n");
}

TEST(Report, verdict_marks_change_strictly_above_their_limits) {
  EXPECT_THAT(row_with_score(0.85F), EndsWith(" ⚠"));
  EXPECT_THAT(row_with_score(std::nextafter(0.85F, 1.0F)), EndsWith(" ✓"));
  EXPECT_THAT(row_with_score(0.6F), EndsWith(" ✗"));
  EXPECT_THAT(row_with_score(std::nextafter(0.6F, 1.0F)), EndsWith(" ⚠"));
}

TEST(Report, verdict_marks_have_four_bytes) {
  EXPECT_THAT(row_with_score(0.9F), EndsWith("0 \xE2\x9C\x93"));
  EXPECT_THAT(row_with_score(0.7F), EndsWith("0 \xE2\x9A\xA0"));
  EXPECT_THAT(row_with_score(0.1F), EndsWith("0 \xE2\x9C\x97"));
}

TEST(Report, milliradians_have_one_decimal) {
  // In single precision the nearest float to 0.00025 is worth exactly 0.25 milliradians, a tie that goes to
  // the even digit; in double precision it would be a little more.
  EXPECT_EQ(row_of({7, 0.5F, 0.00025F, 0.00075F, 0}), "   7      50%         0.2           0.8       0 ✗");
  EXPECT_EQ(row_of({7, 0.5F, 0.00004F, 0.09999F, 0}), "   7      50%         0.0         100.0       0 ✗");
}

TEST(Report, wide_numbers_are_not_cut) {
  EXPECT_EQ(row_of({123456, 0.5F, 12345678.0F, 3141592653.0F, 1234567890}),
            "123456      50%  12345677824.0  3141592678400.0  1234567890 ✗");
}

TEST(Report, table_shows_what_is_no_number) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(row_of({0, 0.5F, nan, infinity, 0}), "   0      50%         nan           inf       0 ✗");
  EXPECT_EQ(row_of({0, nan, 0.0F, 0.0F, 0}), "   0       0%         0.0           0.0       0 ✗");
  EXPECT_EQ(overall_line(infinity), "Overall: 0%\n");
}

TEST(Report, document_reads_like_this) {
  EXPECT_EQ(health_report_to_json(small_report(), glove_info(1)),
            "{\n"
            "  \"sdk_version\": \"0.3.0\",\n"
            "  \"os\": \"Linux\",\n"
            "  \"timestamp\": \"2025-11-15T18:29:03Z\",\n"
            "  \"device_serial\": \"TSL-R-000042\",\n"
            "  \"device_firmware\": \"1.4\",\n"
            "  \"device_side\": \"R\",\n"
            "  \"device_n_dofs\": 20,\n"
            "  \"frames_analyzed\": 500,\n"
            "  \"overall_score\": 0.537400,\n"
            "  \"joints\": [\n"
            "    {\"dof\": 3, \"name\": \"Joint 4\", \"score\": 0.912300, \"noise_rms\": 0.001230, "
            "\"backlash\": 0.010500, \"dropouts\": 2},\n"
            "    {\"dof\": 4, \"name\": \"Joint 5\", \"score\": 0.700000, \"noise_rms\": 0.012346, "
            "\"backlash\": 0.030000, \"dropouts\": 11},\n"
            "    {\"dof\": 0, \"name\": \"Joint 1\", \"score\": 0.000000, \"noise_rms\": 0.000000, "
            "\"backlash\": 0.000000, \"dropouts\": 0}\n"
            "  ]\n"
            "}\n");
}

TEST(Report, document_without_joints_closes_the_array_on_the_next_line) {
  HealthReport report;
  report.overall_score = 1.0F;
  EXPECT_THAT(health_report_to_json(report, glove_info(1)), EndsWith("  \"overall_score\": 1.000000,\n"
                                                                     "  \"joints\": [\n"
                                                                     "  ]\n"
                                                                     "}\n"));
}

TEST(Report, document_of_one_joint_has_no_comma_behind_it) {
  HealthReport report;
  report.joints = {{19, 0.99F, 0.0F, 0.0F, 1}};
  EXPECT_THAT(
      health_report_to_json(report, glove_info(1)),
      EndsWith("  \"joints\": [\n"
               "    {\"dof\": 19, \"name\": \"Joint 20\", \"score\": 0.990000, \"noise_rms\": 0.000000, "
               "\"backlash\": 0.000000, \"dropouts\": 1}\n"
               "  ]\n"
               "}\n"));
}

TEST(Report, only_side_zero_is_left_in_the_document) {
  const auto line = [](std::int32_t side) {
    const std::string document = health_report_to_json({}, glove_info(side));
    const std::size_t begin = document.find("  \"device_side\"");
    return document.substr(begin, document.find('\n', begin) - begin);
  };
  EXPECT_EQ(line(0), "  \"device_side\": \"L\",");
  EXPECT_EQ(line(1), "  \"device_side\": \"R\",");
  EXPECT_EQ(line(2), "  \"device_side\": \"R\",");
  EXPECT_EQ(line(-1), "  \"device_side\": \"R\",");
}

TEST(Report, document_takes_the_names_from_the_report_and_the_joint_count_from_the_glove) {
  HealthReport report;
  report.device_serial = "TSL-REPORT";
  report.device_firmware = "7.7";
  const std::string document = health_report_to_json(report, glove_info(1));
  EXPECT_THAT(document, HasSubstr("  \"device_serial\": \"TSL-REPORT\",\n"));
  EXPECT_THAT(document, HasSubstr("  \"device_firmware\": \"7.7\",\n"));
  EXPECT_THAT(document, HasSubstr("  \"device_n_dofs\": 20,\n"));
  EXPECT_THAT(document, Not(HasSubstr("TSL-OTHER")));
}

TEST(Report, texts_stand_in_the_document_as_they_are) {
  HealthReport report;
  report.device_serial = "TSL-\"quoted\"\\";
  EXPECT_THAT(health_report_to_json(report, glove_info(1)),
              HasSubstr("  \"device_serial\": \"TSL-\"quoted\"\\\",\n"));
}

TEST(Report, time_is_the_whole_second_that_has_begun) {
  EXPECT_EQ(time_in_document(1763231343.9), "2025-11-15T18:29:03Z");
  EXPECT_EQ(time_in_document(1763231343.0), "2025-11-15T18:29:03Z");
  EXPECT_EQ(time_in_document(0.0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(time_in_document(951782400.5), "2000-02-29T00:00:00Z");
  EXPECT_EQ(time_in_document(4102444799.999), "2099-12-31T23:59:59Z");
}

TEST(Report, time_before_the_epoch_is_truncated_toward_it) {
  EXPECT_EQ(time_in_document(-0.9), "1970-01-01T00:00:00Z");
  EXPECT_EQ(time_in_document(-1.9), "1969-12-31T23:59:59Z");
}

TEST(Report, time_beyond_the_calendar_is_empty) {
  EXPECT_EQ(time_in_document(1e18), "");
  EXPECT_EQ(time_in_document(1e300), "");
  EXPECT_EQ(time_in_document(-1e300), "");
  EXPECT_EQ(time_in_document(std::numeric_limits<double>::quiet_NaN()), "");
}

/// Numbers in the manner of a country far away.
class ForeignNumbers : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Report, is_the_same_in_every_locale_and_time_zone) {
  HealthReport report = small_report();
  report.frames_analyzed = 1234567;
  const std::string table = format_health_report(report);
  const std::string document = health_report_to_json(report, glove_info(1));
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new ForeignNumbers));
  const char* const zone = std::getenv("TZ");
  const std::string zone_before = zone != nullptr ? zone : "";
  setenv("TZ", "Elsewhere-7", 1);
  tzset();
  EXPECT_EQ(format_health_report(report), table);
  EXPECT_EQ(health_report_to_json(report, glove_info(1)), document);
  zone != nullptr ? setenv("TZ", zone_before.c_str(), 1) : unsetenv("TZ");
  tzset();
  std::locale::global(before);
  EXPECT_THAT(table, HasSubstr("Frames analyzed: 1234567\n"));
}

TEST(Report, another_reader_of_json_understands_the_document) {
  const test::TempDirectory directory;
  test::write_file(directory.file("report.json"), health_report_to_json(small_report(), glove_info(0)));
  const test::Finished reader =
      test::run({"python3", "-c",
                 "import json, sys\n"
                 "report = json.load(open(sys.argv[1]))\n"
                 "print(list(report))\n"
                 "print(report['sdk_version'], report['os'], report['timestamp'], report['device_serial'])\n"
                 "print(report['device_firmware'], report['device_side'], report['device_n_dofs'])\n"
                 "print(report['frames_analyzed'], report['overall_score'], len(report['joints']))\n"
                 "print(report['joints'][1])\n",
                 directory.file("report.json")});
  EXPECT_EQ(reader.error, "");
  EXPECT_EQ(reader.output,
            "['sdk_version', 'os', 'timestamp', 'device_serial', 'device_firmware', 'device_side', "
            "'device_n_dofs', 'frames_analyzed', 'overall_score', 'joints']\n"
            "0.3.0 Linux 2025-11-15T18:29:03Z TSL-R-000042\n"
            "1.4 L 20\n"
            "500 0.5374 3\n"
            "{'dof': 4, 'name': 'Joint 5', 'score': 0.7, 'noise_rms': 0.012346, 'backlash': 0.03, "
            "'dropouts': 11}\n");
}

}  // namespace

}  // namespace tarsil
