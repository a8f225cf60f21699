// Numbers as text, the same in every locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarsil::detail {

/// Appends `value` in fixed notation with `decimals` digits after the point, as printf's "%.*f" gives it in
/// the classic locale, right-aligned in `width` columns. What is wider than that is not cut.
void append_fixed(std::string& out, double value, int decimals, std::size_t width = 0);

/// Appends `value` in plain decimal.
void append_integer(std::string& out, std::int64_t value);
void append_unsigned(std::string& out, std::uint64_t value);

/// Appends `text` right-aligned in `width` bytes.
void append_right_aligned(std::string& out, std::string_view text, std::size_t width);

}  // namespace tarsil::detail
