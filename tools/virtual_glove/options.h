// The command line of the virtual glove, as a pure function from words to settings.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/virtual_glove/config.h"

namespace tarsil::virtual_glove {

struct Options {
  GloveConfig config;
  bool help = false;
};

/// A command line that cannot be understood; the message names the option and the value.
class OptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The text of --help.
extern const std::string_view kHelp;

/// Reads the words after the program's name. An option that is given twice takes its last value; --fault and
/// --defect add up. Throws OptionError.
Options parse_options(std::span<const std::string_view> words);

}  // namespace tarsil::virtual_glove
