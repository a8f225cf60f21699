// The synthetic source when memory runs out. The allocator is replaced so that nothing large is ever asked of
// the system, which might even grant it.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "tarsil/core/mock_source.h"

namespace {

enum class Refusal { bad_alloc, bad_array_length };

/// What is larger is refused; no test needs as much.
constexpr std::size_t kLargest = std::size_t{1} << 30;
Refusal refusal = Refusal::bad_alloc;

void* allocate(std::size_t size) {
  if (size > kLargest && refusal == Refusal::bad_array_length) throw std::bad_array_new_length();
  void* memory = size > kLargest ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tarsil {
namespace {

constexpr std::int32_t kTooMany = std::numeric_limits<std::int32_t>::max();

MockConfig small() {
  MockConfig config;
  config.realtime = false;
  return config;
}

/// The message of the length error that reading raises; anything else leaves.
std::string length_error_of(const MockConfig& config) {
  MockSource source(config);
  try {
    source.read_frame();
  } catch (const std::length_error& error) {
    return error.what();
  }
  return "none";
}

class MockSourceMemory : public testing::TestWithParam<Refusal> {
 protected:
  void SetUp() override { refusal = GetParam(); }
};

TEST_P(MockSourceMemory, reports_too_many_joints_as_a_length_error) {
  MockConfig config = small();
  config.n_dofs = kTooMany;
  EXPECT_EQ(length_error_of(config), "cannot create std::vector larger than max_size()");
}

TEST_P(MockSourceMemory, reports_too_many_pads_as_a_length_error) {
  MockConfig config = small();
  config.n_pads = kTooMany;
  EXPECT_EQ(length_error_of(config), "cannot create std::vector larger than max_size()");
}

TEST_P(MockSourceMemory, reports_too_many_inertial_units_as_a_length_error) {
  MockConfig config = small();
  config.n_imu = kTooMany;
  EXPECT_EQ(length_error_of(config), "cannot create std::vector larger than max_size()");
}

TEST_P(MockSourceMemory, tells_its_identity_whatever_the_counts) {
  MockConfig config = small();
  config.n_dofs = kTooMany;
  const MockSource source(config);
  EXPECT_EQ(source.device_info().n_dofs, 2147483647);
}

std::string refusal_name(const testing::TestParamInfo<Refusal>& parameter) {
  return parameter.param == Refusal::bad_alloc ? "bad_alloc" : "bad_array_new_length";
}

INSTANTIATE_TEST_SUITE_P(allocator_throws, MockSourceMemory,
                         testing::Values(Refusal::bad_alloc, Refusal::bad_array_length), refusal_name);

}  // namespace
}  // namespace tarsil
