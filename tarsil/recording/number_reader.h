// Text to numbers, as strtod and strtof do it in the classic locale, whatever the program's locale is.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarsil::detail {

// All of these read from `text`, which a character that belongs to no number has to end (a zero byte does),
// and report where the number ends: at `text` itself if there is none, and the value is 0 then.

[[nodiscard]] double read_double(const char* text, const char*& end);
[[nodiscard]] float read_float(const char* text, const char*& end);

/// What a sequence number in a recording means: the number without its fraction; 0 for what is negative or
/// not a number, the largest for what is beyond 64 bits.
[[nodiscard]] std::uint64_t sequence_number(double value);

}  // namespace tarsil::detail
