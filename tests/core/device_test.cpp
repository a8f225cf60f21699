// The handle: who keeps a source alive, and when its identity is asked for.
#include "tarsil/core/device.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace tarsil {
namespace {

/// A source that notes what becomes of it.
class FakeSource : public IDataSource {
 public:
  explicit FakeSource(bool* destroyed = nullptr) : destroyed_(destroyed) {}
  ~FakeSource() override {
    if (destroyed_ != nullptr) *destroyed_ = true;
  }
  Frame read_frame() override { return {}; }
  [[nodiscard]] DeviceInfo device_info() const override {
    ++times_asked;
    return info;
  }
  [[nodiscard]] bool is_open() const override { return open; }
  void close() override { open = false; }

  DeviceInfo info{"TSL-42", 0, "1.0", 20, 30, 5};
  bool open = true;
  mutable int times_asked = 0;

 private:
  bool* destroyed_;
};

TEST(Device, holds_the_source_that_it_was_given) {
  const auto source = std::make_shared<FakeSource>();
  const Device device(source);
  EXPECT_EQ(device.source(), source);
  EXPECT_EQ(source.use_count(), 2);
}

TEST(Device, copies_the_identity_when_it_is_made) {
  const auto source = std::make_shared<FakeSource>();
  const Device device(source);
  source->info = {"TSL-43", 1, "2.0", 1, 2, 3};
  EXPECT_EQ(device.info().serial, "TSL-42");
  EXPECT_EQ(device.info().side, 0);
  EXPECT_EQ(device.info().firmware, "1.0");
  EXPECT_EQ(device.info().n_dofs, 20);
  EXPECT_EQ(device.info().n_pads, 30);
  EXPECT_EQ(device.info().n_imu, 5);
  EXPECT_EQ(source->times_asked, 1);
}

TEST(Device, shares_its_source_with_its_copies) {
  const Device device(std::make_shared<FakeSource>());
  const Device copy = device;
  EXPECT_EQ(copy.source(), device.source());
  EXPECT_EQ(copy.info().serial, "TSL-42");
  copy.source()->close();
  EXPECT_FALSE(device.source()->is_open());
}

TEST(Device, keeps_the_source_alive_until_the_last_holder_goes) {
  bool destroyed = false;
  auto first = std::make_unique<Device>(std::make_shared<FakeSource>(&destroyed));
  auto second = std::make_unique<Device>(*first);
  first.reset();
  EXPECT_FALSE(destroyed);
  second.reset();
  EXPECT_TRUE(destroyed);
}

TEST(Device, leaves_the_source_open_when_it_goes) {
  const auto source = std::make_shared<FakeSource>();
  { const Device device(source); }
  EXPECT_TRUE(source->is_open());
}

TEST(Device, refuses_to_be_made_without_a_source) {
  EXPECT_THROW(Device{nullptr}, std::invalid_argument);
}

TEST(DataSource, is_neither_copied_nor_moved) {
  EXPECT_FALSE(std::is_copy_constructible_v<FakeSource>);
  EXPECT_FALSE(std::is_copy_assignable_v<FakeSource>);
  EXPECT_FALSE(std::is_move_constructible_v<FakeSource>);
  EXPECT_FALSE(std::is_move_assignable_v<FakeSource>);
}

TEST(DataSource, is_destroyed_through_the_interface) {
  bool destroyed = false;
  std::unique_ptr<IDataSource> source = std::make_unique<FakeSource>(&destroyed);
  source.reset();
  EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace tarsil
