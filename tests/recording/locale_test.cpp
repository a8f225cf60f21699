// Recordings are the same in every country.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tarsil/recording/format.h"
#include "tarsil/recording/line_rules.h"
#include "tarsil/recording/number_reader.h"
#include "tarsil/recording/recorder.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/comma_locale.h"
#include "tests/recording/samples.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

TEST(CommaLocale, writes_numbers_with_a_comma) {
  const test::CommaLocale comma;
  std::ostringstream text;
  text << 1234.5;
  EXPECT_EQ(text.str(), "1.234,5");
  if (comma.is_set_in_c()) {
    EXPECT_EQ(test::printed(1234.5, 1), "1234,5");
  }
}

TEST(CommaLocale, gives_the_former_one_back) {
  { const test::CommaLocale comma; }
  std::ostringstream text;
  text << 1234.5;
  EXPECT_EQ(text.str(), "1234.5");
  EXPECT_EQ(test::printed(1234.5, 1), "1234.5");
}

TEST(DecimalComma, changes_no_line) {
  const test::CommaLocale comma;
  std::string text;
  detail::append_tsl_frame(text, test::small_frame());
  EXPECT_EQ(text,
            "{\"type\":\"frame\",\"seq\":42,\"t\":1.234000,\"q\":[0.100000,0.200000],\"touch\":[0.000000],"
            "\"imu\":[{\"acc\":[0.010,-0.020,9.810],\"gyro\":[0.000,0.001,-0.002]}],\"stale\":false}\n");
  text.clear();
  Frame frame = test::bare_frame(1234567, 1700000000.25);
  frame.q = {12345.5F};
  detail::append_csv_heading(text, frame);
  detail::append_csv_row(text, frame);
  EXPECT_EQ(text, "seq,t,stale,q_0\n1234567,1700000000.250000,0,12345.500000\n");
  text.clear();
  detail::append_json_document(text, 1700000000.25, {}, {frame}, {});
  EXPECT_NE(text.find("  \"t_created\": 1700000000.250000,\n"), std::string::npos);
  EXPECT_NE(text.find("{\"seq\":1234567,\"t\":1700000000.250000,\"q\":[12345.500000],"), std::string::npos);
}

TEST(DecimalComma, changes_no_number_that_is_read) {
  const test::CommaLocale comma;
  const char* end = nullptr;
  for (const char* const text : {"1.5", "1.5e0", "15e-1", "0x1.8", "1.50000000000000000000", " +1.5"}) {
    EXPECT_EQ(detail::read_double(text, end), 1.5) << text;
    EXPECT_EQ(*end, '\0') << text;
    EXPECT_EQ(detail::read_float(text, end), 1.5F) << text;
    EXPECT_EQ(*end, '\0') << text;
  }
  for (const char* const text : {"1,5", "1,5e0", " +1,5", "1e0,5"}) {
    EXPECT_EQ(detail::read_double(text, end), 1.0) << text;
    EXPECT_EQ(*end, ',') << text;
    EXPECT_EQ(detail::read_float(text, end), 1.0F) << text;
    EXPECT_EQ(*end, ',') << text;
  }
}

TEST(DecimalComma, changes_no_field) {
  const test::CommaLocale comma;
  // Blanks and an exponent: not what the recorder writes.
  const Frame frame =
      detail::frame_by_rules("{\"type\":\"frame\", \"t\": 1.25e1, \"q\": [ 0.5, 15e-1, 2.123456789012 ]}");
  EXPECT_EQ(frame.t, 12.5);
  ASSERT_EQ(frame.q.size(), 3U);
  EXPECT_EQ(frame.q[0], 0.5F);
  EXPECT_EQ(frame.q[1], 1.5F);
  EXPECT_EQ(frame.q[2], 2.123456789012F);
}

TEST(DecimalComma, changes_no_recording) {
  const test::TempDirectory directory;
  const auto frames = test::worn_frames(50, 1);
  const auto record = [&](const std::string& name) {
    const std::string path = directory.file(name);
    Recorder recorder(path, {{"n_dofs", "1234"}});
    for (const Frame& frame : frames) recorder.write_frame(frame);
    return path;
  };
  const std::string plain = record("plain.tsl");
  const Replayer expected(plain, {0.0F, false});
  const test::CommaLocale comma;
  const std::string path = record("comma.tsl");
  const std::string plain_text = test::read_file(plain);
  const std::string text = test::read_file(path);
  EXPECT_EQ(text.substr(text.find('\n')), plain_text.substr(plain_text.find('\n')));
  const Replayer replayer(path, {0.0F, false});
  EXPECT_EQ(replayer.device_info().n_dofs, 1234);
  ASSERT_EQ(replayer.frame_count(), frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_TRUE(test::same_bits(replayer.frames()[i], expected.frames()[i]));
  }
}

}  // namespace
}  // namespace tarsil
