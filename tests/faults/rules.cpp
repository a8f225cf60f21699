// Rules stand in fixed places and are counted by atomics: any thread may make any call.
#include "tests/faults/rules.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

namespace tarsil::test::faults {

namespace {

constexpr std::size_t kMaxDescriptors = 4096;
constexpr std::size_t kMaxTarget = 512;

struct Rule {
  Call call = Call::open;
  std::array<char, kMaxTarget> target{};
  std::size_t target_size = 0;
  int descriptor = -1;  // that the target names
  std::size_t first = 1;
  std::size_t times = 1;
  std::size_t period = 0;
  Outcome outcome;
  std::atomic<std::size_t> calls = 0;
  std::atomic<std::size_t> hits = 0;

  [[nodiscard]] bool anywhere() const { return target_size == 0; }
  [[nodiscard]] bool names(std::string_view path) const {
    return path == std::string_view(target.data(), target_size);
  }
  [[nodiscard]] bool strikes(std::size_t call_number) const {
    if (call_number < first) return false;
    const std::size_t since = call_number - first;
    return times == 0 || (period == 0 ? since : since % period) < times;
  }
};

std::array<Rule, kMaxRules> all_rules;
std::atomic<std::size_t> rule_count = 0;
std::atomic<bool> every_thread = false;
std::atomic<std::ptrdiff_t> block_count = 0;
thread_local bool concerned_thread = false;

/// For every descriptor one bit for each rule whose target it is.
std::array<std::atomic<std::uint8_t>, kMaxDescriptors> marks;

template <typename Value>
using Names = std::pair<std::string_view, Value>;

constexpr std::array kCalls{
    Names<Call>{"open", Call::open},
    Names<Call>{"opendir", Call::opendir},
    Names<Call>{"readdir", Call::readdir},
    Names<Call>{"tcgetattr", Call::tcgetattr},
    Names<Call>{"tcsetattr", Call::tcsetattr},
    Names<Call>{"cfsetispeed", Call::cfsetispeed},
    Names<Call>{"cfsetospeed", Call::cfsetospeed},
    Names<Call>{"ioctl", Call::ioctl},
    Names<Call>{"read", Call::read},
    Names<Call>{"write", Call::write},
    Names<Call>{"poll", Call::poll},
    Names<Call>{"close", Call::close},
    Names<Call>{"thread", Call::thread},
    Names<Call>{"memory", Call::memory},
};

constexpr std::array kFaults{
    Names<Outcome>{"EACCES", {.error = EACCES}}, Names<Outcome>{"EAGAIN", {.error = EAGAIN}},
    Names<Outcome>{"EBADF", {.error = EBADF}},   Names<Outcome>{"EBUSY", {.error = EBUSY}},
    Names<Outcome>{"EINTR", {.error = EINTR}},   Names<Outcome>{"EINVAL", {.error = EINVAL}},
    Names<Outcome>{"EIO", {.error = EIO}},       Names<Outcome>{"EMFILE", {.error = EMFILE}},
    Names<Outcome>{"ENFILE", {.error = ENFILE}}, Names<Outcome>{"ENOMEM", {.error = ENOMEM}},
    Names<Outcome>{"ENOSPC", {.error = ENOSPC}}, Names<Outcome>{"ENOTTY", {.error = ENOTTY}},
    Names<Outcome>{"ENXIO", {.error = ENXIO}},   Names<Outcome>{"ONE", {.most = 1}},
    Names<Outcome>{"HALF", {.divisor = 2}},      Names<Outcome>{"NONE", {.most = 0}},
};

/// Takes the text up to the next `separator`, which goes with it.
std::string_view take(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return taken;
}

template <typename Number>
bool read_number(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

template <typename Table, typename Value>
bool look_up(const Table& table, std::string_view name, Value& value) {
  const auto found =
      std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.first == name; });
  if (found == table.end()) return false;
  value = found->second;
  return true;
}

bool read_rule(std::string_view text, Rule& rule) {
  std::string_view where = take(text, ':');
  const std::string_view call = take(where, '@');
  if (!look_up(kCalls, call, rule.call) || where.size() > kMaxTarget) return false;
  std::copy(where.begin(), where.end(), rule.target.begin());
  rule.target_size = where.size();
  if (!read_number(where, rule.descriptor)) rule.descriptor = -1;
  if (!read_number(take(text, ':'), rule.first)) return false;
  if (!look_up(kFaults, take(text, ':'), rule.outcome)) return false;
  rule.times = 1;
  rule.period = 0;
  if (text.empty()) return true;
  if (!read_number(take(text, ':'), rule.times)) return false;
  return text.empty() || read_number(text, rule.period);
}

bool read_rules(std::string_view text) {
  rule_count = 0;
  for (auto& mark : marks) mark = 0;
  std::size_t count = 0;
  for (; !text.empty(); ++count) {
    if (count == kMaxRules || !read_rule(take(text, ' '), all_rules[count])) return false;
    all_rules[count].calls = 0;
    all_rules[count].hits = 0;
  }
  rule_count = count;
  return true;
}

/// The outcome of a call that rules for which `applies` holds have seen; of several faults the first counts.
template <typename Applies>
Outcome first_fault(Call call, Applies applies) {
  Outcome result;
  if (!concerned()) return result;
  bool struck = false;
  for (std::size_t i = 0; i < rule_count; ++i) {
    Rule& rule = all_rules[i];
    if (rule.call != call || !applies(rule, i)) continue;
    if (!rule.strikes(++rule.calls) || struck) continue;
    struck = true;
    ++rule.hits;
    result = rule.outcome;
  }
  return result;
}

bool in_table(int descriptor) {
  return descriptor >= 0 && std::cmp_less(descriptor, kMaxDescriptors);
}

}  // namespace

