// What info says of a recording.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;

class RecordingInfo : public testing::Test {
 protected:
  TempDirectory directory_;
  std::string path_ = directory_.file("take.tsl");
};

TEST_F(RecordingInfo, sums_a_recording_up) {
  write_file(path_, header_line() + frame_line(0) + frame_line(1) + marker_line(1) + frame_line(5) +
                        frame_line(6, true) + frame_line(10) + frame_line(11));
  const Finished info = run_recording_tool({"info", path_});
  EXPECT_EQ(info.status, kDone);
  EXPECT_EQ(info.error, "");
  EXPECT_EQ(info.output, "file        " + path_ +
                             "\n"
                             "frames      6\n"
                             "begin       2023-11-14 22:13:20 UTC\n"
                             "duration    0.11 s\n"
                             "rate        36.36 fresh frames a second\n"
                             "gaps        2, with 6 frames missing, at most 3 at once\n"
                             "stale       1 frames, 16.67 %\n"
                             "markers     1\n"
                             "  0.010 s  grasp  object=cup\n"
                             "metadata    1\n"
                             "  side        left\n");
}

TEST_F(RecordingInfo, gives_the_same_as_json) {
  write_file(path_, header_line() + frame_line(0) + marker_line(1) + frame_line(5) + "torn");
  const Finished info = run_recording_tool({"info", "--json", path_});
  EXPECT_EQ(info.status, kDone);
  EXPECT_EQ(info.output,
            "{\n  \"file\": \"" + path_ +
                "\",\n"
                "  \"sdk\": \"0.3.0\",\n"
                "  \"frames\": 2,\n"
                "  \"stale\": 0,\n"
                "  \"stale_share\": 0.000000,\n"
                "  \"first_t\": 1700000000.000000,\n"
                "  \"last_t\": 1700000000.050000,\n"
                "  \"duration\": 0.050000,\n"
                "  \"rate\": 20.000,\n"
                "  \"gaps\": 1,\n"
                "  \"missing_frames\": 4,\n"
                "  \"largest_gap\": 4,\n"
                "  \"frames_with_non_numbers\": 0,\n"
                "  \"damaged_lines\": 1,\n"
                "  \"marker_count\": 1,\n"
                "  \"markers\": [\n"
                "    {\"t\": 1700000000.010000, \"name\": \"grasp\", \"data\": {\"object\": \"cup\"}}\n"
                "  ],\n"
                "  \"metadata\": {\"side\": \"left\"}\n"
                "}\n");
}

TEST_F(RecordingInfo, is_json_whatever_the_texts_are) {
  const std::string name = R"(a\"b\\ )"
                           "\x01 gr\xC3\xBCn \xFF";
  write_file(path_,
             header_line() + R"({"type":"marker","t":1.000000,"name":")" + name + R"(","data":{}})" + "\n");
  const Finished info = run_recording_tool({"info", "--json", path_});
  EXPECT_THAT(info.output, HasSubstr(R"("name": "a\"b\\ \u0001 gr)"
                                     "\xC3\xBC"
                                     R"(n \ufffd", "data": {}})"));
  EXPECT_THAT(info.output, HasSubstr("\"frames\": 0,\n"));
  EXPECT_THAT(info.output, HasSubstr("\"rate\": null,\n"));
}

TEST_F(RecordingInfo, counts_what_is_damaged_and_goes_on) {
  write_file(path_, frame_line(0) + "torn\n" + frame_line(1));
  const Finished info = run_recording_tool({"info", path_});
  EXPECT_EQ(info.status, kDone);
  EXPECT_THAT(info.output, HasSubstr("frames      2\n"));
  EXPECT_THAT(info.output, HasSubstr("damaged     2 lines (tarsil-recording check tells where)\n"));
  EXPECT_THAT(info.output, HasSubstr("metadata    the header is missing\n"));
}

TEST_F(RecordingInfo, of_an_empty_file_is_short) {
  write_file(path_, "");
  const Finished info = run_recording_tool({"info", path_});
  EXPECT_EQ(info.status, kDamaged);
  EXPECT_EQ(info.output,
            "file        " + path_ + "\nframes      0\nmarkers     0\nmetadata    the header is missing\n");
}

TEST_F(RecordingInfo, of_what_is_no_recording_is_not_done) {
  write_file(path_, "a letter\nof two lines\n");
  const Finished info = run_recording_tool({"info", "--json", path_});
  EXPECT_EQ(info.status, kDamaged);
  EXPECT_THAT(info.output, HasSubstr("\"damaged_lines\": 2,\n"));
  for (const std::string& line : {header_line(), frame_line(0), marker_line(0)}) {
    write_file(path_, line);
    EXPECT_EQ(run_recording_tool({"info", path_}).status, kDone);
  }
}

TEST_F(RecordingInfo, words_of_a_recording_do_not_drive_the_terminal) {
  write_file(path_, header_line() + R"({"type":"marker","t":1.000000,"name":")" + "\x1b[2J" +
                        R"(","data":{}})" + "\n");
  Terminal terminal;
  ProcessOptions options = recording_tool({"info", path_});
  options.output_path = terminal.path();
  EXPECT_EQ(run(options).status, kDone);
  EXPECT_TRUE(terminal.wait_for_end("  side        left\n"));
  EXPECT_THAT(terminal.shown(), HasSubstr("0 s  \\x1b[2J\n"));
}

TEST_F(RecordingInfo, reads_from_a_pipe) {
  Process info(recording_tool({"info", "/dev/stdin"}));
  info.write_input(small_recording(3));
  info.close_input();
  EXPECT_EQ(info.wait(), kDone);
  EXPECT_THAT(info.output(), HasSubstr("frames      3\n"));
}

}  // namespace
}  // namespace tarsil::test
