// The tool's way to its standard input.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarsil::cli {

/// Prints `question` on standard output, waits for a line on standard input and returns it without its line
/// feed; what stands before the end of input counts as a line. Nothing if SIGINT or SIGTERM comes once the
/// question is being asked; one that came before does not count. Throws like write_output().
[[nodiscard]] std::optional<std::string> ask(std::string_view question);

}  // namespace tarsil::cli
