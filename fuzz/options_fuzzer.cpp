// Arbitrary command lines through the option parsers of the tool and of the virtual glove.
// Input: the arguments, each ended by a zero byte.
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "tarsil/cli/options.h"
#include "tools/virtual_glove/config.h"
#include "tools/virtual_glove/options.h"

namespace tarsil::fuzz {

namespace {

std::vector<std::string> split(Bytes bytes) {
  std::vector<std::string> arguments;
  while (!bytes.empty()) {
    const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
    arguments.emplace_back(bytes.begin(), end);
    bytes = bytes.subspan(std::min(arguments.back().size() + 1, bytes.size()));
  }
  return arguments;
}

/// The parser once more, argument by argument with an index.
std::map<std::string, std::string> plain_options(const std::vector<std::string>& arguments) {
  std::map<std::string, std::string> options;
  std::size_t i = 0;
  while (i < arguments.size()) {
    const std::string& argument = arguments[i];
    ++i;
    if (argument.size() >= 3 && argument[0] == '-' && argument[1] == '-') {
      std::string value = "1";
      if (i < arguments.size() && (arguments[i].empty() || arguments[i][0] != '-')) value = arguments[i++];
      options[argument.substr(2)] = value;
    } else if (argument.empty() || argument[0] != '-') {
      const std::string key = std::to_string(options.size());
      options[key] = argument;
    }
  }
  return options;
}

void check_tool(const std::vector<std::string>& arguments) {
  std::vector<const char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(argument.c_str());
  const cli::Options options = cli::parse_options(static_cast<int>(pointers.size()), pointers.data());
  require(options == plain_options(arguments), "the tool's options are those of the plain parser");
  require(options.size() <= arguments.size(), "there are no more options than arguments");
  for (const auto& [name, value] : options) {
    require(!value.starts_with('-'), "no value begins with a dash");
    require(cli::option_or(options, name, "-") == value, "an option is found under its name");
  }
}

/// What the virtual glove's parser takes has to be what the glove takes.
void check_virtual_glove(const std::vector<std::string>& arguments) {
  const std::vector<std::string_view> words(arguments.begin(), arguments.end());
  try {
    const virtual_glove::Options options = virtual_glove::parse_options(words);
    virtual_glove::validate(options.config);
    require(options.config.faults.size() + options.config.defects.size() <= words.size() / 2,
            "every fault and defect was asked for");
  } catch (const virtual_glove::OptionError& error) {
    require(!std::string_view(error.what()).empty(), "a refusal has a reason");
  }
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> arguments = tarsil::fuzz::split({data, size});
  tarsil::fuzz::check_tool(arguments);
  tarsil::fuzz::check_virtual_glove(arguments);
  return 0;
}