std::size_t Outcome::of(std::size_t count) const {
  return std::min((count + divisor - 1) / divisor, most);
}

bool arm(const char* text) {
  every_thread = false;
  block_count = 0;
  concerned_thread = true;
  return read_rules(text);
}

bool arm_for_all_threads(const char* text) {
  every_thread = true;
  return read_rules(text);
}

void disarm() {
  disarm_rules();
  concerned_thread = false;
}

void disarm_rules() {
  rule_count = 0;
}

std::size_t calls(std::size_t rule) {
  return all_rules.at(rule).calls;
}

std::size_t hits(std::size_t rule) {
  return all_rules.at(rule).hits;
}

std::size_t rules() {
  return rule_count;
}

Outcome outcome(Call call) {
  return first_fault(call, [](const Rule& rule, std::size_t) { return rule.anywhere(); });
}

Outcome outcome(Call call, const char* path) {
  return first_fault(call,
                     [&](const Rule& rule, std::size_t) { return rule.anywhere() || rule.names(path); });
}

Outcome outcome(Call call, int descriptor) {
  const unsigned mark = in_table(descriptor) ? marks[static_cast<std::size_t>(descriptor)].load() : 0U;
  return first_fault(call, [&](const Rule& rule, std::size_t i) {
    return rule.anywhere() || rule.descriptor == descriptor || (mark >> i & 1U) != 0;
  });
}

void opened(int descriptor, const char* path) {
  if (!in_table(descriptor) || !concerned()) return;
  unsigned mark = 0;
  for (std::size_t i = 0; i < rule_count; ++i) {
    if (!all_rules[i].anywhere() && all_rules[i].names(path)) mark |= 1U << i;
  }
  marks[static_cast<std::size_t>(descriptor)] = static_cast<std::uint8_t>(mark);
}

void closed(int descriptor) {
  if (in_table(descriptor)) marks[static_cast<std::size_t>(descriptor)] = 0;
}

bool concerned() {
  return concerned_thread || every_thread;
}

void set_concerned(bool concerned) {
  concerned_thread = concerned;
}

std::ptrdiff_t blocks() {
  return block_count;
}

void count_blocks(std::ptrdiff_t change) {
  if (concerned()) block_count += change;
}

}  // namespace tarsil::test::faults
