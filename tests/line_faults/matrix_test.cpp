// Every fault of the line, at three rates, under every command that reads a glove: what the tool delivers is
// what the bytes that the glove has sent amount to, to the frame, and the glove's own account says the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/health/analysis.h"
#include "tarsil/health/report.h"
#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/recording_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/line_faults/plain_decoder.h"
#include "tests/line_faults/transcript.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using virtual_glove::Account;
using virtual_glove::Fault;
using virtual_glove::FaultKind;
using virtual_glove::GloveConfig;

constexpr ExitStatus kSuccess{0, 0};
constexpr ExitStatus kFailure{1, 0};

/// A busy machine may starve the glove or the tool, which shows, rightly. Where a test looks at what comes
/// through an undisturbed machine, it gets that many chances.
constexpr int kChances = 20;

/// Longer than a read that waits for bytes: each of them makes the tool repeat a frame.
constexpr double kSilence = 0.15;

/// What the glove sends for its identity.
constexpr std::uint64_t kIdentitySize = 28;

/// The most packets in a row that a damaged one can cost: a length that was hit makes the host wait for as
/// many bytes as a packet can have.
constexpr std::size_t kMostCost =
    1 + (virtual_glove::kPacketHeaderSize + virtual_glove::kLargestPayload) / virtual_glove::kHandPacketSize;

struct Cell {
  FaultKind kind = FaultKind::garbage;
  double rate = 0;
};

std::string cell_name(const testing::TestParamInfo<Cell>& info) {
  std::string name(virtual_glove::kFaultNames[static_cast<std::size_t>(info.param.kind)]);
  std::replace(name.begin(), name.end(), '-', '_');
  return name + "_" + std::to_string(static_cast<int>(info.param.rate * 100)) + "_percent";
}

void PrintTo(const Cell& cell, std::ostream* out) {
  *out << virtual_glove::kFaultNames[static_cast<std::size_t>(cell.kind)] << "=" << cell.rate;
}

std::vector<Cell> all_cells() {
  std::vector<Cell> cells;
  for (std::size_t kind = 0; kind < virtual_glove::kFaultKinds; ++kind) {
    for (const double rate : {0.01, 0.1, 0.5}) cells.push_back({static_cast<FaultKind>(kind), rate});
  }
  return cells;
}

/// The last number in a recording that is being written; nothing yet: none.
std::optional<std::uint64_t> last_seq_in(const std::string& path) {
  constexpr std::streamoff kTail = 4096;
  std::ifstream file(path, std::ios::binary);
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  if (!file || size <= 0) return std::nullopt;
  std::string tail(static_cast<std::size_t>(std::min(size, kTail)), '\0');
  file.seekg(size - static_cast<std::streamoff>(tail.size()));
  file.read(tail.data(), static_cast<std::streamsize>(tail.size()));
  tail.resize(tail.rfind('\n') + 1);
  const std::string words = "\"seq\":";
  const std::size_t at = tail.rfind(words);
  if (at == std::string::npos) return std::nullopt;
  return std::stoull(tail.substr(at + words.size()));
}

class LineFaults : public testing::TestWithParam<Cell> {
 protected:
  [[nodiscard]] bool is(FaultKind kind) const { return GetParam().kind == kind; }
  /// The host cannot know what it should have got.
  [[nodiscard]] bool damages() const { return is(FaultKind::flipped_bits) || is(FaultKind::lost_bytes); }
  /// Frames are repeated, on any machine.
  [[nodiscard]] bool pauses() const { return is(FaultKind::silence) || is(FaultKind::hang); }

  /// A glove with the fault, and what it will send.
  void prepare(double hz, std::uint64_t frames, std::uint64_t seed) {
    config_ = {.hz = hz,
               .seed = seed,
               .frames = frames,
               .faults = {{.kind = GetParam().kind, .rate = GetParam().rate, .duration_seconds = kSilence}}};
    transcript_ = transcript_of(config_);
    expected_ = decode_plainly(transcript_.stream);
    ASSERT_FALSE(expected_.empty());
  }

  /// Silences take their time, so there are fewer cycles of them.
  [[nodiscard]] std::uint64_t fewer(std::uint64_t frames) const {
    if (!is(FaultKind::silence)) return frames;
    return std::min(frames, static_cast<std::uint64_t>(20 + 2 / GetParam().rate));
  }

  /// The first seed with which the glove hangs behind `least` to `most` cycles.
  void prepare_to_hang(double hz, std::uint64_t least, std::uint64_t most) {
    for (std::uint64_t seed = 1; seed < 1000; ++seed) {
      prepare(hz, most + 1, seed);
      const std::uint64_t cycles = transcript_.account.cycles;
      if (cycles >= least && cycles <= most) return;
    }
    FAIL() << "no such seed";
  }

