// Every kind of damage, with the place where it is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <string>
#include <vector>

#include "tarsil/recording/recorder.h"
#include "tests/recording/samples.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class RecordingCheck : public testing::Test {
 protected:
  /// The complaints about a file with these bytes, without the file's name.
  std::string complaints(const std::string& bytes) {
    write_file(path_, bytes);
    const Finished check = run_recording_tool({"check", path_});
    EXPECT_EQ(check.error, "");
    const bool fine = check.output.find(": fine, ") != std::string::npos;
    EXPECT_EQ(check.status, fine ? kDone : kDamaged);
    std::string text;
    for (const std::string& line : lines_of(check.output)) {
      EXPECT_EQ(line.find(path_ + ": "), 0U) << line;
      text += line.substr(path_.size() + 2) + "\n";
    }
    return text;
  }

  /// The first complaint about a frame line in which `from` has become `to`.
  std::string complaint_about_frame(const std::string& from, const std::string& to) {
    std::string frame = frame_line(7);
    const std::size_t at = frame.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    frame.replace(at, from.size(), to);
    const std::string text = complaints(header_line() + frame);
    return text.substr(0, text.find('\n'));
  }

  TempDirectory directory_;
  std::string path_ = directory_.file("take.tsl");
};

TEST_F(RecordingCheck, what_the_recorder_writes_is_fine) {
  {
    Recorder recorder(path_, {{"note", "a \"quoted\"\tand\\or \r\n \x01 text"}, {"", ""}});
    std::mt19937 random(1);
    for (std::uint64_t seq = 0; seq < 50; ++seq) recorder.write_frame(worn_frame(random, seq));
    recorder.add_marker("gr\xC3\xBCn \"x\"", {{"b", "2"}, {"a", "1"}, {"", ""}});
    recorder.write_frame(bare_frame(std::numeric_limits<std::uint64_t>::max(), 0.0));
    Frame odd = small_frame();
    odd.q = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
             std::numeric_limits<float>::infinity(), -0.0F, 3e38F};
    odd.imu[0].acc[1] = -std::numeric_limits<float>::infinity();
    odd.t = -1.5;
    recorder.write_frame(odd);
  }
  EXPECT_EQ(complaints(read_file(path_)), "fine, 52 frames, 1 markers\n");
}

TEST_F(RecordingCheck, stale_frames_that_repeat_a_number_are_fine) {
  std::string stale = frame_line(1, true);
  stale.replace(stale.find("00.01"), 5, "00.07");
  EXPECT_EQ(complaints(header_line() + frame_line(1) + stale), "fine, 2 frames, 0 markers\n");
}

TEST_F(RecordingCheck, the_same_frame_twice_is_fine) {
  EXPECT_EQ(complaints(header_line() + frame_line(0) + frame_line(0)), "fine, 2 frames, 0 markers\n");
}

TEST_F(RecordingCheck, damage_in_a_frame_is_found_where_it_is) {
  const std::vector<std::vector<std::string>> cases{
      {R"("seq":7)", R"("seq":-7)", "line 2, column 23, byte 157: expected a whole number, found '-'"},
      {R"("seq":7)", R"("seq":07)",
       "line 2, column 23, byte 157: expected a number without leading zeros, found '0'"},
      {R"("seq":7)", R"("seq":18446744073709551616)",
       "line 2, column 23, byte 157: expected a whole number below 2 to the 64, found '1'"},
      {R"("t":)", R"("t" :)", "line 2, column 28, byte 162: expected ':', found byte 0x20"},
      {"[0.500000]", "[0,500000]", "line 2, column 53, byte 187: expected '.', found ','"},
      {"[0.500000]", "[0.50000]",
       "line 2, column 59, byte 193: expected a number with 6 decimals, found ']'"},
      {"[0.500000]", "[0.5000000]",
       "line 2, column 60, byte 194: expected a number with 6 decimals, found '0'"},
      {"[0.500000]", "[5e-1]", "line 2, column 53, byte 187: expected '.', found 'e'"},
      {"[0.500000]", "[00.500000]",
       "line 2, column 52, byte 186: expected a number without leading zeros, found '0'"},
      {"[0.500000]", "[]]", "line 2, column 53, byte 187: expected ',\"touch\":', found ']'"},
      {"[0.500000]", "[0.500000,]", "line 2, column 61, byte 195: expected a number, found ']'"},
      {"[0.500000]", "[null]", "line 2, column 52, byte 186: expected a number, found 'n'"},
      {"0.010,", "0.010000,", "line 2, column 101, byte 235: expected a number with 3 decimals, found '0'"},
      {",0.990]", "]", "line 2, column 108, byte 242: expected ',', found ']'"},
      {"false", "maybe", "line 2, column 154, byte 288: expected 'false}', found 'm'"},
      {"false}", "false} ", "line 2, column 160, byte 294: expected the end of the line, found byte 0x20"},
      {"\"touch\"", std::string("\"to\0ch\"", 7),
       "line 2, column 65, byte 199: expected 'uch\":', found byte 0x00"},
      {"frame", "fr\x1b",
       "line 2, column 9, byte 143: expected \"header\", \"frame\" or \"marker\", found '\"'"},
  };
  for (const auto& wrong : cases) EXPECT_EQ(complaint_about_frame(wrong[0], wrong[1]), wrong[2]);
}

