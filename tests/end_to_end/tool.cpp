// Where the programs are is known to the build only.
#include "tests/end_to_end/tool.h"

#include <csignal>
#include <stdexcept>

namespace tarsil::test {

namespace {

constexpr std::string_view kPortLine = "port ";

ProcessOptions program(const char* path, const std::vector<std::string>& arguments) {
  ProcessOptions options;
  options.command = {path};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  return options;
}

}  // namespace

ProcessOptions tool(const std::vector<std::string>& arguments) {
  return program(TARSIL_TOOL, arguments);
}

Finished run_tool(const std::vector<std::string>& arguments, std::chrono::nanoseconds limit) {
  return run(tool(arguments), limit);
}

GloveProgram::GloveProgram(const std::vector<std::string>& arguments)
    : process_(program(TARSIL_VIRTUAL_GLOVE, arguments)) {
  if (!process_.wait_for_output("\n")) throw std::runtime_error("no glove: " + process_.error());
  const std::string& output = process_.output();
  port_ = output.substr(kPortLine.size(), output.find('\n') - kPortLine.size());
}

std::string GloveProgram::account() {
  process_.send_signal(SIGTERM);
  process_.wait();
  return process_.output();
}

std::uint64_t account_value(const std::string& account, const std::string& name) {
  const std::size_t at = account.find("\n" + name + " ");
  if (at == std::string::npos) throw std::runtime_error("no " + name + " in the account:\n" + account);
  return std::stoull(account.substr(at + name.size() + 2));
}

}  // namespace tarsil::test
