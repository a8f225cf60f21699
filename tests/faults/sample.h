// Which of many calls are made to fail.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tarsil::test {

/// Numbers from 1 to `count`: all of the first 100, then one in ever more, and the last three.
[[nodiscard]] inline std::vector<std::size_t> sample(std::size_t count) {
  constexpr std::size_t kDense = 100;
  constexpr std::size_t kLast = 3;
  std::vector<std::size_t> numbers;
  for (std::size_t number = 1; number <= count;) {
    numbers.push_back(number);
    number += number < kDense ? 1 : number / 8;
  }
  for (std::size_t number = count - std::min(count, kLast) + 1; number <= count; ++number) {
    if (numbers.back() < number) numbers.push_back(number);
  }
  return numbers;
}

}  // namespace tarsil::test
