// `tarsil record`: every frame that the glove sent is in the file, and the tool says truly what is missing.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;
using virtual_glove::FaultKind;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

const std::string kIntact = "USB integrity: OK — no dropped hardware cycles.\n";
const std::string kClosed = "Error: SerialSource stream closed\n";

const std::string kGloveMetadata =
    R"({"firmware": "1.4", "n_dofs": "20", "n_imu": "5", "n_pads": "30", "serial": "TSL-VG000001", )"
    R"("side": "right", "source": "serial"})";

struct Format {
  const char* name;
  const char* extension;
  HandStyle style;
  Recording (*read)(const std::string& text);
};

void PrintTo(const Format& format, std::ostream* out) {
  *out << format.name;
}

constexpr std::array kFormats{Format{"tsl", ".tsl", HandStyle::json, read_tsl},
                              Format{"csv", ".csv", HandStyle::csv, read_csv},
                              Format{"json", ".json", HandStyle::json, read_json}};

std::string format_name(const testing::TestParamInfo<Format>& info) {
  return info.param.name;
}

/// `before` and `after` a time with six decimals.
void expect_around_a_time(const std::string& text, const std::string& before, const std::string& after) {
  ASSERT_THAT(text, StartsWith(before));
  ASSERT_TRUE(text.ends_with(after)) << text;
  const std::string t = text.substr(before.size(), text.size() - before.size() - after.size());
  EXPECT_THAT(t, testing::MatchesRegex("[0-9]+\\.[0-9][0-9][0-9][0-9][0-9][0-9]"));
}

void expect_tsl_head(const Recording& recording, const std::string& file, const std::string& metadata) {
  expect_around_a_time(
      recording.head,
      R"({"type":"header","version":1,"sdk":"0.3.0","format":"tsl","file":")" + file + R"(","t_created":)",
      ",\"metadata\":" + metadata + "}");
}

void expect_json_head(const Recording& recording, const std::string& metadata, std::size_t frames) {
  expect_around_a_time(
      recording.head,
      "{\n  \"version\": 1,\n  \"sdk\": \"0.3.0\",\n  \"format\": \"json\",\n  \"t_created\": ",
      ",\n  \"metadata\": " + metadata + ",\n  \"frame_count\": " + std::to_string(frames) + ",\n");
}

void expect_head(const Format& format, const Recording& recording, const std::string& file) {
  if (format.read == read_tsl) {
    expect_tsl_head(recording, file, kGloveMetadata);
  } else if (format.read == read_csv) {
    EXPECT_EQ(recording.head, csv_columns());
  } else {
    expect_json_head(recording, kGloveMetadata, recording.frames.size());
  }
}

/// What is printed for this recording, from `opening` to the summary. The time in it has more decimals in the
/// tool than in the file, so it is checked as a number.
void expect_output(const std::string& output, const std::string& opening, const Recording& recording,
                   const std::string& ending) {
  const std::string before = opening + "Saved " + std::to_string(recording.frames.size()) + " frames  ";
  const std::string after = " s\n" + ending;
  ASSERT_THAT(output, StartsWith(before));
  ASSERT_TRUE(output.ends_with(after)) << output;
  const std::string seconds = output.substr(before.size(), output.size() - before.size() - after.size());
  EXPECT_THAT(seconds, testing::MatchesRegex("[0-9]+\\.[0-9][0-9]"));
  const double duration =
      recording.frames.empty() ? 0.0 : recording.frames.back().t - recording.frames.front().t;
  EXPECT_NEAR(std::stod(seconds), duration, 0.0051);
}

/// The tool's end when a glove falls silent: mostly it waits for a frame that does not come.
void expect_end_of_glove(const Finished& record, const std::string& opening) {
  EXPECT_THAT(record.output, StartsWith(opening));
  if (record.status == kFailure) {
    EXPECT_EQ(record.error, kClosed);
    EXPECT_EQ(record.output, opening);
  } else {
    EXPECT_EQ(record.status, kSuccess);
    EXPECT_THAT(record.output, HasSubstr("Saved "));
  }
}

class RecordFormats : public testing::TestWithParam<Format> {
 protected:
  [[nodiscard]] std::string name() const { return std::string("take") + GetParam().extension; }
  [[nodiscard]] std::string path() const { return directory_.file(name()); }
  [[nodiscard]] Recording recording() const { return GetParam().read(read_file(path())); }
  [[nodiscard]] std::string opening(const std::string& limit) const {
    return "Recording to " + path() + "  format: " + GetParam().extension + "  (" + limit + ")\n";
  }

  TempDirectory directory_;
};

INSTANTIATE_TEST_SUITE_P(Record, RecordFormats, testing::ValuesIn(kFormats), format_name);

