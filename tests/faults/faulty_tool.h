// The built tool with faults in its calls, and what is left of it afterwards.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace tarsil::test {

/// A finished run of the tool.
struct FaultyRun {
  /// The rules that it ran by.
  std::string faults;
  Finished finished;
  /// Whether it ended by itself; nothing below is known otherwise.
  bool reported = false;
  /// Descriptors, threads and blocks of memory that were left at the end, beyond those of every program.
  int descriptors = 0;
  int threads = 0;
  int blocks = 0;
  /// For each rule, how many calls it has seen, and how many of them met the fault.
  std::vector<std::size_t> calls;
  std::vector<std::size_t> hits;
};

/// Shows what one needs to know of a run that went otherwise than expected.
std::ostream& operator<<(std::ostream& out, const FaultyRun& run);

/// Runs the tool to its end by rules as in rules.h; kills it, and throws std::runtime_error, if that does not
/// come.
[[nodiscard]] FaultyRun run_with_faults(ProcessOptions options, const std::string& faults,
                                        std::chrono::nanoseconds limit = 2 * kPatience);

/// Expects that the run has ended by itself and left nothing behind.
void expect_clean(const FaultyRun& run);
/// Also, with status 0 and nothing on standard error.
void expect_success(const FaultyRun& run);
/// Also, with status 1 and this on standard error.
void expect_error(const FaultyRun& run, const std::string& message);

/// Which of the calls fail.
struct Share {
  /// One in so many.
  std::size_t of_every = 1;
};

/// Lets every call that `call` names (CALL or CALL@TARGET) fail in turn: makes `run` once without a fault to
/// count the calls, then by a rule for each of a sample of them, with `fault` (FAULT[:TIMES[:PERIOD]]), and
/// shows `check` what came of it and the number of the call. Stops at the first failure of the test.
void fail_each(const std::string& call, const std::string& fault,
               const std::function<FaultyRun(const std::string& faults)>& run,
               const std::function<void(const FaultyRun& run, std::size_t number)>& check, Share share = {});

}  // namespace tarsil::test
