// The built tool and a glove with a loose plug: it takes the tool two seconds to get over each replug.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/end_to_end/hand_text.h"
#include "tests/end_to_end/screen.h"
#include "tests/end_to_end/tool.h"
#include "tests/support/temp_directory.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

using virtual_glove::Account;
using virtual_glove::GloveConfig;
using virtual_glove::VirtualGlove;

constexpr std::uint64_t kReplugs = 5;

constexpr std::chrono::seconds kDeadline{100};

const std::string kConnectLine = "Connecting to TSL-VG000001...\n";

std::size_t entries(const Process& process, const std::string& what) {
  const auto directory = "/proc/" + std::to_string(process.pid()) + "/" + what;
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

TEST(LoosePlug, does_not_wear_out_a_stream) {
  const TempDirectory directory;
  const GloveConfig config{
      .link = directory.file("glove"), .hz = 100, .replug = virtual_glove::Replug{0.3, 0.1, kReplugs}};
  VirtualGlove glove(config);
  Process stream(tool({"stream", "--port", glove.port()}));
  const auto tables = [&] { return tables_in(stream.output(), kConnectLine); };
  ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= 2; }));
  const std::size_t files = entries(stream, "fd");
  const std::size_t threads = entries(stream, "task");

  // The first start and one behind every replug.
  ASSERT_TRUE(stream.wait_until([&] { return glove.account().starts == kReplugs + 1; }, kDeadline));
  const std::size_t then = tables().size();
  ASSERT_TRUE(stream.wait_until([&] { return tables().size() >= then + 10 && !tables().back().stale; }));
  EXPECT_EQ(entries(stream, "fd"), files);
  EXPECT_EQ(entries(stream, "task"), threads);
  HandText hand(config, HandStyle::fingers);
  for (const Table& table : tables()) ASSERT_TRUE(hand.find(table.fingers)) << table.fingers;

  stream.send_signal(SIGINT);
  EXPECT_EQ(stream.wait(), (ExitStatus{0, 0}));
  EXPECT_EQ(stream.error(), "");
  EXPECT_EQ(glove.account().replugs, kReplugs);
}

}  // namespace
}  // namespace tarsil::test
