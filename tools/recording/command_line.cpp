// One walk over the words, first to last.
#include "tools/recording/command_line.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace tarsil::recording_tool {

namespace {

std::string quoted(std::string_view word) {
  return "'" + std::string(word) + "'";
}

}  // namespace

CommandLine::CommandLine(std::span<const std::string_view> words, std::span<const Option> options,
                         std::size_t file_count) {
  bool only_files = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (only_files || word.size() < 2 || word.front() != '-') {
      files_.emplace_back(word);
      continue;
    }
    if (word == "--") {
      only_files = true;
      continue;
    }
    // "--name=value" is "--name value".
    const std::size_t equals = word.starts_with("--") ? word.find('=') : std::string_view::npos;
    const std::string_view name = word.substr(0, equals);
    const auto option = std::ranges::find_if(
        options, [name](const Option& known) { return name == known.name || name == known.short_name; });
    if (option == options.end()) throw UsageError("unknown option " + quoted(word));
    std::string& value = values_[option->name];
    if (!option->takes_value) {
      if (equals != std::string_view::npos) throw UsageError(std::string(name) + " takes no value");
    } else if (equals != std::string_view::npos) {
      value = word.substr(equals + 1);
    } else if (++i < words.size()) {
      value = words[i];
    } else {
      throw UsageError(std::string(name) + " needs a value");
    }
  }
  if (files_.size() < file_count) throw UsageError("a file is missing");
  if (files_.size() > file_count) throw UsageError("one file too many: " + quoted(files_[file_count]));
}

std::optional<std::string> CommandLine::value(std::string_view name) const {
  const auto found = values_.find(name);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

unsigned whole_number(std::string_view option, const std::string& text, unsigned low, unsigned high) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < low || number > high) {
    throw UsageError(std::string(option) + ": " + quoted(text) + " is not a whole number from " +
                     std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

}  // namespace tarsil::recording_tool
