// The buffer between port and parser: order, front, back, and the cut that bounds it.
#include "tarsil/serial/receive_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/serial/wire_bytes.h"

namespace tarsil::detail {
namespace {

using test::Bytes;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

/// `count` bytes of which no two neighbours within 251 are alike.
Bytes numbered(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(i % 251);
  return bytes;
}

TEST(ReceiveBuffer, is_empty_at_first) {
  const ReceiveBuffer buffer;
  EXPECT_EQ(buffer.size(), 0U);
  EXPECT_TRUE(buffer.bytes().empty());
}

TEST(ReceiveBuffer, grows_at_the_back_and_shrinks_at_the_front) {
  ReceiveBuffer buffer;
  buffer.append(Bytes{1, 2, 3});
  buffer.append(Bytes{});
  buffer.append(Bytes{4, 5});
  EXPECT_THAT(buffer.bytes(), ElementsAre(1, 2, 3, 4, 5));
  buffer.consume(0);
  EXPECT_EQ(buffer.size(), 5U);
  buffer.consume(2);
  EXPECT_THAT(buffer.bytes(), ElementsAre(3, 4, 5));
  buffer.append(Bytes{6});
  EXPECT_THAT(buffer.bytes(), ElementsAre(3, 4, 5, 6));
  buffer.consume(4);
  EXPECT_EQ(buffer.size(), 0U);
}

TEST(ReceiveBuffer, keeps_the_last_bytes_asked_for) {
  ReceiveBuffer buffer;
  buffer.append(Bytes{1, 2, 3, 4});
  buffer.keep_last(5);
  EXPECT_THAT(buffer.bytes(), ElementsAre(1, 2, 3, 4));
  buffer.keep_last(4);
  EXPECT_THAT(buffer.bytes(), ElementsAre(1, 2, 3, 4));
  buffer.keep_last(3);
  EXPECT_THAT(buffer.bytes(), ElementsAre(2, 3, 4));
  buffer.keep_last(0);
  EXPECT_EQ(buffer.size(), 0U);
}

TEST(ReceiveBuffer, forgets_everything_when_cleared) {
  ReceiveBuffer buffer;
  buffer.append(Bytes{1, 2, 3});
  buffer.clear();
  EXPECT_EQ(buffer.size(), 0U);
  buffer.append(Bytes{4});
  EXPECT_THAT(buffer.bytes(), ElementsAre(4));
}

TEST(ReceiveBuffer, is_not_cut_at_16384_bytes) {
  ReceiveBuffer buffer;
  const Bytes bytes = numbered(16384);
  buffer.append(bytes);
  buffer.cut();
  EXPECT_THAT(buffer.bytes(), ElementsAreArray(bytes));
}

TEST(ReceiveBuffer, is_cut_to_its_last_8192_bytes_at_16385) {
  ReceiveBuffer buffer;
  const Bytes bytes = numbered(16385);
  buffer.append(bytes);
  buffer.cut();
  EXPECT_THAT(buffer.bytes(), ElementsAreArray(Bytes(bytes.end() - 8192, bytes.end())));
}

TEST(ReceiveBuffer, stays_within_the_limit_however_much_comes) {
  ReceiveBuffer buffer;
  const Bytes read = numbered(4096);
  std::vector<std::size_t> sizes;
  for (int i = 0; i < 8; ++i) {
    buffer.append(read);
    buffer.cut();
    sizes.push_back(buffer.size());
  }
  EXPECT_THAT(sizes, ElementsAre(4096, 8192, 12288, 16384, 8192, 12288, 16384, 8192));
}

TEST(ReceiveBuffer, has_room_for_16384_bytes_from_the_start) {
  ReceiveBuffer buffer;
  buffer.append(Bytes{0});
  const std::uint8_t* const begin = buffer.bytes().data();
  buffer.append(numbered(16383));
  EXPECT_EQ(buffer.bytes().data(), begin);
}

}  // namespace
}  // namespace tarsil::detail