TEST_P(RecordFormats, hold_every_frame_up_to_the_limit) {
  GloveProgram glove({"--hz", "300"});
  const Finished record = run_tool({"record", path(), "--frames", "150", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_EQ(record.error, "");
  const Recording taken = recording();
  EXPECT_EQ(taken.frames.size(), 150U);
  EXPECT_EQ(taken.torn, "");
  expect_output(record.output, opening("150 frames"), taken, kIntact);
  expect_head(GetParam(), taken, name());
  HandText hand({.hz = 300}, GetParam().style);
  const Tally tally = check_frames(taken.frames, hand);
  EXPECT_EQ(tally.dropped, 0U);
  EXPECT_EQ(tally.fresh + tally.stale, 150U);
}

TEST_P(RecordFormats, hold_every_frame_of_a_glove_that_falls_silent) {
  GloveProgram glove({"--hz", "400", "--frames", "300"});
  const Finished record = run_tool({"record", path(), "--port", glove.port()});
  expect_end_of_glove(record, opening("Ctrl+C to stop"));
  const Recording taken = recording();
  expect_head(GetParam(), taken, name());
  HandText hand({.hz = 400}, GetParam().style);
  const Tally tally = check_frames(taken.frames, hand);
  EXPECT_EQ(tally.fresh, 300U);
  EXPECT_EQ(tally.last_seq, 299U);
  EXPECT_EQ(tally.dropped, 0U);
  EXPECT_GE(tally.stale, 1U);
  EXPECT_LE(tally.stale, 1500U / 61 + 1);
  // The glove has ended as well: all is sent and nobody listens.
  EXPECT_EQ(glove.process().wait(), kSuccess);
  EXPECT_EQ(account_value(glove.process().output(), "packets"), 300U);
}

TEST_P(RecordFormats, hold_every_frame_of_a_glove_that_is_unplugged) {
  VirtualGlove glove({.hz = 200});
  Process record(tool({"record", path(), "--port", glove.port()}));
  ASSERT_TRUE(record.wait_for_output(opening("Ctrl+C to stop")));
  ASSERT_TRUE(glove.wait_for_cycles(glove.account().cycles + 50, kPatience));
  glove.unplug();
  const ExitStatus status = record.wait();
  expect_end_of_glove({status, record.output(), record.error()}, opening("Ctrl+C to stop"));
  const Recording taken = recording();
  expect_head(GetParam(), taken, name());
  HandText hand({.hz = 200}, GetParam().style);
  const Tally tally = check_frames(taken.frames, hand);
  EXPECT_EQ(tally.dropped, 0U);
  // What was still on the line when the plug was pulled may be gone.
  EXPECT_LE(tally.fresh, glove.account().packets);
}

TEST_P(RecordFormats, are_complete_after_a_signal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    VirtualGlove glove({.hz = 200});
    Process record(tool({"record", path(), "--port", glove.port()}));
    ASSERT_TRUE(record.wait_for_output(opening("Ctrl+C to stop")));
    ASSERT_TRUE(glove.wait_for_cycles(glove.account().cycles + 20, kPatience));
    record.send_signal(signal);
    EXPECT_EQ(record.wait(), kSuccess);
    EXPECT_EQ(record.error(), "");
    const Recording taken = recording();
    EXPECT_EQ(taken.torn, "");
    expect_output(record.output(), opening("Ctrl+C to stop"), taken, kIntact);
    expect_head(GetParam(), taken, name());
    HandText hand({.hz = 200}, GetParam().style);
    check_frames(taken.frames, hand);
  }
}

TEST_P(RecordFormats, replace_a_file_of_that_name) {
  write_file(path(), std::string(500000, 'x'));
  const VirtualGlove glove;
  const Finished record = run_tool({"record", path(), "--frames", "10", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  const Recording taken = recording();
  expect_head(GetParam(), taken, name());
  EXPECT_EQ(taken.frames.size(), 10U);
  EXPECT_EQ(taken.torn, "");
}

TEST_P(RecordFormats, can_be_forced_and_give_a_name_its_extension) {
  const VirtualGlove glove;
  ProcessOptions options =
      tool({"record", "take", "--format", GetParam().name, "--frames", "3", "--port", glove.port()});
  options.directory = directory_.path();
  const Finished record = run(options);
  EXPECT_EQ(record.status, kSuccess);
  const Recording taken = recording();
  expect_output(record.output,
                std::string("Recording to take  format: ") + GetParam().extension + "  (3 frames)\n", taken,
                kIntact);
  expect_head(GetParam(), taken, name());
}

TEST_P(RecordFormats, can_be_forced_against_the_extension) {
  const VirtualGlove glove;
  const std::string odd = directory_.file("take.dat");
  const Finished record =
      run_tool({"record", odd, "--format", GetParam().name, "--frames", "3", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  const Recording taken = GetParam().read(read_file(odd));
  EXPECT_EQ(taken.frames.size(), 3U);
  expect_head(GetParam(), taken, "take.dat");
}

TEST(Record, goes_to_a_session_file_by_default) {
  const TempDirectory directory;
  const VirtualGlove glove;
  ProcessOptions options = tool({"record", "--frames", "3", "--port", glove.port()});
  options.directory = directory.path();
  const Finished record = run(options);
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, StartsWith("Recording to session.tsl  format: .tsl  (3 frames)\n"));
  expect_tsl_head(read_tsl(read_file(directory.file("session.tsl"))), "session.tsl", kGloveMetadata);
}

TEST(Record, takes_an_unknown_format_for_tsl) {
  const TempDirectory directory;
  const VirtualGlove glove;
  const std::string path = directory.file("take.Csv");
  const Finished record =
      run_tool({"record", path, "--format", "xml", "--frames", "3", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, StartsWith("Recording to " + path + "  format: .tsl  (3 frames)\n"));
  expect_tsl_head(read_tsl(read_file(path)), "take.Csv", kGloveMetadata);
}

TEST(Record, keeps_what_the_user_says_but_not_against_the_glove) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove({.serial = "TSL-LEFT", .left = true, .firmware_major = 2, .firmware_minor = 17});
  const Finished record = run_tool(
      {"record", path,           "--meta", "subject=P00", "--meta",   "task=a=b", "--meta", "flag",
       "--meta", "side=above",   "--meta", "serial=none", "--meta",   "empty=",   "--meta", "subject=P01",
       "--meta", "quote=\"\\",   "--meta", "=nameless",   "--frames", "3",        "--port", glove.port(),
       "--meta", "source=dream", "--meta", "--meta",      "late=yes"});
  EXPECT_EQ(record.status, kSuccess);
  expect_tsl_head(
      read_tsl(read_file(path)), "take.tsl",
      R"({"": "nameless", "--meta": "1", "empty": "", "firmware": "2.17", "flag": "1", "late": "yes", )"
      R"("n_dofs": "20", "n_imu": "5", "n_pads": "30", "quote": "\"\\", "serial": "TSL-LEFT", "side": "left", )"
      R"("source": "serial", "subject": "P01", "task": "a=b"})");
}

TEST(Record, takes_a_number_behind_a_dash_for_no_value) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove;
  const Finished record = run_tool({"record", path, "--frames", "-5", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_THAT(record.output, StartsWith("Recording to " + path + "  format: .tsl  (1 frames)\n"));
  EXPECT_EQ(read_tsl(read_file(path)).frames.size(), 1U);
}

TEST(Record, takes_a_negative_limit_for_none_but_shows_it) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove;
  Process record(tool({"record", path, "--frames", " -5", "--port", glove.port()}));
  ASSERT_TRUE(record.wait_for_output("Recording to " + path + "  format: .tsl  (-5 frames)\n"));
  ASSERT_TRUE(eventually([&] { return read_tsl(read_file(path)).frames.size() > 10; }));
  record.send_signal(SIGINT);
  EXPECT_EQ(record.wait(), kSuccess);
}

TEST(Record, refuses_a_limit_that_is_no_number) {
  const TempDirectory directory;
  const Finished record = run_tool({"record", directory.file("take.tsl"), "--frames", "many"});
  EXPECT_EQ(record.status, kFailure);
  EXPECT_EQ(record.output, "");
  EXPECT_THAT(record.error, StartsWith("Error: "));
  EXPECT_THAT(record.error, HasSubstr("stoi"));
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(Record, saves_nothing_from_a_port_that_cannot_be_opened) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  write_file(directory.file("plain"), "no terminal");
  for (const std::string port : {"nothing", "plain"}) {
    const Finished record = run_tool({"record", path, "--port", directory.file(port)});
    EXPECT_EQ(record.status, kSuccess);
    EXPECT_EQ(record.error, "");
    EXPECT_EQ(record.output, "Recording to " + path +
                                 "  format: .tsl  (Ctrl+C to stop)\nSaved 0 frames  0.00 s\n" + kIntact);
    const Recording taken = read_tsl(read_file(path));
    EXPECT_EQ(taken.frames.size(), 0U);
    EXPECT_THAT(taken.head, HasSubstr("\"serial\": \"TSL-" + port + "\""));
    EXPECT_THAT(taken.head, HasSubstr("\"firmware\": \"unknown\""));
  }
}

TEST(Record, keeps_frames_whole_behind_everything_that_a_line_can_add) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const GloveConfig config{.hz = 400,
                           .faults = {{.kind = FaultKind::garbage, .rate = 0.2},
                                      {.kind = FaultKind::splits, .rate = 0.2},
                                      {.kind = FaultKind::unknown_types, .rate = 0.2},
                                      {.kind = FaultKind::unknown_blocks, .rate = 0.2}}};
  const VirtualGlove glove(config);
  const Finished record = run_tool({"record", path, "--frames", "400", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_EQ(record.error, "");
  EXPECT_TRUE(record.output.ends_with(kIntact)) << record.output;
  HandText hand(config, HandStyle::json);
  EXPECT_EQ(check_frames(read_tsl(read_file(path)).frames, hand).dropped, 0U);
}

TEST(Record, follows_the_counter_over_its_end) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove({.hz = 400, .first_counter = 65500});
  const Finished record = run_tool({"record", path, "--frames", "100", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_TRUE(record.output.ends_with(kIntact)) << record.output;
  HandText hand({.hz = 400}, HandStyle::json);
  EXPECT_EQ(check_frames(read_tsl(read_file(path)).frames, hand).dropped, 0U);
}

/// How many cycles this glove loses on purpose before cycle `end`: another one like it is asked, by a host
/// that does nothing but read.
std::uint64_t lost_before(GloveConfig config, std::uint64_t end) {
  config.frames = end;
  config.hz = 5000;
  VirtualGlove glove(config);
  const virtual_glove::Descriptor host(
      ::open(glove.port().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  const std::uint8_t start = 0xA5;
  if (::write(host.get(), &start, 1) != 1) throw std::runtime_error("cannot start the glove");
  EXPECT_TRUE(eventually([&] {
    std::array<std::uint8_t, 4096> bytes;
    while (::read(host.get(), bytes.data(), bytes.size()) > 0) {
    }
    return glove.account().exhausted;
  }));
  return glove.account().cycles_lost;
}

TEST(Record, counts_what_is_missing_to_the_cycle) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const GloveConfig config{.hz = 400, .seed = 7, .faults = {{.kind = FaultKind::lost_cycles, .rate = 0.05}}};
  const VirtualGlove glove(config);
  const Finished record = run_tool({"record", path, "--frames", "500", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  const Recording taken = read_tsl(read_file(path));
  ASSERT_EQ(taken.frames.size(), 500U);
  HandText hand(config, HandStyle::json);
  // Cycles that are lost before the first frame show nowhere.
  const auto first = hand.find(taken.frames.front().values);
  ASSERT_TRUE(first);
  const Tally tally = check_frames(taken.frames, hand, *first);
  EXPECT_GE(tally.dropped, 20U);
  EXPECT_EQ(tally.dropped + *first, lost_before(config, *first + tally.last_seq));
  expect_output(record.output, "Recording to " + path + "  format: .tsl  (500 frames)\n", taken, "");
  EXPECT_EQ(record.error,
            "WARNING: " + std::to_string(tally.dropped) +
                " hardware cycle(s) were dropped on the USB link during this recording (gaps in "
                "frame.seq).\n"
                "         The data is NOT complete. Check cabling / USB port / load.\n");
}

TEST(Record, counts_a_single_missing_stretch) {
  const TempDirectory directory;
  const std::string path = directory.file("take.csv");
  GloveProgram glove({"--hz", "400", "--fault", "lost-cycles@0.2"});
  const Finished record = run_tool({"record", path, "--frames", "400", "--port", glove.port()});
  const std::string account = glove.account();
  EXPECT_EQ(account_value(account, "fault.lost-cycles"), 1U);
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_EQ(record.error,
            "WARNING: " + std::to_string(account_value(account, "cycles_lost")) +
                " hardware cycle(s) were dropped on the USB link during this recording (gaps in "
                "frame.seq).\n"
                "         The data is NOT complete. Check cabling / USB port / load.\n");
  HandText hand({.hz = 400}, HandStyle::csv);
  const Tally tally = check_frames(read_csv(read_file(path)).frames, hand);
  EXPECT_EQ(tally.dropped, account_value(account, "cycles_lost"));
}

TEST(Record, repeats_frames_during_a_pause_and_misses_none) {
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  const VirtualGlove glove(
      {.hz = 400, .faults = {{.kind = FaultKind::silence, .at_seconds = 0.1, .duration_seconds = 0.5}}});
  const Finished record = run_tool({"record", path, "--frames", "200", "--port", glove.port()});
  EXPECT_EQ(record.status, kSuccess);
  EXPECT_TRUE(record.output.ends_with(kIntact)) << record.output;
  HandText hand({.hz = 400}, HandStyle::json);
  const Tally tally = check_frames(read_tsl(read_file(path)).frames, hand);
  EXPECT_GE(tally.stale, 2U);
  EXPECT_EQ(tally.dropped, 0U);
}

}  // namespace
}  // namespace tarsil::test
