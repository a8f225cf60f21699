// The tool's way to its standard input.
#pragma once

#include <optional>
#include <string>

namespace tarsil::cli {

/// Waits for a line on standard input and returns it without its line feed; what stands before the end of
/// input counts as a line. Nothing if SIGINT or SIGTERM comes while it waits; one that came before does not
/// count.
[[nodiscard]] std::optional<std::string> read_line();

}  // namespace tarsil::cli
