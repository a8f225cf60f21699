// The preloaded library writes its report into a file: the tool's own streams stay as they are.
#include "tests/faults/faulty_tool.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <sstream>
#include <utility>

#include "tests/faults/sample.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

namespace {

void read_report(const std::string& path, FaultyRun& run) {
  if (!std::filesystem::exists(path)) return;
  std::istringstream report(read_file(path));
  std::size_t rules = 0;
  report >> run.descriptors >> run.threads >> run.blocks >> rules;
  run.calls.resize(rules);
  run.hits.resize(rules);
  for (std::size_t i = 0; i < rules; ++i) report >> run.calls[i] >> run.hits[i];
  run.reported = !report.fail();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const FaultyRun& run) {
  return out << "faults: " << run.faults << "\nstatus " << run.finished.status.code << ", signal "
             << run.finished.status.signal << "\noutput: " << run.finished.output
             << "\nerror: " << run.finished.error << "\nleft: " << run.descriptors << " descriptors, "
             << run.threads << " threads, " << run.blocks << " blocks";
}

FaultyRun run_with_faults(ProcessOptions options, const std::string& faults, std::chrono::nanoseconds limit) {
  const TempDirectory directory;
  options.environment["LD_PRELOAD"] = TARSIL_FAULT_PRELOAD;
  options.environment["TARSIL_FAULTS"] = faults;
  options.environment["TARSIL_FAULTS_REPORT"] = directory.file("report");
  FaultyRun result;
  result.faults = faults;
  result.finished = run(std::move(options), limit);
  read_report(directory.file("report"), result);
  return result;
}

void expect_clean(const FaultyRun& run) {
  EXPECT_TRUE(run.reported) << run;
  EXPECT_EQ(run.finished.status.signal, 0) << run;
  EXPECT_EQ(run.descriptors, 0) << run;
  EXPECT_EQ(run.threads, 0) << run;
  EXPECT_EQ(run.blocks, 0) << run;
}

void expect_success(const FaultyRun& run) {
  expect_clean(run);
  EXPECT_EQ(run.finished.status, (ExitStatus{0, 0})) << run;
  EXPECT_EQ(run.finished.error, "") << run;
}

void expect_error(const FaultyRun& run, const std::string& message) {
  expect_clean(run);
  EXPECT_EQ(run.finished.status, (ExitStatus{1, 0})) << run;
  EXPECT_EQ(run.finished.error, message) << run;
}

void fail_each(const std::string& call, const std::string& fault,
               const std::function<FaultyRun(const std::string& faults)>& run,
               const std::function<void(const FaultyRun& run, std::size_t number)>& check, Share share) {
  const FaultyRun counted = run(call + ":1000000000:EIO");
  expect_success(counted);
  ASSERT_EQ(counted.calls.size(), 1U) << counted;
  ASSERT_GT(counted.calls[0], 0U) << "never called: " << call;
  int runs = 0;
  for (const std::size_t number : sample(counted.calls[0])) {
    if ((number - 1) % share.of_every != 0) continue;
    check(run(call + ":" + std::to_string(number) + ":" + fault), number);
    if (testing::Test::HasFailure()) return;
    ++runs;
  }
  testing::Test::RecordProperty("calls", static_cast<int>(counted.calls[0]));
  testing::Test::RecordProperty("runs", runs);
}

}  // namespace tarsil::test
