// Reads the tool's table back as a person would.
#include "tests/end_to_end_health/health_tool.h"

#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tarsil::test {

namespace {

constexpr const char* kRule = "--------------------------------------------------------\n";

std::vector<std::string> with_link(std::vector<std::string> arguments, const std::string& path) {
  arguments.insert(arguments.end(), {"--link", path});
  return arguments;
}

HealthRow read_row(const std::string& line) {
  std::istringstream cells(line);
  HealthRow row;
  char unit = 0;
  cells >> row.dof >> row.score >> unit >> row.noise >> row.backlash >> row.dropouts >> row.mark;
  if (!cells || unit != '%' || !cells.eof()) throw std::runtime_error("not a row: " + line);
  return row;
}

}  // namespace

ProcessOptions health(const std::vector<std::string>& arguments, const std::string& url) {
  std::vector<std::string> words{"health"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  ProcessOptions options = tool(words);
  options.environment = {{"TARSIL_SERVER_URL", url}, {"no_proxy", "*"}};
  return options;
}

LinkedGlove::LinkedGlove(std::vector<std::string> arguments)
    : program_(with_link(std::move(arguments), directory_.file("glove"))) {}

void LinkedGlove::cut() {
  std::filesystem::remove(port());
  program_.process().send_signal(SIGKILL);
  if (program_.process().wait().signal != SIGKILL) throw std::runtime_error("the glove had ended before");
}

std::vector<HealthRow> health_rows(const std::string& output) {
  const std::string rule = kRule;
  const std::size_t first = output.find(rule);
  const std::size_t last = output.find(rule, first + 1);
  if (first == std::string::npos || last == std::string::npos)
    throw std::runtime_error("no table: " + output);
  std::istringstream lines(output.substr(first + rule.size(), last - first - rule.size()));
  std::vector<HealthRow> rows;
  for (std::string line; std::getline(lines, line);) rows.push_back(read_row(line));
  return rows;
}

int frames_analyzed(const std::string& output) {
  const std::string words = "\nFrames analyzed: ";
  const std::size_t at = output.find(words);
  if (at == std::string::npos) throw std::runtime_error("no number of frames: " + output);
  return std::stoi(output.substr(at + words.size()));
}

std::uint64_t voluntary_waits(pid_t process) {
  const std::string status = read_file("/proc/" + std::to_string(process) + "/status");
  const std::string words = "\nvoluntary_ctxt_switches:";
  const std::size_t at = status.find(words);
  if (at == std::string::npos) throw std::runtime_error("no such count");
  return std::stoull(status.substr(at + words.size()));
}

}  // namespace tarsil::test
