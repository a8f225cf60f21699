// The generator is the well-known 64-bit mixing function over a counter (splitmix64).
#include "tools/virtual_glove/random.h"

namespace tarsil::virtual_glove {
namespace {

constexpr std::uint64_t kIncrement = 0x9E3779B97F4A7C15U;

std::uint64_t mix(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31);
}

}  // namespace

std::uint64_t Random::bits() {
  state_ += kIncrement;
  return mix(state_);
}

double Random::uniform() {
  return static_cast<double>(bits() >> 11) * 0x1.0p-53;
}

double Random::uniform(double low, double high) {
  return low + (high - low) * uniform();
}

std::uint64_t Random::between(std::uint64_t low, std::uint64_t high) {
  const std::uint64_t count = high - low + 1;
  return count == 0 ? bits() : low + bits() % count;
}

std::uint8_t Random::byte(std::uint8_t low) {
  return static_cast<std::uint8_t>(between(low, 0xFF));
}

std::uint64_t derived_seed(std::uint64_t seed, std::uint64_t key) {
  return mix(mix(seed + kIncrement) ^ (key + kIncrement));
}

}  // namespace tarsil::virtual_glove
