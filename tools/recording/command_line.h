// The arguments of a command, taken strictly: what is not understood is refused, not skipped.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarsil::recording_tool {

/// The command line asks for something that there is not; the message says what.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One option that a command has.
struct Option {
  /// With its dashes, "--output".
  std::string_view name;
  /// "-o", or empty.
  std::string_view short_name = {};
  bool takes_value = false;
};

/// What was given.
class CommandLine {
 public:
  /// Sorts `words` by what the command knows: its options, in any place, and exactly `file_count` files.
  /// Words behind "--" are files. Throws UsageError.
  CommandLine(std::span<const std::string_view> words, std::span<const Option> options,
              std::size_t file_count);

  [[nodiscard]] const std::string& file(std::size_t index) const { return files_[index]; }
  /// Whether the option stands there.
  [[nodiscard]] bool has(std::string_view name) const { return values_.contains(name); }
  /// The value of an option; nothing if it was not given.
  [[nodiscard]] std::optional<std::string> value(std::string_view name) const;

 private:
  std::map<std::string_view, std::string> values_;
  std::vector<std::string> files_;
};

/// A whole number from `low` to `high`. Throws UsageError that names the option.
[[nodiscard]] unsigned whole_number(std::string_view option, const std::string& text, unsigned low,
                                    unsigned high);

}  // namespace tarsil::recording_tool