TEST_F(RecordingCheck, damage_in_texts_is_found_where_it_is) {
  const auto marker = [](const std::string& rest) {
    return header_line() + R"({"type":"marker","t":1.000000,"name":)" + rest + "\n";
  };
  EXPECT_EQ(complaints(marker(R"("a","data":{}})")), "fine, 0 frames, 1 markers\n");
  EXPECT_THAT(complaints(marker(R"("a\u0041","data":{}})")),
              HasSubstr("line 2, column 41, byte 175: expected one of \" \\ n r t, found 'u'\n"));
  EXPECT_THAT(complaints(marker("\"a\tb\",\"data\":{}}")),
              HasSubstr("expected an escape in its place, found byte 0x09\n"));
  EXPECT_THAT(complaints(marker("\"a")),
              HasSubstr("expected the end of the text, found the end of the line\n"));
  EXPECT_THAT(complaints(marker(R"("a","data":{"k":"v"}})")), HasSubstr("expected ' ', found '\"'\n"));
  EXPECT_THAT(complaints(marker(R"("a","data":{"k": "v", "a": "b"}})")),
              HasSubstr("expected keys in ascending order, found '\"'\n"));
  EXPECT_THAT(complaints(marker(R"("a","data":{"k": 1}})")), HasSubstr("expected '\"', found '1'\n"));
}

TEST_F(RecordingCheck, a_recording_that_was_cut_ends_at_any_byte) {
  const std::string whole = small_recording(2);
  for (std::size_t size = header_line().size() + 1; size < whole.size(); size += 13) {
    const std::string text = complaints(whole.substr(0, size));
    if (size == header_line().size() + frame_line(0).size()) continue;
    EXPECT_THAT(text, HasSubstr("byte " + std::to_string(size) + ": the recording is cut short: expected "));
    EXPECT_THAT(text,
                EndsWith("found the end of the line\n" + std::string("damaged, 1 of ") +
                         (size > header_line().size() + frame_line(0).size() ? "3" : "2") + " lines\n"));
  }
  EXPECT_EQ(complaints(whole.substr(0, whole.size() - 1)),
            "line 3, column 160, byte 454: the last line lacks its line feed\ndamaged, 1 of 3 lines\n");
}

TEST_F(RecordingCheck, lines_that_are_whole_can_be_in_the_wrong_place) {
  EXPECT_EQ(complaints(header_line() + frame_line(0) + header_line()),
            "line 3, column 1, byte 295: a second header\ndamaged, 1 of 3 lines\n");
  EXPECT_EQ(complaints(frame_line(0) + frame_line(1)),
            "line 1, column 1, byte 0: the header is missing\ndamaged, 1 of 2 lines\n");
  EXPECT_EQ(complaints(frame_line(0) + header_line()),
            "line 1, column 1, byte 0: the header is missing\n"
            "line 2, column 1, byte 160: a header behind other lines\ndamaged, 2 of 2 lines\n");
}

TEST_F(RecordingCheck, lines_can_be_spoilt_by_what_files_go_through) {
  std::string windows;
  for (const std::string& line : lines_of(small_recording(1))) windows += line + "\r\n";
  EXPECT_EQ(complaints(windows),
            "line 1, column 135, byte 134: a carriage return before the line feed\n"
            "line 2, column 160, byte 295: a carriage return before the line feed\ndamaged, 2 of 2 lines\n");
  EXPECT_EQ(complaints(header_line() + "\n" + frame_line(0)),
            "line 2, column 1, byte 135: the line is empty\ndamaged, 1 of 3 lines\n");
  EXPECT_EQ(complaints(header_line() + std::string(4096, '\0')),
            "line 2, column 1, byte 135: the line is nothing but zero bytes\ndamaged, 1 of 2 lines\n");
  EXPECT_EQ(complaints("\xEF\xBB\xBF" + header_line()),
            "line 1, column 1, byte 0: expected '{\"type\":', found byte 0xef\ndamaged, 1 of 1 lines\n");
  EXPECT_EQ(complaints(""), "the file is empty\n");
}

TEST_F(RecordingCheck, a_line_without_end_takes_no_more_memory_than_a_long_one) {
  std::string bytes = header_line() + std::string(5U << 20U, 'x') + "\n" + frame_line(0);
  EXPECT_EQ(complaints(bytes),
            "line 2, column 1, byte 135: no line is as long as this one\ndamaged, 1 of 3 lines\n");
}

TEST_F(RecordingCheck, many_complaints_are_cut_short_unless_all_are_asked_for) {
  std::string bytes = header_line();
  for (int i = 0; i < 25; ++i) bytes += "x\n";
  const std::string text = complaints(bytes);
  EXPECT_EQ(lines_of(text).size(), 22U);
  EXPECT_THAT(text, EndsWith("\nand 5 more\ndamaged, 25 of 26 lines\n"));
  EXPECT_EQ(lines_of(run_recording_tool({"check", "--all", path_}).output).size(), 26U);
}

}  // namespace
}  // namespace tarsil::test
