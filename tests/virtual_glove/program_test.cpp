// The program from the outside: its line about the port, its end, its account, its complaints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tests/virtual_glove/host.h"

namespace tarsil::virtual_glove {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr std::size_t kIdentitySize = 28;

test::ProcessOptions glove_command(const std::vector<std::string>& arguments) {
  test::ProcessOptions options;
  options.command = {TARSIL_VIRTUAL_GLOVE};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  return options;
}

// The path in the program's first line.
std::string port_of(test::Process& glove) {
  EXPECT_TRUE(glove.wait_for_output("\n"));
  const std::string line = glove.output().substr(0, glove.output().find('\n'));
  EXPECT_EQ(line.substr(0, 5), "port ");
  return line.substr(5);
}

std::uint64_t value_of(const std::string& account, const std::string& name) {
  const std::size_t at = account.find("\n" + name + " ");
  EXPECT_NE(at, std::string::npos) << name;
  return at == std::string::npos ? 0 : std::stoull(account.substr(at + name.size() + 2));
}

TEST(Program, account_agrees_with_the_host_after_a_signal) {
  const test::TempDirectory directory;
  test::Process glove(
      glove_command({"--link", directory.file("glove"), "--hz", "1000", "--serial", "TSL-VG-123456"}));
  const std::string port = port_of(glove);
  EXPECT_EQ(port, directory.file("glove"));
  Bytes stream;
  {
    Host host(port);
    host.send(0xFF);
    const Bytes identity = host.read_bytes(kIdentitySize + 1);
    EXPECT_EQ(std::string(identity.begin() + 13, identity.begin() + 26), "TSL-VG-123456");
    host.send(0xA5);
    stream = host.read_bytes(100 * kHandPacketSize);
    // The reset ends the stream at a known place.
    host.send(0xFF);
    stream = host.read_until_end(identity, stream);
  }
  glove.send_signal(SIGTERM);
  EXPECT_EQ(glove.wait(), (test::ExitStatus{0, 0}));
  const std::string account = glove.output();
  EXPECT_EQ(value_of(account, "packets"), packets_in(stream).size());
  EXPECT_EQ(value_of(account, "cycles"), packets_in(stream).size());
  EXPECT_EQ(value_of(account, "cycles_lost"), 0U);
  EXPECT_EQ(value_of(account, "bytes"), stream.size() + kIdentitySize + 1);
  EXPECT_EQ(value_of(account, "resets"), 2U);
  EXPECT_EQ(value_of(account, "fault.garbage"), 0U);
  EXPECT_FALSE(fs::is_symlink(directory.file("glove")));
}

TEST(Program, ends_by_itself_when_the_frames_are_sent_and_the_host_has_left) {
  test::Process glove(glove_command({"--frames", "200", "--hz", "1000", "--fault", "lost-cycles=0.1",
                                     "--fault", "garbage@0.05", "--seed", "5"}));
  std::vector<std::uint16_t> counters;
  {
    Host host(port_of(glove));
    host.send(0xA5);
    Bytes stream = host.read_bytes(100 * kHandPacketSize);
    const Bytes rest = host.read_rest();
    stream.insert(stream.end(), rest.begin(), rest.end());
    counters = counters_in(stream);
  }
  EXPECT_EQ(glove.wait(), (test::ExitStatus{0, 0}));
  const std::string account = glove.output();
  EXPECT_EQ(value_of(account, "cycles"), 200U);
  EXPECT_EQ(value_of(account, "packets"), counters.size());
  EXPECT_EQ(value_of(account, "cycles_lost"), 200 - counters.size());
  EXPECT_EQ(value_of(account, "hosts"), 1U);
  EXPECT_EQ(value_of(account, "fault.garbage"), 1U);
}

TEST(Program, interrupt_ends_it_without_a_host) {
  test::Process glove(glove_command({}));
  EXPECT_TRUE(fs::is_character_file(port_of(glove)));
  glove.send_signal(SIGINT);
  EXPECT_EQ(glove.wait(), (test::ExitStatus{0, 0}));
  EXPECT_EQ(value_of(glove.output(), "hosts"), 0U);
  EXPECT_EQ(glove.error(), "");
}

TEST(Program, comes_back_under_its_link) {
  const test::TempDirectory directory;
  test::Process glove(glove_command({"--link", directory.file("glove"), "--replug", "0.1:0.05"}));
  const std::string port = port_of(glove);
  const fs::path first = fs::read_symlink(port);
  {
    Host host(port);
    host.send(0xA5);
    EXPECT_TRUE(test::eventually([&] {
      std::error_code error;
      const fs::path now = fs::read_symlink(port, error);
      return !error && now != first;
    }));
  }
  glove.send_signal(SIGTERM);
  EXPECT_EQ(glove.wait(), (test::ExitStatus{0, 0}));
  EXPECT_EQ(value_of(glove.output(), "replugs"), 1U);
}

TEST(Program, removes_its_link_also_when_nobody_reads_its_output) {
  const test::TempDirectory directory;
  test::Process glove(glove_command({"--link", directory.file("glove")}));
  port_of(glove);
  glove.close_output();
  glove.send_signal(SIGTERM);
  EXPECT_EQ(glove.wait().signal, 0);
  EXPECT_FALSE(fs::is_symlink(directory.file("glove")));
}

TEST(Program, help_is_printed_on_standard_output) {
  const test::Finished help = test::run({TARSIL_VIRTUAL_GLOVE, "--help"});
  EXPECT_EQ(help.status, (test::ExitStatus{0, 0}));
  EXPECT_THAT(help.output, HasSubstr("--fault KIND=RATE"));
  EXPECT_EQ(help.error, "");
}

TEST(Program, bad_value_is_a_usage_error) {
  const test::Finished refused = test::run({TARSIL_VIRTUAL_GLOVE, "--hz", "fast"});
  EXPECT_EQ(refused.status, (test::ExitStatus{2, 0}));
  EXPECT_EQ(refused.output, "");
  EXPECT_EQ(refused.error,
            "tarsil-virtual-glove: --hz: 'fast' is not a rate of 0.01 to 20000\n"
            "Try tarsil-virtual-glove --help.\n");
}

TEST(Program, link_that_cannot_be_placed_is_an_error) {
  const test::TempDirectory directory;
  test::write_file(directory.file("glove"), "precious");
  const test::Finished refused = test::run({TARSIL_VIRTUAL_GLOVE, "--link", directory.file("glove")});
  EXPECT_EQ(refused.status, (test::ExitStatus{1, 0}));
  EXPECT_EQ(refused.output, "");
  EXPECT_EQ(refused.error, "tarsil-virtual-glove: cannot place the link " + directory.file("glove") +
                               ": it exists and is not a symbolic link\n");
}

}  // namespace
}  // namespace tarsil::virtual_glove
