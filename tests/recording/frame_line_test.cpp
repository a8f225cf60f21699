// The one-pass reader of frame lines against the rules it has to keep.
#include "tarsil/recording/frame_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tarsil/recording/format.h"
#include "tarsil/recording/line_rules.h"
#include "tests/recording/samples.h"

namespace tarsil::detail {
namespace {

constexpr int kMutatedLines = 300'000;

/// A frame line without its line feed.
std::string line_of(const Frame& frame) {
  std::string line;
  append_tsl_frame(line, frame);
  line.pop_back();
  return line;
}

/// Where the scanner reads a line, the result has to be what the rules give, and the rules have to take the
/// line for a frame.
testing::AssertionResult keeps_the_rules(FrameLineScanner& scanner, const std::string& line, int& taken) {
  Frame scanned;
  if (!scanner.scan(line, scanned)) return testing::AssertionSuccess();
  ++taken;
  if (string_field(line, "type") != "frame") return testing::AssertionFailure() << "no frame: " << line;
  const Frame expected = frame_by_rules(line);
  if (test::same_bits(scanned, expected)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << line << "\n"
                                     << test::exact_text(scanned) << "\nshould be\n"
                                     << test::exact_text(expected);
}

/// Numbers in other words than the recorder's, and what is none.
const std::vector<std::string>& odd_values() {
  static const std::vector<std::string> values{"nan",
                                               "-nan",
                                               "inf",
                                               "-inf",
                                               "1e5",
                                               "-1E-5",
                                               "0x1p3",
                                               "-0x10",
                                               "0x",
                                               "1.",
                                               ".5",
                                               "-.5",
                                               "+1",
                                               " 1",
                                               "1 ",
                                               "1\t",
                                               "--1",
                                               "-",
                                               "",
                                               "[",
                                               "]",
                                               "[1]",
                                               "{}",
                                               "null",
                                               "\"1\"",
                                               "1,",
                                               ",1",
                                               "1,,2",
                                               "1e",
                                               "1e999",
                                               "1e-999",
                                               "0.1234567890123",
                                               "99999999999999999999999999",
                                               "16777217",
                                               "9007199254740993",
                                               "-nan(1)",
                                               "-0",
                                               "1\r"};
  return values;
}

/// A line of a random small frame, so that a random mutation meets its skeleton as often as its numbers.
std::string random_line(std::mt19937& random) {
  test::Shape shape{random() % 4, random() % 4, random() % 3};
  Frame frame = test::worn_frame(random, random(), shape);
  return line_of(frame);
}

using Mutation = void (*)(std::string&, std::mt19937&);

void flip_a_bit(std::string& line, std::mt19937& random) {
  char& c = line[random() % line.size()];
  c = static_cast<char>(c ^ (1 << (random() % 8)));
}
void overwrite_a_byte(std::string& line, std::mt19937& random) {
  static const std::string bytes("[]{}\",:. -+0123456789eExnatfqs\0\r\n\t", 35);
  line[random() % line.size()] = bytes[random() % bytes.size()];
}
void delete_a_stretch(std::string& line, std::mt19937& random) {
  line.erase(random() % line.size(), 1 + random() % 8);
}
void repeat_a_stretch(std::string& line, std::mt19937& random) {
  const std::string stretch = line.substr(random() % line.size(), 1 + random() % 24);
  line.insert(random() % (line.size() + 1), stretch);
}
void swap_two_stretches(std::string& line, std::mt19937& random) {
  const std::size_t length = 1 + random() % 12;
  if (line.size() < 2 * length) return;
  const std::size_t first = random() % (line.size() - 2 * length + 1);
  const std::size_t second = first + length + random() % (line.size() - first - 2 * length + 1);
  std::swap_ranges(line.begin() + static_cast<std::ptrdiff_t>(first),
                   line.begin() + static_cast<std::ptrdiff_t>(first + length),
                   line.begin() + static_cast<std::ptrdiff_t>(second));
}
void cut_the_end(std::string& line, std::mt19937& random) {
  line.resize(random() % line.size());
}
void replace_a_number(std::string& line, std::mt19937& random) {
  const std::size_t begin = line.find_first_of("-0123456789", random() % line.size());
  if (begin == std::string::npos) return;
  const std::size_t end = std::min(line.find_first_not_of("-0123456789.", begin), line.size());
  line.replace(begin, end - begin, odd_values()[random() % odd_values().size()]);
}
void insert_a_key(std::string& line, std::mt19937& random) {
  static const std::vector<std::string> keys{"\"seq\":", "\"t\":",    "\"q\":",    "\"touch\":", "\"imu\":",
                                             "\"acc\":", "\"gyro\":", "\"type\":", "\"stale\":"};
  line.insert(random() % (line.size() + 1), keys[random() % keys.size()]);
}

TEST(FrameLineScanner, reads_the_recorders_lines) {
  FrameLineScanner scanner;
  Frame frame;
  ASSERT_TRUE(scanner.scan(line_of(test::small_frame()), frame));
  EXPECT_TRUE(test::same_bits(frame, test::small_frame())) << test::exact_text(frame);
}

TEST(FrameLineScanner, reads_empty_arrays) {
  FrameLineScanner scanner;
  Frame frame;
  ASSERT_TRUE(scanner.scan(line_of(test::bare_frame(7, 2.5)), frame));
  EXPECT_TRUE(test::same_bits(frame, test::bare_frame(7, 2.5))) << test::exact_text(frame);
}

TEST(FrameLineScanner, carries_nothing_over_from_line_to_line) {
  FrameLineScanner scanner;
  Frame frame;
  ASSERT_TRUE(scanner.scan(line_of(test::worn_frames(1, 5).front()), frame));
  ASSERT_TRUE(scanner.scan(line_of(test::small_frame()), frame));
  EXPECT_TRUE(test::same_bits(frame, test::small_frame())) << test::exact_text(frame);
}

TEST(FrameLineScanner, passes_over_stale) {
  Frame stale = test::small_frame();
  stale.stale = true;
  FrameLineScanner scanner;
  Frame frame;
  ASSERT_TRUE(scanner.scan(line_of(stale), frame));
  EXPECT_FALSE(frame.stale);
}

TEST(FrameLineScanner, reads_every_line_of_finite_values_that_the_recorder_writes) {
  std::mt19937 random(6);
  FrameLineScanner scanner;
  int taken = 0;
  for (int i = 0; i < 20'000; ++i) ASSERT_TRUE(keeps_the_rules(scanner, random_line(random), taken));
  EXPECT_EQ(taken, 20'000);
  for (const Frame& frame : test::worn_frames(1000, 7)) {
    ASSERT_TRUE(keeps_the_rules(scanner, line_of(frame), taken));
  }
  EXPECT_EQ(taken, 21'000);
}

TEST(FrameLineScanner, leaves_other_lines_alone) {
  FrameLineScanner scanner;
  Frame frame;
  for (const std::string line :
       {"", "{", "{}", "{\"type\":\"frame\"}", "{\"type\":\"marker\",\"t\":1,\"name\":\"x\",\"data\":{}}",
        "{\"type\":\"header\",\"version\":1}", "seq,t,stale", "{\"type\":\"frames\",\"seq\":1}",
        " {\"type\":\"frame\",\"seq\":1,\"t\":2,\"q\":[],\"touch\":[],\"imu\":[]"}) {
    EXPECT_FALSE(scanner.scan(line, frame)) << line;
  }
}

TEST(FrameLineScanner, keeps_the_rules_with_odd_values_in_every_place) {
  const std::string line = line_of(test::small_frame());
  FrameLineScanner scanner;
  int taken = 0;
  for (std::size_t at = line.find_first_of("-0123456789"); at != std::string::npos;) {
    const std::size_t end = line.find_first_not_of("-0123456789.", at);
    for (const std::string& value : odd_values()) {
      std::string odd = line;
      odd.replace(at, end - at, value);
      EXPECT_TRUE(keeps_the_rules(scanner, odd, taken));
    }
    at = line.find_first_of("-0123456789", end);
  }
  EXPECT_GT(taken, 0);
}

TEST(FrameLineScanner, keeps_the_rules_at_every_cut) {
  const std::string line = line_of(test::small_frame());
  FrameLineScanner scanner;
  int taken = 0;
  for (std::size_t length = 0; length <= line.size(); ++length) {
    EXPECT_TRUE(keeps_the_rules(scanner, line.substr(0, length), taken)) << length;
  }
}

TEST(FrameLineScanner, keeps_the_rules_with_every_byte_in_every_place) {
  const std::string line = line_of(test::small_frame());
  FrameLineScanner scanner;
  int taken = 0;
  for (std::size_t at = 0; at < line.size(); ++at) {
    std::string changed = line;
    for (int byte = 0; byte < 256; ++byte) {
      changed[at] = static_cast<char>(byte);
      ASSERT_TRUE(keeps_the_rules(scanner, changed, taken)) << at << " is " << byte;
    }
  }
  EXPECT_GT(taken, 0);
}

TEST(FrameLineScanner, keeps_the_rules_on_mutated_lines) {
  const std::vector<Mutation> mutations{flip_a_bit,       overwrite_a_byte,   delete_a_stretch,
                                        repeat_a_stretch, swap_two_stretches, cut_the_end,
                                        replace_a_number, insert_a_key};
  std::mt19937 random(8);
  FrameLineScanner scanner;
  int taken = 0;
  for (int i = 0; i < kMutatedLines; ++i) {
    std::string line = random_line(random);
    const std::size_t times = 1 + random() % 3;
    for (std::size_t n = 0; n < times && !line.empty(); ++n)
      mutations[random() % mutations.size()](line, random);
    ASSERT_TRUE(keeps_the_rules(scanner, line, taken));
  }
  // Both ways are walked often.
  EXPECT_GT(taken, kMutatedLines / 20);
  EXPECT_LT(taken, kMutatedLines * 19 / 20);
}

}  // namespace
}  // namespace tarsil::detail
