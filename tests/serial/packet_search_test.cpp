// The search for packets against a byte by byte one.
#include "tarsil/serial/packet_search.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace tarsil::detail {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::size_t plain_search(const Bytes& bytes, std::size_t p) {
  for (; p + 9 <= bytes.size(); ++p) {
    const int length = bytes[p + 7] + 256 * bytes[p + 8];
    if (bytes[p] == 1 && bytes[p + 1] == 2 && length <= 4096) return p;
  }
  return p;
}

void expect_same_from_everywhere(const Bytes& bytes) {
  for (std::size_t start = 0; start <= bytes.size(); ++start) {
    ASSERT_EQ(find_packet(bytes, start), plain_search(bytes, start))
        << "from " << start << " of " << bytes.size();
  }
}

Bytes header(std::size_t length) {
  return {1, 2, 0, 1, 0, 0, 0, static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(length >> 8)};
}

TEST(FindPacket, finds_a_header_at_every_place) {
  for (std::size_t before = 0; before < 40; ++before) {
    for (std::size_t behind = 0; behind < 40; ++behind) {
      Bytes bytes(before, 0x55);
      const Bytes packet = header(3);
      bytes.insert(bytes.end(), packet.begin(), packet.end());
      bytes.insert(bytes.end(), behind, 0x55);
      ASSERT_EQ(find_packet(bytes, 0), before);
    }
  }
}

TEST(FindPacket, stops_where_no_whole_header_is_left) {
  EXPECT_EQ(find_packet(Bytes{}, 0), 0U);
  EXPECT_EQ(find_packet(Bytes(8, 1), 0), 0U);
  EXPECT_EQ(find_packet(Bytes(100, 1), 0), 92U);
  EXPECT_EQ(find_packet(Bytes(100, 1), 95), 95U);
}

TEST(FindPacket, takes_no_length_above_the_limit) {
  EXPECT_EQ(find_packet(header(4096), 0), 0U);
  EXPECT_EQ(find_packet(header(4097), 0), 1U);
  EXPECT_EQ(find_packet(header(65535), 0), 1U);
}

TEST(FindPacket, finds_what_a_plain_search_finds_among_false_starts) {
  std::mt19937 random(1);
  // Bytes that begin, continue and refuse a header, in all mixtures.
  constexpr std::array<std::uint8_t, 6> kBytes{1, 2, 0, 16, 17, 255};
  for (int round = 0; round < 300; ++round) {
    Bytes bytes(random() % 200);
    const auto kinds = static_cast<std::uint32_t>(2 + random() % 5);
    for (std::uint8_t& byte : bytes) byte = kBytes[random() % kinds];
    expect_same_from_everywhere(bytes);
  }
}

}  // namespace
}  // namespace tarsil::detail
