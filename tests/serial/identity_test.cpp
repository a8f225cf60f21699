// The identity frame: found in any stream of bytes, believed only if its check byte is right.
#include "tarsil/serial/identity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/serial/wire_bytes.h"

namespace tarsil::detail {
namespace {

using test::Bytes;
using test::identity_frame;
using test::join;

/// Serial "TSL-7", firmware 1.12, check byte right.
const Bytes kFrame{0xC1, 0x40, 0x52, 0x53,                          // marker
                   0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,  // the device's own
                   0x05, 'T',  'S',  'L',  '-',  '7',               // serial
                   0x01, 0x0C,                                      // firmware
                   0x51};

Bytes part(const Bytes& bytes, std::size_t begin, std::size_t end) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(begin),
          bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

/// `text` as bytes.
Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

std::string text_of(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

void expect_identity(const std::optional<Identity>& identity, const std::string& serial,
                     const std::string& firmware) {
  ASSERT_TRUE(identity.has_value());
  EXPECT_EQ(identity->serial, serial);
  EXPECT_EQ(identity->firmware, firmware);
}

TEST(IdentityExchange, reads_a_whole_frame) {
  IdentityExchange exchange;
  expect_identity(exchange.feed(kFrame), "TSL-7", "1.12");
}

TEST(IdentityExchange, has_nothing_to_say_about_nothing) {
  IdentityExchange exchange;
  EXPECT_FALSE(exchange.feed({}));
  EXPECT_FALSE(exchange.feed(Bytes{0xC1}));
  EXPECT_FALSE(exchange.feed({}));
}

TEST(IdentityExchange, reads_a_frame_split_at_any_place) {
  for (std::size_t split = 0; split <= kFrame.size(); ++split) {
    SCOPED_TRACE(split);
    IdentityExchange exchange;
    auto identity = exchange.feed(part(kFrame, 0, split));
    ASSERT_EQ(identity.has_value(), split == kFrame.size());
    if (!identity) identity = exchange.feed(part(kFrame, split, kFrame.size()));
    expect_identity(identity, "TSL-7", "1.12");
  }
}

TEST(IdentityExchange, reads_a_frame_behind_garbage_split_at_any_place) {
  const Bytes stream = join({bytes_of("boot 3.1\r\n"), {0xC1, 0x40, 0x52}, kFrame});
  for (std::size_t split = 0; split < stream.size(); ++split) {
    SCOPED_TRACE(split);
    IdentityExchange exchange;
    EXPECT_FALSE(exchange.feed(part(stream, 0, split)));
    expect_identity(exchange.feed(part(stream, split, stream.size())), "TSL-7", "1.12");
  }
}

TEST(IdentityExchange, reads_a_frame_byte_by_byte) {
  const Bytes stream = join({Bytes(5000, 0xC1), kFrame});
  IdentityExchange exchange;
  for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
    ASSERT_FALSE(exchange.feed(part(stream, i, i + 1))) << i;
  }
  expect_identity(exchange.feed(Bytes{0x51}), "TSL-7", "1.12");
}

TEST(IdentityExchange, finds_a_marker_that_straddles_two_reads) {
  for (std::size_t split = 1; split < 4; ++split) {
    SCOPED_TRACE(split);
    IdentityExchange exchange;
    EXPECT_FALSE(exchange.feed(join({Bytes(300, 0x40), part(kFrame, 0, split)})));
    expect_identity(exchange.feed(part(kFrame, split, kFrame.size())), "TSL-7", "1.12");
  }
}

TEST(IdentityExchange, skips_false_beginnings_of_a_marker) {
  const std::vector<Bytes> beginnings{{0xC1},
                                      {0xC1, 0x40},
                                      {0xC1, 0x40, 0x52},
                                      {0xC1, 0xC1},
                                      {0xC1, 0x40, 0xC1, 0x40, 0x52},
                                      {0xC1, 0x40, 0x52, 0x52, 0x53},
                                      {0x40, 0x52, 0x53}};
  for (const Bytes& beginning : beginnings) {
    SCOPED_TRACE(::testing::PrintToString(beginning));
    IdentityExchange exchange;
    expect_identity(exchange.feed(join({beginning, kFrame})), "TSL-7", "1.12");
  }
}

TEST(IdentityExchange, finds_a_frame_behind_much_garbage) {
  IdentityExchange exchange;
  for (int i = 0; i < 100; ++i) ASSERT_FALSE(exchange.feed(Bytes(4096, 0x52)));
  expect_identity(exchange.feed(kFrame), "TSL-7", "1.12");
}

TEST(IdentityExchange, takes_the_next_frame_when_a_check_byte_is_wrong) {
  Bytes damaged = kFrame;
  damaged.back() ^= 0x01;
  IdentityExchange exchange;
  EXPECT_FALSE(exchange.feed(damaged));
  expect_identity(exchange.feed(kFrame), "TSL-7", "1.12");
}

TEST(IdentityExchange, notices_a_flipped_bit_at_any_place) {
  for (std::size_t bit = 0; bit < kFrame.size() * 8; ++bit) {
    // A longer serial is waited for, which is right as well.
    if (bit / 8 == 12) continue;
    SCOPED_TRACE(bit);
    Bytes damaged = kFrame;
    damaged[bit / 8] = static_cast<std::uint8_t>(damaged[bit / 8] ^ (1U << (bit % 8)));
    IdentityExchange exchange;
    EXPECT_FALSE(exchange.feed(damaged));
    expect_identity(exchange.feed(kFrame), "TSL-7", "1.12");
  }
}

TEST(IdentityExchange, resumes_the_search_one_byte_behind_a_wrong_frame) {
  // The wrong frame carries a right one as its serial text; dropping the whole of it would lose both.
  const Bytes inner = identity_frame("INNER", 2, 3);
  Bytes outer = identity_frame(text_of(inner));
  outer.back() ^= 0xFF;
  IdentityExchange exchange;
  expect_identity(exchange.feed(outer), "INNER", "2.3");
}

TEST(IdentityExchange, judges_a_frame_only_when_all_of_it_has_come) {
  const Bytes inner = identity_frame("INNER", 2, 3);
  Bytes outer = identity_frame(text_of(inner));
  outer.back() ^= 0xFF;
  IdentityExchange exchange;
  // The inner frame is complete here, but the outer one may still turn out right.
  EXPECT_FALSE(exchange.feed(part(outer, 0, outer.size() - 1)));
  expect_identity(exchange.feed(part(outer, outer.size() - 1, outer.size())), "INNER", "2.3");
}

TEST(IdentityExchange, prefers_the_outer_of_two_right_frames) {
  const std::string serial = text_of(identity_frame("INNER", 2, 3));
  IdentityExchange exchange;
  expect_identity(exchange.feed(identity_frame(serial, 4, 5)), serial, "4.5");
}

TEST(IdentityExchange, is_not_kept_waiting_by_a_false_marker_for_ever) {
  // The false frame claims a serial of 255 bytes: 271 bytes have to come before it turns out wrong.
  const Bytes false_start = join({{0xC1, 0x40, 0x52, 0x53}, Bytes(8, 0x00), {0xFF}});
  const Bytes stream = join({false_start, kFrame});
  IdentityExchange exchange;
  EXPECT_FALSE(exchange.feed(stream));
  EXPECT_FALSE(exchange.feed(Bytes(271 - stream.size() - 1, 0x00)));
  expect_identity(exchange.feed(Bytes{0xAA}), "TSL-7", "1.12");
}

TEST(IdentityExchange, accepts_an_empty_serial) {
  const Bytes frame{0xC1, 0x40, 0x52, 0x53, 0x00, 0x00, 0x00, 0x00,
                    0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x04, 0x85};
  IdentityExchange exchange;
  expect_identity(exchange.feed(frame), "", "1.4");
}

TEST(IdentityExchange, accepts_the_longest_serial) {
  const std::string serial(255, 'x');
  const Bytes frame = identity_frame(serial);
  ASSERT_EQ(frame.size(), 271U);
  IdentityExchange exchange;
  EXPECT_FALSE(exchange.feed(part(frame, 0, 270)));
  expect_identity(exchange.feed(part(frame, 270, 271)), serial, "1.4");
}

TEST(IdentityExchange, takes_the_serial_as_it_stands) {
  const std::string serial("\0no prefix\n\xC1\xFF", 13);
  IdentityExchange exchange;
  expect_identity(exchange.feed(identity_frame(serial)), serial, "1.4");
}

TEST(IdentityExchange, writes_firmware_versions_without_leading_zeros) {
  struct Version {
    std::uint8_t major, minor;
    const char* text;
  };
  for (const auto& [major, minor, text] :
       {Version{1, 12, "1.12"}, Version{0, 0, "0.0"}, Version{255, 255, "255.255"}, Version{10, 2, "10.2"}}) {
    IdentityExchange exchange;
    expect_identity(exchange.feed(identity_frame("S", major, minor)), "S", text);
  }
}

TEST(IdentityExchange, drops_what_follows_the_frame) {
  IdentityExchange exchange;
  expect_identity(exchange.feed(join({kFrame, identity_frame("SECOND")})), "TSL-7", "1.12");
  EXPECT_FALSE(exchange.feed({}));
  // Nor is the beginning of a frame remembered.
  expect_identity(exchange.feed(join({kFrame, part(kFrame, 0, 10)})), "TSL-7", "1.12");
  EXPECT_FALSE(exchange.feed(part(kFrame, 10, kFrame.size())));
}

TEST(IdentityExchange, gives_the_same_answer_however_the_stream_is_cut) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    // Noise out of the marker's own bytes and lengths that keep the search busy.
    const std::array<std::uint8_t, 7> alphabet{0xC1, 0x40, 0x52, 0x53, 0x00, 0x01, 0x05};
    Bytes stream;
    for (std::size_t count = random() % 200; count > 0; --count) stream.push_back(alphabet[random() % 7]);
    stream = join({stream, kFrame, Bytes(600, 0x00), identity_frame("LAST"), Bytes(600, 0x00)});
    IdentityExchange whole;
    const auto expected = whole.feed(stream);
    ASSERT_TRUE(expected.has_value());

    IdentityExchange pieces;
    std::optional<Identity> identity;
    for (std::size_t begin = 0; begin < stream.size() && !identity;) {
      const std::size_t end = std::min(stream.size(), begin + 1 + random() % 40);
      identity = pieces.feed(part(stream, begin, end));
      begin = end;
    }
    expect_identity(identity, expected->serial, expected->firmware);
  }
}

}  // namespace
}  // namespace tarsil::detail