  /// Ends the glove and compares what it says it has done with what it was expected to do.
  void expect_account(GloveProgram& glove) const {
    const std::string account = glove.account();
    const Account& sent = transcript_.account;
    EXPECT_EQ(account_value(account, "packets") + account_value(account, "abandoned"), sent.packets);
    EXPECT_EQ(account_value(account, "cycles"), sent.cycles);
    EXPECT_EQ(account_value(account, "cycles_lost"), sent.cycles_lost);
    EXPECT_EQ(account_value(account, "damaged"), sent.damaged);
    EXPECT_EQ(account_value(account, "bytes"), sent.bytes + kIdentitySize);
    for (std::size_t kind = 0; kind < virtual_glove::kFaultKinds; ++kind) {
      const std::string name(virtual_glove::kFaultNames[kind]);
      EXPECT_EQ(account_value(account, "fault." + name), sent.faults[kind]) << name;
    }
    expect_one_connection(account);
  }

  /// However bad the line, a source that reconnects has no reason to. Only a glove that hangs may be tried
  /// anew: when frames are dropped for a slow consumer, it takes more repetitions than there are before it
  /// counts as gone.
  void expect_no_reconnection(const std::string& account) const {
    if (!is(FaultKind::hang)) expect_one_connection(account);
  }

  /// One host, one reset, one start. Nobody gave up and came again.
  static void expect_one_connection(const std::string& account) {
    EXPECT_EQ(account_value(account, "hosts"), 1U);
    EXPECT_EQ(account_value(account, "resets"), 1U);
    EXPECT_EQ(account_value(account, "starts"), 1U);
  }

  void expect_frames(const std::vector<RecordedFrame>& frames) const;
  void expect_sums(std::uint64_t fresh) const;
  void expect_true_values() const;
  void expect_recovery() const;
  void expect_rows(const std::vector<Row>& rows) const;

  GloveConfig config_;
  Transcript transcript_;
  std::vector<DecodedFrame> expected_;
};

/// Fresh frames are the expected ones, all of them, number for number and value for value. A stale one
/// repeats the number before it, with the values that the channels have by then.
void LineFaults::expect_frames(const std::vector<RecordedFrame>& frames) const {
  const auto text = [](const virtual_glove::HandSample& hand) { return text_of(HandStyle::json, hand); };
  std::size_t next = 0;
  std::uint64_t stale = 0;
  double last_t = 0;
  for (const RecordedFrame& frame : frames) {
    EXPECT_GE(frame.t, last_t);
    last_t = frame.t;
    if (!frame.stale) {
      ASSERT_LT(next, expected_.size());
      ASSERT_EQ(frame.seq, expected_[next].seq);
      ASSERT_EQ(frame.values, text(expected_[next].hand)) << "seq " << frame.seq;
      ++next;
      continue;
    }
    ++stale;
    ASSERT_GT(next, 0U);
    const DecodedFrame& last = expected_[next - 1];
    ASSERT_EQ(frame.seq, last.seq);
    const bool known = frame.values == text(last.hand) ||
                       std::any_of(last.later.begin(), last.later.end(),
                                   [&](const auto& hand) { return frame.values == text(hand); });
    ASSERT_TRUE(known) << "stale, seq " << frame.seq;
  }
  EXPECT_EQ(next, expected_.size());
  // Not one for each silence: the last may come behind the end, and a late read may just see the silence end.
  EXPECT_GE(stale, transcript_.account.faults[static_cast<std::size_t>(FaultKind::silence)] / 2);
}

/// Delivered and missing cycles add up to those that were sent. What damage does is bounded.
void LineFaults::expect_sums(std::uint64_t fresh) const {
  const Account& sent = transcript_.account;
  if (!damages()) {
    EXPECT_EQ(fresh, sent.packets);
    EXPECT_EQ(fresh + skipped_cycles(expected_) + transcript_.lost_at_the_ends(), sent.cycles);
    return;
  }
  EXPECT_LE(fresh, sent.packets);
  EXPECT_GE(fresh + kMostCost * sent.damaged, sent.packets);
}

