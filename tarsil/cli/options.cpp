// One walk over the arguments, first to last.
#include "tarsil/cli/options.h"

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include "tarsil/recording/number_reader.h"

namespace tarsil::cli {

namespace {

constexpr std::string_view kPrefix = "--";

}  // namespace

Options parse_options(int count, const char* const* arguments) {
  Options options;
  for (int i = 0; i < count; ++i) {
    const std::string_view argument = arguments[i];
    if (argument.size() > kPrefix.size() && argument.starts_with(kPrefix)) {
      const bool has_value = i + 1 < count && arguments[i + 1][0] != '-';
      options[std::string(argument.substr(kPrefix.size()))] = has_value ? arguments[i + 1] : "1";
      if (has_value) ++i;
    } else if (!argument.starts_with('-')) {
      options[std::to_string(options.size())] = argument;
    }
  }
  return options;
}

std::string option_or(const Options& options, const std::string& name, const std::string& fallback) {
  const auto found = options.find(name);
  return found == options.end() ? fallback : found->second;
}

float real_number(const std::string& value) {
  const char* end = nullptr;
  errno = 0;
  const float number = detail::read_float(value.c_str(), end);
  if (end == value.c_str()) throw std::invalid_argument("stof");
  if (errno == ERANGE) throw std::out_of_range("stof");
  return number;
}

}  // namespace tarsil::cli
