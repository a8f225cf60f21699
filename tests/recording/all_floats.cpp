// Writes every float there is, and a hundred million random times, and reads every number that is written in
// the usual way; compares each with the plain way. Takes some minutes of computing, so that it is a program
// of its own, to be run when the writing or reading of numbers changes.
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "tarsil/recording/decimal_text.h"
#include "tarsil/recording/usual_numbers.h"

namespace {

using tarsil::detail::append_time;
using tarsil::detail::DecimalBatch;

constexpr std::uint64_t kTimes = 100'000'000;

char* plain(char* out, double value, int decimals) {
  return std::to_chars(out, out + 400, value, std::chars_format::fixed, decimals).ptr;
}

template <int kDecimals>
bool batch_is_plain(const std::array<float, 32>& values) {
  using Batch = DecimalBatch<kDecimals>;
  std::array<char, Batch::kCapacity * Batch::kTextSize> fast;
  std::array<char, Batch::kCapacity * Batch::kTextSize + 400> expected;
  const char* const fast_end = Batch(values).write(fast.data(), 0, values.size());
  char* end = expected.data();
  for (const float value : values) {
    end = plain(end, static_cast<double>(value), kDecimals);
    *end++ = ',';
  }
  return std::string_view(fast.data(), fast_end) == std::string_view(expected.data(), end);
}

/// How many batches of consecutive floats differ.
std::uint64_t check_floats() {
  std::uint64_t wrong = 0;
  std::array<float, 32> values;
  for (std::uint64_t bits = 0; bits <= UINT32_MAX; bits += values.size()) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = std::bit_cast<float>(static_cast<std::uint32_t>(bits + i));
    }
    if (!batch_is_plain<3>(values) || !batch_is_plain<6>(values)) {
      if (++wrong <= 10)
        std::printf("differs: floats from bits %08llx on\n", static_cast<unsigned long long>(bits));
    }
  }
  return wrong;
}

/// Times of every size, most of them where gloves live.
double random_time(std::mt19937_64& random) {
  const std::uint64_t pattern = random();
  switch (pattern % 4) {
    case 0:
      return std::bit_cast<double>(random());
    case 1:
      return std::bit_cast<double>((random() & 0x800F'FFFF'FFFF'FFFF) | (1023 + pattern / 4 % 54) << 52);
    default:
      return 1.6e9 + 2e8 * std::ldexp(static_cast<double>(random() >> 11), -53);
  }
}

std::uint64_t check_times() {
  std::mt19937_64 random(20);
  std::uint64_t wrong = 0;
  std::string fast;
  std::array<char, 400> expected;
  for (std::uint64_t i = 0; i < kTimes; ++i) {
    const double value = random_time(random);
    fast.clear();
    append_time(fast, value);
    if (fast != std::string_view(expected.data(), plain(expected.data(), value, 6))) {
      if (++wrong <= 10) std::printf("differs: time %a\n", value);
    }
  }
  return wrong;
}

/// The four numbers "D.DDDDDD" from `begin` on and their negatives.
bool usual_is_plain(int begin) {
  std::array<char, 128> text;
  std::array<float, 8> expected;
  tarsil::detail::UsualNumbers<6> numbers;
  char* end = text.data();
  for (int i = 0; i < 8; ++i) {
    const int digits = begin + i / 2;
    char* const number = end;
    end += std::snprintf(end, 16, "%s%d.%06d", i % 2 == 0 ? "" : "-", digits / 1'000'000, digits % 1'000'000);
    expected[static_cast<std::size_t>(i)] = std::strtof(number, nullptr);
    *end++ = ',';
  }
  const char* at = text.data();
  for (int i = 0; i < 8; ++i, ++at) {
    if (!numbers.note(at, text.data() + text.size())) return false;
  }
  std::array<float, 8> values;
  return numbers.convert(values.data()) && std::memcmp(values.data(), expected.data(), sizeof values) == 0;
}

std::uint64_t check_usual() {
  std::uint64_t wrong = 0;
  for (int begin = 0; begin < 10'000'000; begin += 4) {
    if (!usual_is_plain(begin) && ++wrong <= 10) std::printf("differs: numbers from %d e-6 on\n", begin);
  }
  return wrong;
}

}  // namespace

int main() {
  const std::uint64_t usual = check_usual();
  std::printf("usual numbers: 20000000, %llu groups differ\n", static_cast<unsigned long long>(usual));
  const std::uint64_t floats = check_floats();
  std::printf("floats: 4294967296 with 3 and with 6 decimals, %llu batches differ\n",
              static_cast<unsigned long long>(floats));
  const std::uint64_t times = check_times();
  std::printf("times: %llu, %llu differ\n", static_cast<unsigned long long>(kTimes),
              static_cast<unsigned long long>(times));
  return usual + floats + times == 0 ? 0 : 1;
}
