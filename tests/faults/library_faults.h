// Faults in the calls of the test's own program, around a use of the library.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

#include "tests/faults/rules.h"
#include "tests/faults/sample.h"
#include "tests/support/resources.h"
#include "tests/support/wait.h"

namespace tarsil::test {

/// While it lives, the calls of this thread, and of the threads that it starts, go by these rules.
class Faults {
 public:
  explicit Faults(const std::string& rules) {
    if (!faults::arm(rules.c_str())) throw std::runtime_error("bad rules: " + rules);
  }
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
  ~Faults() { faults::disarm(); }
};

/// Uses the library by these rules, and expects that nothing is left of the use: no descriptor, thread or
/// memory. What `use` makes has to go before it returns; how often the rule was met is returned.
inline std::size_t use_with(const std::string& rules, const std::function<void()>& use) {
  const std::size_t descriptors = open_descriptors();
  const std::size_t threads = running_threads();
  std::ptrdiff_t blocks = 0;
  std::size_t hits = 0;
  {
    const Faults faults(rules);
    use();
    blocks = faults::blocks();
    hits = faults::hits(0);
  }
  EXPECT_EQ(blocks, 0) << rules;
  EXPECT_EQ(open_descriptors(), descriptors) << rules;
  // A thread that has been joined may be listed for a moment more.
  EXPECT_TRUE(eventually([&] { return running_threads() == threads; })) << rules;
  return hits;
}

/// Makes `use` once to count the calls that `call` (CALL or CALL@TARGET) names, then once for each of a
/// sample of them, which meets `fault` (FAULT[:TIMES[:PERIOD]]). Stops at the first failure of the test.
/// `use` is told the rules, for messages, and the number of the call, 0 when none fails.
inline void fail_each_in_turn(const std::string& call, const std::string& fault,
                              const std::function<void(const std::string& rules, std::size_t number)>& use) {
  const std::string never = call + ":1000000000:EIO";
  std::size_t calls = 0;
  use_with(never, [&] {
    use(never, 0);
    calls = faults::calls(0);
  });
  ASSERT_GT(calls, 0U) << "never called: " << call;
  testing::Test::RecordProperty("calls", static_cast<int>(calls));
  for (const std::size_t number : sample(calls)) {
    const std::string rules = call + ":" + std::to_string(number) + ":" + fault;
    use_with(rules, [&] { use(rules, number); });
    if (testing::Test::HasFailure()) return;
  }
}

/// The error that `action` raises, by its message; empty if there is none.
inline std::string error_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return {};
}

}  // namespace tarsil::test
