// Layouts are compared with literal text; a part that has not arrived completely is left out.
#include "tests/end_to_end/screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>

namespace tarsil::test {

namespace {

constexpr std::string_view kRowHeading =
    "             t      q[0]      q[1]  touch[0]\n"
    "--------------------------------------------\n";
constexpr std::size_t kRowValues = 30;
constexpr std::size_t kTimeDecimals = 4;

constexpr std::string_view kFirstTable = "\x1b[1A\x1b[2K";
constexpr std::string_view kNextTable = "\x1b[8A\x1b[J";
constexpr std::string_view kColumns =
    "  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4 pad5\n"
    "  ---------------------------------------------------------------------------------\n";
constexpr int kTableLines = 8;

/// What stands before the next line feed, which is taken as well; nothing if there is none.
std::optional<std::string_view> take_line(std::string_view& text) {
  const std::size_t feed = text.find('\n');
  if (feed == std::string_view::npos) return std::nullopt;
  const std::string_view line = text.substr(0, feed);
  text.remove_prefix(feed + 1);
  return line;
}

/// Moves behind `expected`, which has to stand here, as far as there is text.
void expect_next(std::string_view& text, std::string_view expected) {
  EXPECT_EQ(text.substr(0, expected.size()), expected.substr(0, text.size()));
  text.remove_prefix(std::min(text.size(), expected.size()));
}

bool holds_a_table(std::string_view text) {
  int lines = 0;
  for (const char c : text) lines += c == '\n' ? 1 : 0;
  return lines >= kTableLines;
}

void read_heading(std::string_view& text, Table& table) {
  const std::string line(take_line(text).value_or(""));
  EXPECT_THAT(line, testing::MatchesRegex("── frame [0-9]+  t=[0-9]+\\.[0-9][0-9][0-9]  stale=(no |yes)"));
  const std::size_t frame = line.find("frame ");
  const std::size_t t = line.find("t=");
  if (frame == std::string::npos || t == std::string::npos) return;
  table.frame = std::stoll(line.substr(frame + 6));
  table.t = std::stod(line.substr(t + 2));
  table.stale = line.ends_with("yes");
}

}  // namespace

std::vector<Row> rows_in(const std::string& output) {
  std::string_view text = output;
  expect_next(text, kRowHeading);
  std::vector<Row> rows;
  while (const auto line = take_line(text)) {
    EXPECT_GT(line->size(), kRowValues);
    if (line->size() <= kRowValues) continue;
    const std::string t(line->substr(0, line->size() - kRowValues));
    EXPECT_EQ(t.find('.') + kTimeDecimals + 1, t.size()) << t;
    rows.push_back({std::stod(t), std::string(line->substr(line->size() - kRowValues))});
  }
  return rows;
}

std::vector<Table> tables_in(const std::string& output, const std::string& connect_line) {
  std::string_view text = output;
  expect_next(text, connect_line);
  std::vector<Table> tables;
  while (holds_a_table(text)) {
    expect_next(text, tables.empty() ? kFirstTable : kNextTable);
    Table& table = tables.emplace_back();
    read_heading(text, table);
    expect_next(text, kColumns);
    for (int finger = 0; finger < 5; ++finger) {
      table.fingers += take_line(text).value_or("");
      table.fingers += '\n';
    }
  }
  return tables;
}

}  // namespace tarsil::test
