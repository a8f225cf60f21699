// Files as lines, around the edges of the buffer.
#include "tarsil/recording/line_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The reader's buffer before it grows.
constexpr std::size_t kBuffer = 256 * 1024;

class LineReaderTest : public testing::Test {
 protected:
  /// The lines of a file with these bytes. Every one has to be followed by a zero byte.
  std::vector<std::string> lines(const std::string& bytes) {
    test::write_file(directory_.file("lines"), bytes);
    LineReader reader(directory_.file("lines"));
    EXPECT_TRUE(reader.is_open());
    std::vector<std::string> result;
    while (const auto line = reader.next()) {
      EXPECT_EQ(line->data()[line->size()], '\0');
      result.emplace_back(*line);
    }
    EXPECT_FALSE(reader.next().has_value());
    return result;
  }

  test::TempDirectory directory_;
};

TEST_F(LineReaderTest, splits_at_line_feeds) {
  EXPECT_THAT(lines("one\ntwo\nthree\n"), ElementsAre("one", "two", "three"));
}

TEST_F(LineReaderTest, needs_no_line_feed_at_the_end) {
  EXPECT_THAT(lines("one\ntwo"), ElementsAre("one", "two"));
  EXPECT_THAT(lines("x"), ElementsAre("x"));
}

TEST_F(LineReaderTest, gives_empty_lines) {
  EXPECT_THAT(lines("\n\na\n\n"), ElementsAre("", "", "a", ""));
}

TEST_F(LineReaderTest, gives_nothing_of_an_empty_file) {
  EXPECT_THAT(lines(""), IsEmpty());
}

TEST_F(LineReaderTest, keeps_carriage_returns_and_zero_bytes) {
  EXPECT_THAT(lines(std::string("a\r\nb\0c\n", 7)), ElementsAre("a\r", std::string("b\0c", 3)));
}

TEST_F(LineReaderTest, reads_lines_that_end_around_the_end_of_the_buffer) {
  for (std::size_t length = kBuffer - 4; length <= kBuffer + 4; ++length) {
    const std::string long_line(length, 'x');
    EXPECT_THAT(lines(long_line), ElementsAre(long_line)) << length;
    EXPECT_THAT(lines(long_line + "\n"), ElementsAre(long_line)) << length;
    EXPECT_THAT(lines(long_line + "\nnext\n"), ElementsAre(long_line, "next")) << length;
    EXPECT_THAT(lines("first\n" + long_line + "\nnext"), ElementsAre("first", long_line, "next")) << length;
  }
}

TEST_F(LineReaderTest, reads_lines_longer_than_its_buffer) {
  const std::string longer(3 * kBuffer + 17, 'a');
  const std::string longest(9 * kBuffer + 1, 'b');
  EXPECT_THAT(lines("short\n" + longer + "\nshort\n" + longest + "\nend"),
              ElementsAre("short", longer, "short", longest, "end"));
}

TEST_F(LineReaderTest, reads_what_was_written_whatever_the_lengths) {
  std::mt19937 random(1);
  std::vector<std::string> expected;
  std::string bytes;
  for (int i = 0; i < 3000; ++i) {
    expected.emplace_back(random() % (random() % 50 == 0 ? 100'000 : 900), static_cast<char>('a' + i % 26));
    bytes += expected.back() + "\n";
  }
  EXPECT_EQ(lines(bytes), expected);
}

TEST_F(LineReaderTest, is_not_open_without_a_file) {
  const LineReader reader(directory_.file("missing"));
  EXPECT_FALSE(reader.is_open());
}

TEST_F(LineReaderTest, gives_nothing_of_a_directory) {
  LineReader reader(directory_.path());
  EXPECT_TRUE(!reader.is_open() || !reader.next().has_value());
}

TEST_F(LineReaderTest, closes_its_file) {
  const std::size_t before = test::open_descriptors();
  EXPECT_THAT(lines("one\n"), ElementsAre("one"));
  EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
}  // namespace tarsil::detail
