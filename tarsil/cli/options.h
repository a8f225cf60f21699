// The arguments of a command, sorted out.
#pragma once

#include <map>
#include <string>

namespace tarsil::cli {

/// Option names without their dashes, and positional arguments under decimal numbers; keys in byte order.
using Options = std::map<std::string, std::string>;

/// Parses the `count` arguments that follow the command name. The rules, all deliberate:
/// - "--name value" stores the value, unless that begins with "-": a value never does. "--name" alone stores
/// "1".
/// - Any other argument that begins with "-" is skipped, so a negative number is no value.
/// - Anything else is positional; its key is the number of entries that the map holds by then. Commands that
/// take a
///   file look under "0", so the file has to come first.
/// - What is stored again replaces what was stored before.
[[nodiscard]] Options parse_options(int count, const char* const* arguments);

/// The value stored under `name`, or `fallback`.
[[nodiscard]] std::string option_or(const Options& options, const std::string& name,
                                    const std::string& fallback);

/// The number at the front of a value, as std::stof reads it and with its complaints (std::invalid_argument,
/// std::out_of_range), but in every locale with a decimal point.
[[nodiscard]] float real_number(const std::string& value);

}  // namespace tarsil::cli
