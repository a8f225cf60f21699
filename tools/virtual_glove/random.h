// The generator behind motion and faults. The standard library's distributions may differ between
// implementations; a virtual glove has to behave the same everywhere for the same seed.
#pragma once

#include <cstdint>

namespace tarsil::virtual_glove {

/// A small seeded generator; equal seeds give equal sequences on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  /// The next 64 random bits.
  std::uint64_t bits();

  /// A value in 0 (included) to 1 (excluded).
  double uniform();

  /// A value in `low` to `high`, both included; `low` must not exceed `high`.
  double uniform(double low, double high);

  /// A whole number in `low` to `high`, both included; `low` must not exceed `high`.
  std::uint64_t between(std::uint64_t low, std::uint64_t high);

  /// A byte in `low` to 255.
  std::uint8_t byte(std::uint8_t low = 0);

 private:
  std::uint64_t state_;
};

/// A seed derived from `seed` and a key, for values that must be computable out of order.
std::uint64_t derived_seed(std::uint64_t seed, std::uint64_t key);

}  // namespace tarsil::virtual_glove
