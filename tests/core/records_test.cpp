// The records' defaults: every producer starts from them and fills in what it has.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tarsil/core/device_info.h"
#include "tarsil/core/frame.h"
#include "tarsil/core/marker.h"
#include "tarsil/core/version.h"

namespace tarsil {
namespace {

TEST(Frame, starts_empty_fresh_and_with_default_status_bytes) {
  const Frame frame;
  EXPECT_EQ(frame.t, 0.0);
  EXPECT_TRUE(frame.q.empty());
  EXPECT_TRUE(frame.touch.empty());
  EXPECT_TRUE(frame.imu.empty());
  EXPECT_FALSE(frame.stale);
  EXPECT_EQ(frame.seq, 0U);
  EXPECT_EQ(frame.status_lo, (std::array<std::uint8_t, 5>{0x0F, 0x0F, 0x0F, 0x0F, 0x0F}));
  EXPECT_EQ(frame.status_hi, (std::array<std::uint8_t, 5>{0, 0, 0, 0, 0}));
}

TEST(Frame, has_its_fields_in_order_and_in_their_widths) {
  const Frame frame{1.5, {0.25F}, {0.5F}, {ImuSample{}}, true, UINT64_MAX, {1, 2, 3, 4, 5}, {6, 7, 8, 9, 10}};
  EXPECT_EQ(frame.t, 1.5);
  EXPECT_EQ(frame.q, std::vector<float>{0.25F});
  EXPECT_EQ(frame.touch, std::vector<float>{0.5F});
  EXPECT_EQ(frame.imu.size(), 1U);
  EXPECT_TRUE(frame.stale);
  EXPECT_EQ(frame.seq, 18446744073709551615U);
  EXPECT_EQ(frame.status_lo[4], 5);
  EXPECT_EQ(frame.status_hi[0], 6);
  static_assert(std::is_same_v<decltype(Frame::seq), std::uint64_t>);
}

TEST(Frame, is_a_value) {
  Frame frame;
  frame.q = {1.0F, 2.0F};
  frame.seq = 7;
  Frame copy = frame;
  copy.q[0] = 3.0F;
  EXPECT_EQ(frame.q, (std::vector<float>{1.0F, 2.0F}));
  EXPECT_EQ(copy.seq, 7U);
  static_assert(std::is_nothrow_move_constructible_v<Frame>);
  static_assert(std::is_nothrow_move_assignable_v<Frame>);
}

TEST(ImuSample, starts_at_rest) {
  const ImuSample sample;
  EXPECT_EQ(sample.acc, (std::array<float, 3>{0.0F, 0.0F, 0.0F}));
  EXPECT_EQ(sample.gyro, (std::array<float, 3>{0.0F, 0.0F, 0.0F}));
}

TEST(ImuSample, has_acceleration_before_rotation) {
  const ImuSample sample{{1.0F, 2.0F, 3.0F}, {4.0F, 5.0F, 6.0F}};
  EXPECT_EQ(sample.acc[2], 3.0F);
  EXPECT_EQ(sample.gyro[0], 4.0F);
}

TEST(DeviceInfo, starts_as_a_right_hand_without_a_name_and_without_sensors) {
  const DeviceInfo info;
  EXPECT_EQ(info.serial, "");
  EXPECT_EQ(info.side, 1);
  EXPECT_EQ(info.firmware, "");
  EXPECT_EQ(info.n_dofs, 0);
  EXPECT_EQ(info.n_pads, 0);
  EXPECT_EQ(info.n_imu, 0);
}

TEST(DeviceInfo, has_its_fields_in_order) {
  const DeviceInfo info{"TSL-1", 0, "1.2", 20, 30, 5};
  EXPECT_EQ(info.serial, "TSL-1");
  EXPECT_EQ(info.side, 0);
  EXPECT_EQ(info.firmware, "1.2");
  EXPECT_EQ(info.n_dofs, 20);
  EXPECT_EQ(info.n_pads, 30);
  EXPECT_EQ(info.n_imu, 5);
}

TEST(Marker, starts_empty_at_time_zero) {
  const Marker marker;
  EXPECT_EQ(marker.t, 0.0);
  EXPECT_EQ(marker.name, "");
  EXPECT_TRUE(marker.data.empty());
}

TEST(Marker, keeps_its_keys_in_byte_order) {
  const Marker marker{2.5, "grasp", {{"b", "1"}, {"\xC3\xA9", "2"}, {"B", "3"}, {"a", "4"}}};
  std::vector<std::string> keys;
  for (const auto& [key, value] : marker.data) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"B", "a", "b", "\xC3\xA9"}));
}

TEST(Version, is_three_numbers) {
  const std::string_view version = kVersion;
  EXPECT_EQ(version.find_first_not_of("0123456789."), std::string_view::npos);
  EXPECT_NE(version.find('.'), version.rfind('.'));
  EXPECT_NE(version.front(), '.');
  EXPECT_NE(version.back(), '.');
}

}  // namespace
}  // namespace tarsil