/// A frame whose packet was whole carries the values of its cycle: the hand's motion, not anybody's decoder,
/// says so. A packet that was cut short keeps those of the blocks before the cut.
void LineFaults::expect_true_values() const {
  const virtual_glove::HandMotion motion(config_.seed, config_.hz);
  for (std::uint64_t cycle = 0; cycle < transcript_.cycles.size(); ++cycle) {
    const SentCycle& sent = transcript_.cycles[cycle];
    const auto found = std::find_if(expected_.begin(), expected_.end(), [&](const DecodedFrame& frame) {
      return frame.offset >= sent.begin && frame.offset < sent.end;
    });
    if (found == expected_.end()) continue;
    const virtual_glove::HandSample hand = motion.at(cycle);
    if (!sent.damaged || is(FaultKind::truncated_blocks)) {
      EXPECT_EQ(found->hand.joints, hand.joints) << "cycle " << cycle;
      EXPECT_EQ(found->hand.imu, hand.imu) << "cycle " << cycle;
    }
    if (!sent.damaged) {
      EXPECT_EQ(found->hand.pads, hand.pads) << "cycle " << cycle;
    } else if (is(FaultKind::truncated_blocks)) {
      // The cut goes through the last block: the pads of the little finger stay as they were.
      EXPECT_TRUE(std::equal(hand.pads.begin(), hand.pads.end() - 6, found->hand.pads.begin()));
      const auto before = found == expected_.begin() ? virtual_glove::HandSample{} : std::prev(found)->hand;
      EXPECT_TRUE(std::equal(before.pads.end() - 6, before.pads.end(), found->hand.pads.end() - 6));
    }
  }
}

/// Whole packets that make no frame follow right behind a damaged one, and not for long.
void LineFaults::expect_recovery() const {
  std::size_t cost = 0;
  for (const SentCycle& sent : transcript_.cycles) {
    if (sent.lost) continue;
    const bool delivered = std::any_of(expected_.begin(), expected_.end(), [&](const DecodedFrame& frame) {
      return frame.offset >= sent.begin && frame.offset < sent.end;
    });
    cost = delivered || sent.damaged ? 0 : cost + 1;
    EXPECT_LE(cost, damages() ? kMostCost : 0) << "byte " << sent.begin;
  }
}

INSTANTIATE_TEST_SUITE_P(All, LineFaults, testing::ValuesIn(all_cells()), cell_name);

TEST_P(LineFaults, record_to_the_cycle) {
  prepare(1000, fewer(GetParam().rate < 0.1 ? 600 : 300), 11);
  const TempDirectory directory;
  const std::string path = directory.file("take.tsl");
  GloveProgram glove(glove_arguments(config_));
  Process record(tool({"record", path, "--port", glove.port()}));
  ASSERT_TRUE(record.wait_until([&] { return last_seq_in(path) == expected_.back().seq; }));
  // The recording now repeats the last frame, and with the next repetition it sees that it is to end.
  record.send_signal(SIGINT);
  const ExitStatus status = record.wait();

  const Recording taken = read_tsl(read_file(path));
  EXPECT_EQ(taken.torn, "");
  expect_frames(taken.frames);
  const auto fresh = std::count_if(taken.frames.begin(), taken.frames.end(),
                                   [](const RecordedFrame& frame) { return !frame.stale; });
  expect_sums(static_cast<std::uint64_t>(fresh));
  expect_true_values();
  expect_recovery();
  expect_account(glove);

  if (status == kFailure) {
    // The signal came more than a second late: the silence has ended the recording before.
    EXPECT_EQ(record.error(), "Error: SerialSource stream closed\n");
    return;
  }
  EXPECT_EQ(status, kSuccess);
  EXPECT_THAT(record.output(), HasSubstr("\nSaved " + std::to_string(taken.frames.size()) + " frames  "));
  const std::uint64_t dropped = skipped_cycles(expected_);
  if (dropped == 0) {
    EXPECT_TRUE(record.output().ends_with("USB integrity: OK — no dropped hardware cycles.\n"));
    EXPECT_EQ(record.error(), "");
  } else {
    EXPECT_THAT(record.error(),
                StartsWith("WARNING: " + std::to_string(dropped) + " hardware cycle(s) were dropped"));
  }
}

/// Rows show a part of the expected frames, for only the newest are kept, but in order and with nothing in
/// between.
void LineFaults::expect_rows(const std::vector<Row>& rows) const {
  std::vector<std::string> texts;
  for (const DecodedFrame& frame : expected_) {
    texts.push_back(text_of(HandStyle::row, frame.hand));
    for (const auto& hand : frame.later) texts.push_back(text_of(HandStyle::row, hand));
  }
  auto next = texts.cbegin();
  double last_t = 0;
  for (const Row& row : rows) {
    next = std::find(next, texts.cend(), row.values);
    ASSERT_NE(next, texts.cend()) << row.values;
    EXPECT_GE(row.t, last_t);
    last_t = row.t;
  }
}

TEST_P(LineFaults, stream_rows_of_what_was_sent) {
  // Of ten frames, one is enough: on a busy machine the others may be gone before they are shown.
  prepare(500, 10 * fewer(150), 12);
  // A glove that hangs at once has a few repetitions more to give before its silence is taken for its end.
  const std::size_t count = expected_.size() / 10 + (is(FaultKind::hang) ? 4 : 0);
  GloveProgram glove(glove_arguments(config_));
  const Finished stream =
      run_tool({"stream", "--raw", "--count", std::to_string(count), "--port", glove.port()}, 2 * kPatience);
  EXPECT_EQ(stream.status, kSuccess);
  EXPECT_EQ(stream.error, "");
  const std::vector<Row> rows = rows_in(stream.output);
  EXPECT_EQ(rows.size(), count);
  expect_rows(rows);
  expect_no_reconnection(glove.account());
}

