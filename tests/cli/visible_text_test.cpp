// Text from outside on its way to a terminal.
#include "tarsil/cli/visible_text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace tarsil::cli {
namespace {

using namespace std::string_view_literals;

TEST(VisibleText, keeps_what_only_prints) {
  for (
      const std::string_view text : {
          ""sv,
          "TSL-000123 \"quoted\" \\x1b 'n' so on~"sv,
          "two\nlines\tand a tab"sv,
          "a server's\r\nline ends"sv,
          "Grüße — naïve °C ✓ ── 手套 🧤"sv,
          "last ones: \xC2\xA0 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"sv,
          "Latin-1: gr\xFC\xDF dich \xA0"sv,
      }) {
    EXPECT_EQ(visible_text(text), text);
  }
}

TEST(VisibleText, shows_every_control_below_the_blank) {
  for (int byte = 0; byte < 0x20; ++byte) {
    if (byte == '\n' || byte == '\t') continue;
    const std::string text = {'a', static_cast<char>(byte), 'b'};
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::string number = {kDigits[static_cast<std::size_t>(byte / 16)],
                                kDigits[static_cast<std::size_t>(byte % 16)]};
    EXPECT_EQ(visible_text(text), "a\\x" + number + "b");
    EXPECT_TRUE(may_hold_controls(text));
  }
  EXPECT_EQ(visible_text("\x7F"), "\\x7f");
  EXPECT_TRUE(may_hold_controls("\x7F"));
}

TEST(VisibleText, shows_sequences_that_drive_a_terminal) {
  EXPECT_EQ(visible_text("\x1b[2J\x1b]0;title\x07"), "\\x1b[2J\\x1b]0;title\\x07");
  EXPECT_EQ(visible_text("over\rwritten"), "over\\x0dwritten");
  EXPECT_EQ(visible_text("over\r"), "over\\x0d");
}

TEST(VisibleText, shows_the_second_set_of_controls_alone_and_in_utf8) {
  EXPECT_EQ(visible_text("\x9B"
                         "2J"),
            "\\x9b2J");
  EXPECT_EQ(visible_text("\x80\x9F\xA0"), "\\x80\\x9f\xA0");
  EXPECT_EQ(visible_text("\xC2\x9B"
                         "2J"),
            "\\xc2\\x9b2J");
  EXPECT_EQ(visible_text("\xC2\x80\xC2\x9F\xC2\xA0"), "\\xc2\\x80\\xc2\\x9f\xC2\xA0");
  EXPECT_TRUE(may_hold_controls("\x9B"));
  EXPECT_TRUE(may_hold_controls("\xC2\x9B"));
}

TEST(VisibleText, does_not_take_broken_letters_for_letters) {
  EXPECT_EQ(visible_text("\xE2\x94"), "\xE2\\x94");                    // cut off
  EXPECT_EQ(visible_text("\xE2\x94!"), "\xE2\\x94!");                  // and followed by something else
  EXPECT_EQ(visible_text("\xC0\x9B"), "\xC0\\x9b");                    // longer than it has to be
  EXPECT_EQ(visible_text("\xE0\x82\x9B"), "\xE0\\x82\\x9b");           // the same
  EXPECT_EQ(visible_text("\xED\xA0\x80"), "\xED\xA0\\x80");            // half of a pair
  EXPECT_EQ(visible_text("\xF4\x90\x80\x80"), "\xF4\\x90\\x80\\x80");  // beyond the last letter
  EXPECT_EQ(visible_text("\xF0\x9F\xA7"), "\xF0\\x9f\xA7");
  EXPECT_EQ(visible_text("\xE2\x94\x1b[2J"), "\xE2\\x94\\x1b[2J");
}

TEST(VisibleText, keeps_a_zero_byte_from_ending_the_text) {
  EXPECT_EQ(visible_text("a\0b"sv), "a\\x00b");
}

}  // namespace
}  // namespace tarsil::cli
