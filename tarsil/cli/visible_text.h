// Text from outside, made fit for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarsil::cli {

/// Whether `text` may hold something that visible_text() changes. Quick, and true also for some text that is
/// harmless.
[[nodiscard]] bool may_hold_controls(std::string_view text);

/// `text` with every control character that could drive a terminal in a visible form: "\x1b" for escape, and
/// the same for the other bytes below 0x20, for 0x7f, and for the controls 0x80 to 0x9f, whether they stand
/// as single bytes or in UTF-8. Line feeds, also those behind a carriage return, tabs and all else stay as
/// they are.
[[nodiscard]] std::string visible_text(std::string_view text);

/// How many bytes the UTF-8 character at the front of `text` has; 0 if there is none of more than one byte.
[[nodiscard]] std::size_t multibyte_length(std::string_view text);

}  // namespace tarsil::cli