/// Frames as the library hands them to the analysis.
std::vector<Frame> frames_of(const std::vector<DecodedFrame>& decoded, std::size_t count) {
  std::vector<Frame> frames(count);
  for (std::size_t i = 0; i < count; ++i) {
    for (const std::int16_t raw : decoded[i].hand.joints) {
      frames[i].q.push_back(static_cast<float>(raw) / 100.0F * 0.017453292F);
    }
    frames[i].seq = decoded[i].seq;
  }
  return frames;
}

std::string table_of(const std::vector<DecodedFrame>& decoded, std::size_t count) {
  const DeviceInfo info{"TSL-VG000001", 1, "1.4", 20, 30, 5};
  return format_health_report(analyze_health(frames_of(decoded, count), info));
}

TEST_P(LineFaults, health_analyses_what_was_sent) {
  constexpr std::size_t kLeast = 10;
  // Slow enough that the tool's queue outlasts a moment without the processor.
  prepare(200, fewer(220), 13);
  const std::size_t count =
      pauses() ? std::max(kLeast, std::min<std::size_t>(expected_.size() + 4, 30)) : expected_.size() / 2;
  const std::string opening = "Collecting " + std::to_string(count) + " frames for health analysis...\n";
  const std::string question = "\nUpload for health certificate? [y/N] ";
  Finished health;
  for (int chance = 0; chance < kChances; ++chance) {
    GloveProgram glove(glove_arguments(config_));
    health = run_tool({"health", "--frames", std::to_string(count), "--port", glove.port()}, 2 * kPatience);
    ASSERT_EQ(health.status, kSuccess);
    ASSERT_EQ(health.error, "");
    expect_no_reconnection(glove.account());
    ASSERT_THAT(health.output, StartsWith(opening));
    ASSERT_THAT(health.output, HasSubstr("\nFrames analyzed: " + std::to_string(count) + "\n"));
    if (pauses() || health.output == opening + table_of(expected_, count) + question) return;
  }
  EXPECT_EQ(health.output, opening + table_of(expected_, count) + question);
}

class LineFaultsUnderDoctor : public LineFaults {};

/// Without the gloves that hang early: doctor would take more than a minute to have its fifty frames.
std::vector<Cell> doctors_cells() {
  std::vector<Cell> cells = all_cells();
  std::erase_if(cells, [](const Cell& cell) { return cell.kind == FaultKind::hang && cell.rate > 0.01; });
  return cells;
}

INSTANTIATE_TEST_SUITE_P(All, LineFaultsUnderDoctor, testing::ValuesIn(doctors_cells()), cell_name);

/// The number in "50 frames, of which so many were stale"; fails the test if the output is not doctor's.
std::uint64_t stale_frames_in(const std::string& output) {
  const std::string before =
      "Device : TSL-VG000001\nSide   : right\nFw     : 1.4\nDOFs   : 20\n\n"
      "✓ Kinematics stream OK  (100 Hz, ";
  const std::string after = " stale frames)\n✓ Touch stream OK\n✓ IMU stream OK\n";
  EXPECT_THAT(output, StartsWith(before));
  EXPECT_TRUE(output.ends_with(after)) << output;
  if (testing::Test::HasFailure()) return 0;
  return std::stoull(output.substr(before.size()));
}

TEST_P(LineFaultsUnderDoctor, fifty_frames_are_read) {
  if (is(FaultKind::hang)) {
    prepare_to_hang(500, 40, 46);
  } else {
    prepare(500, 2000, 14);
  }
  // Of a glove that pauses, some frames are stale on any machine; of others, none is on one that has time.
  const bool some_stale = pauses();
  std::uint64_t stale = 0;
  for (int chance = 0; chance < kChances; ++chance) {
    GloveProgram glove(glove_arguments(config_));
    const Finished doctor = run_tool({"doctor", "--port", glove.port()}, 2 * kPatience);
    ASSERT_EQ(doctor.status, kSuccess);
    ASSERT_EQ(doctor.error, "");
    stale = stale_frames_in(doctor.output);
    const std::string account = glove.account();
    expect_no_reconnection(account);
    EXPECT_LE(50 - stale, account_value(account, "packets"));
    if (HasFailure() || (stale > 0) == some_stale) return;
  }
  EXPECT_EQ(stale > 0, some_stale) << stale;
}

}  // namespace
}  // namespace tarsil::test
