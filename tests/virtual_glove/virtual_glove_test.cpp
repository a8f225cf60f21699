// The whole simulator with a host on its line, as real hosts use it.
#include "tools/virtual_glove/virtual_glove.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <filesystem>
#include <numeric>
#include <stdexcept>

#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"
#include "tests/virtual_glove/host.h"

namespace tarsil::virtual_glove {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using test::kPatience;

const Bytes kIdentity = {0xC1, 0x40, 0x52, 0x53, 'V', 'I', 'R', 'T', 'U', 'A', 'L', 0, 12, 'T',
                         'S',  'L',  '-',  'V',  'G', '0', '0', '0', '0', '0', '1', 1, 4,  0xBE};

std::vector<std::uint16_t> counters_up_to(std::uint16_t count) {
  std::vector<std::uint16_t> counters(count);
  std::iota(counters.begin(), counters.end(), std::uint16_t{0});
  return counters;
}

bool hosts_open(VirtualGlove& glove, std::uint64_t count) {
  return glove.wait_until([count](const Account& account) { return account.hosts_open == count; }, kPatience);
}

// Waits until the host has let so much pile up that the glove cannot go on.
bool line_full(VirtualGlove& glove) {
  return glove.wait_until([](const Account& account) { return account.line_full; }, kPatience);
}

// Resets the glove, takes its identity and starts it.
void connect(Host& host) {
  host.send(0xFF);
  EXPECT_EQ(host.read_bytes(kIdentity.size()), kIdentity);
  host.send(0xA5);
}

bool has_hung_up(const Host& host) {
  pollfd file{host.fd(), POLLIN, 0};
  return ::poll(&file, 1, 0) == 1 && (file.revents & POLLHUP) != 0;
}

TEST(VirtualGlove, answers_a_reset_with_its_identity_and_sends_nothing_more) {
  VirtualGlove glove;
  Host host(glove.port());
  EXPECT_EQ(host.read_rest(), Bytes{});
  host.send(0xFF);
  EXPECT_EQ(host.read_bytes(kIdentity.size()), kIdentity);
  EXPECT_EQ(host.read_rest(), Bytes{});
  EXPECT_EQ(glove.commands(), Bytes{0xFF});
}

TEST(VirtualGlove, streams_the_motion_of_its_seed_from_cycle_zero) {
  VirtualGlove glove({.hz = 500, .seed = 42, .first_counter = 65530});
  Host host(glove.port());
  connect(host);
  const Bytes stream = host.read_bytes(20 * kHandPacketSize);
  const HandMotion motion(42, 500);
  for (std::uint64_t cycle = 0; cycle < 20; ++cycle) {
    const Bytes expected = encode_packet(0, 1, static_cast<std::uint16_t>(65530 + cycle),
                                         encode_payload(hand_blocks(motion.at(cycle))));
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(cycle * kHandPacketSize);
    ASSERT_EQ(Bytes(begin, begin + kHandPacketSize), expected) << cycle;
  }
}

TEST(VirtualGlove, starts_without_a_reset) {
  VirtualGlove glove({.left = true, .frames = 3});
  Host host(glove.port());
  host.send(0xA5);
  const std::vector<SeenPacket> packets = packets_in(host.read_bytes(3 * kHandPacketSize));
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_NE(packets[0].side_code, 0);
  EXPECT_EQ(packets[0].type, 1);
}

TEST(VirtualGlove, reset_in_mid_stream_ends_it_with_the_identity) {
  VirtualGlove glove;
  Host host(glove.port());
  connect(host);
  const Bytes begun = host.read_bytes(5 * kHandPacketSize);
  host.send(0xFF);
  const Bytes stream = host.read_until_end(kIdentity, begun);
  EXPECT_EQ((stream.size() - kIdentity.size()) % kHandPacketSize, 0U);
  EXPECT_EQ(host.read_rest(), Bytes{});
  host.send(0xA5);
  EXPECT_EQ(counters_in(host.read_bytes(2 * kHandPacketSize)).at(0), 0);
}

TEST(VirtualGlove, announces_itself_to_a_host_that_says_nothing) {
  VirtualGlove glove({.announce = true});
  Host host(glove.port());
  const Bytes heard = host.read_bytes(3 * kIdentity.size());
  ASSERT_EQ(heard.size(), 3 * kIdentity.size());
  for (std::ptrdiff_t at = 0; at < 3; ++at) {
    const auto begin = heard.begin() + at * static_cast<std::ptrdiff_t>(kIdentity.size());
    EXPECT_EQ(Bytes(begin, begin + static_cast<std::ptrdiff_t>(kIdentity.size())), kIdentity);
  }
  EXPECT_EQ(glove.commands(), Bytes{});
}

TEST(VirtualGlove, finishes_when_the_frames_are_sent_and_the_host_has_left) {
  VirtualGlove glove({.hz = 1000, .frames = 50});
  pollfd finished{glove.finished_fd(), POLLIN, 0};
  {
    Host host(glove.port());
    connect(host);
    EXPECT_EQ(counters_in(host.read_bytes(50 * kHandPacketSize)), counters_up_to(50));
    host.send(0xFF);
    EXPECT_EQ(host.read_bytes(kIdentity.size()), kIdentity);
    host.send(0xA5);
    EXPECT_EQ(host.read_rest(), Bytes{});
    EXPECT_FALSE(glove.account().finished);
    EXPECT_EQ(::poll(&finished, 1, 0), 0);
  }
  EXPECT_TRUE(glove.wait_finished(kPatience));
  EXPECT_EQ(::poll(&finished, 1, 30000), 1);
  const Account account = glove.account();
  EXPECT_EQ(account.packets, 50U);
  EXPECT_EQ(account.cycles, 50U);
  EXPECT_EQ(account.bytes, 50 * kHandPacketSize + 2 * kIdentity.size());
  EXPECT_EQ(account.hosts, 1U);
  EXPECT_EQ(account.resets, 2U);
  EXPECT_EQ(account.starts, 2U);
}

TEST(VirtualGlove, delays_cycles_for_a_slow_host_and_loses_none) {
  VirtualGlove glove({.hz = 5000, .frames = 400});
  Host host(glove.port());
  host.send(0xA5);
  ASSERT_TRUE(line_full(glove));
  EXPECT_LT(glove.account().cycles, 400U);
  EXPECT_EQ(counters_in(host.read_bytes(400 * kHandPacketSize)), counters_up_to(400));
  EXPECT_TRUE(glove.wait_until([](const Account& account) { return account.packets == 400; }, kPatience));
}

TEST(VirtualGlove, loses_cycles_for_a_slow_host_if_set_up_for_overruns) {
  VirtualGlove glove({.hz = 1000, .frames = 400, .overrun = true});
  Host host(glove.port());
  host.send(0xA5);
  ASSERT_TRUE(line_full(glove));
  ASSERT_TRUE(glove.wait_until([](const Account& account) { return account.cycles_lost >= 50; }, kPatience));
  Bytes stream = host.read_rest();
  ASSERT_TRUE(glove.wait_until([](const Account& account) { return account.exhausted; }, kPatience));
  const Bytes rest = host.read_rest();
  stream.insert(stream.end(), rest.begin(), rest.end());
  const std::vector<std::uint16_t> counters = counters_in(stream);
  const Account account = glove.account();
  EXPECT_EQ(account.cycles, 400U);
  EXPECT_EQ(account.packets, 400 - account.cycles_lost);
  // What is sent is whole, also the packet that was on its way when the line filled.
  EXPECT_EQ(counters.size(), account.packets);
  EXPECT_TRUE(std::is_sorted(counters.begin(), counters.end()));
}

TEST(VirtualGlove, reset_reaches_it_over_a_full_line) {
  VirtualGlove glove({.hz = 5000});
  Host host(glove.port());
  host.send(0xA5);
  ASSERT_TRUE(line_full(glove));
  host.send(0xFF);
  EXPECT_TRUE(glove.wait_until([](const Account& account) { return account.resets == 1; }, kPatience));
  const Bytes stream = host.read_until_end(kIdentity);
  EXPECT_EQ(stream.size(), glove.account().packets * kHandPacketSize + kIdentity.size());
}

TEST(VirtualGlove, next_host_finds_a_clean_line_that_is_its_own) {
  VirtualGlove glove({.hz = 5000});
  {
    Host host(glove.port());
    connect(host);
    ASSERT_TRUE(line_full(glove));
  }
  ASSERT_TRUE(hosts_open(glove, 0));
  const Account after = glove.account();
  EXPECT_FALSE(after.streaming);
  EXPECT_EQ(after.packets + after.abandoned, after.cycles);
  {
    const Descriptor port(::open(glove.port().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_GE(port.get(), 0);
    int exclusive = 1;
    ASSERT_EQ(::ioctl(port.get(), TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 0);
  }
  Host host(glove.port());
  EXPECT_EQ(host.read_rest(), Bytes{});
  connect(host);
  EXPECT_EQ(counters_in(host.read_bytes(10 * kHandPacketSize)).at(0), 0);
  EXPECT_EQ(glove.account().hosts, 3U);
}

TEST(VirtualGlove, serves_hosts_that_follow_each_other_at_once) {
  VirtualGlove glove({.hz = 2000});
  for (int round = 0; round < 50; ++round) {
    Host host(glove.port());
    host.send(0xFF);
    // What the glove sent before it noticed that the last host had left may still come first.
    const Bytes heard = host.read_until_end(kIdentity);
    ASSERT_GE(heard.size(), kIdentity.size()) << round;
    ASSERT_EQ(Bytes(heard.end() - static_cast<std::ptrdiff_t>(kIdentity.size()), heard.end()), kIdentity)
        << round;
    host.send(0xA5);
    ASSERT_EQ(counters_in(host.read_bytes(kHandPacketSize)).at(0), 0) << round;
  }
  EXPECT_TRUE(hosts_open(glove, 0));
  EXPECT_EQ(glove.account().hosts, 50U);
}

TEST(VirtualGlove, splits_lose_nothing) {
  VirtualGlove glove({.hz = 1000, .frames = 100, .faults = {{FaultKind::splits, 1}}});
  Host host(glove.port());
  connect(host);
  EXPECT_EQ(counters_in(host.read_bytes(100 * kHandPacketSize)), counters_up_to(100));
  EXPECT_EQ(glove.account().faults[static_cast<std::size_t>(FaultKind::splits)], 100U);
}

TEST(VirtualGlove, host_finds_as_many_packets_as_the_account_names) {
  VirtualGlove glove({.hz = 2000,
                      .frames = 500,
                      .faults = {{FaultKind::lost_cycles, 0.05},
                                 {FaultKind::garbage, 0.05},
                                 {FaultKind::unknown_types, 0.05},
                                 {FaultKind::unknown_blocks, 0.05},
                                 {FaultKind::truncated_blocks, 0.05}}});
  Host host(glove.port());
  connect(host);
  Bytes stream;
  ASSERT_TRUE(eventually([&] {
    const Bytes more = host.read_once();
    stream.insert(stream.end(), more.begin(), more.end());
    return glove.account().exhausted && more.empty();
  }));
  const Account account = glove.account();
  std::uint64_t sensor_packets = 0;
  std::uint64_t others = 0;
  for (const SeenPacket& packet : packets_in(stream)) ++(packet.type == 1 ? sensor_packets : others);
  EXPECT_EQ(sensor_packets, account.packets);
  EXPECT_EQ(others, account.faults[static_cast<std::size_t>(FaultKind::unknown_types)]);
  EXPECT_EQ(account.packets + account.cycles_lost, 500U);
  EXPECT_EQ(account.damaged, account.faults[static_cast<std::size_t>(FaultKind::truncated_blocks)]);
  EXPECT_EQ(account.bytes, stream.size() + kIdentity.size());
  EXPECT_GT(others, 0U);
}

TEST(VirtualGlove, pulled_plug_hangs_up_and_the_next_one_is_new) {
  const test::TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove")});
  EXPECT_EQ(glove.port(), directory.file("glove"));
  EXPECT_EQ(fs::read_symlink(glove.port()), glove.pty_path());
  const std::string first_path = glove.pty_path();
  Host host(glove.port());
  connect(host);
  EXPECT_FALSE(host.read_bytes(1).empty());

  glove.unplug();
  EXPECT_TRUE(has_hung_up(host));
  EXPECT_EQ(glove.pty_path(), "");
  EXPECT_FALSE(fs::is_symlink(directory.file("glove")));
  EXPECT_FALSE(glove.account().plugged);
  EXPECT_EQ(glove.account().hosts_open, 0U);
  glove.unplug();

  glove.plug();
  EXPECT_TRUE(glove.account().plugged);
  EXPECT_EQ(glove.account().replugs, 1U);
  EXPECT_NE(glove.pty_path(), first_path);
  Host next(glove.port());
  connect(next);
  EXPECT_EQ(counters_in(next.read_bytes(2 * kHandPacketSize)).at(0), 0);
  glove.plug();
  EXPECT_EQ(glove.account().replugs, 1U);
}

TEST(VirtualGlove, hung_glove_works_again_after_a_replug) {
  VirtualGlove glove({.faults = {{FaultKind::hang, 0, 0.02}}});
  {
    Host host(glove.port());
    connect(host);
    EXPECT_TRUE(glove.wait_until([](const Account& account) { return account.hung; }, kPatience));
    EXPECT_FALSE(host.read_rest().empty());
    host.send(0xFF);
    EXPECT_EQ(host.read_rest(), Bytes{});
  }
  glove.unplug();
  glove.plug();
  Host host(glove.port());
  connect(host);
  EXPECT_FALSE(host.read_bytes(kHandPacketSize).empty());
}

TEST(VirtualGlove, vanishes_and_comes_back_under_the_same_link) {
  const test::TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove"), .replug = Replug{0.1, 0.1}});
  for (std::uint64_t round = 1; round <= 2; ++round) {
    Host host(glove.port());
    connect(host);
    EXPECT_TRUE(eventually([&] { return host.read_once().empty() && has_hung_up(host); }));
    EXPECT_TRUE(glove.wait_until(
        [round](const Account& account) { return account.replugs == round && account.plugged; }, kPatience));
    EXPECT_TRUE(fs::is_symlink(directory.file("glove")));
  }
}

TEST(VirtualGlove, stays_for_good_behind_the_last_of_a_number_of_replugs) {
  const test::TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove"), .replug = Replug{0.05, 0.05, 2}});
  for (std::uint64_t round = 1; round <= 2; ++round) {
    Host host(glove.port());
    connect(host);
    ASSERT_TRUE(glove.wait_until(
        [round](const Account& account) { return account.replugs == round && account.plugged; }, kPatience));
  }
  Host host(glove.port());
  connect(host);
  EXPECT_GE(host.read_bytes(50 * kHandPacketSize).size(), 50 * kHandPacketSize);
  EXPECT_EQ(glove.account().replugs, 2U);
  EXPECT_TRUE(glove.account().plugged);
}

TEST(VirtualGlove, stop_is_final_and_removes_the_link) {
  const test::TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove")});
  Host host(glove.port());
  connect(host);
  glove.stop();
  EXPECT_TRUE(has_hung_up(host));
  EXPECT_FALSE(fs::is_symlink(directory.file("glove")));
  EXPECT_FALSE(glove.account().plugged);
  glove.plug();
  EXPECT_FALSE(glove.account().plugged);
  glove.stop();
}

TEST(VirtualGlove, stop_does_not_wait_for_a_host_that_never_reads) {
  VirtualGlove glove({.hz = 5000});
  Host host(glove.port());
  host.send(0xA5);
  ASSERT_TRUE(line_full(glove));
  glove.stop();
  const Account account = glove.account();
  EXPECT_EQ(account.cycles, account.packets + account.abandoned);
}

TEST(VirtualGlove, refuses_a_link_that_would_replace_a_file) {
  const test::TempDirectory directory;
  test::write_file(directory.file("glove"), "precious");
  EXPECT_THROW(VirtualGlove({.link = directory.file("glove")}), std::runtime_error);
  EXPECT_EQ(test::read_file(directory.file("glove")), "precious");
}

TEST(VirtualGlove, refuses_settings_outside_their_limits) {
  EXPECT_THROW(VirtualGlove({.hz = 0}), std::invalid_argument);
}

TEST(VirtualGlove, failure_to_come_back_reaches_whoever_waits) {
  const test::TempDirectory directory;
  VirtualGlove glove({.link = directory.file("glove")});
  glove.unplug();
  test::write_file(directory.file("glove"), "in the way");
  EXPECT_THROW(glove.plug(), std::runtime_error);
  EXPECT_THROW(glove.wait_for_cycles(1, kPatience), std::runtime_error);
}

TEST(VirtualGlove, leaves_no_descriptor_and_no_thread_behind) {
  { VirtualGlove first; }
  const std::size_t descriptors = test::open_descriptors();
  const std::size_t threads = test::running_threads();
  for (int round = 0; round < 100; ++round) {
    VirtualGlove glove;
    Host host(glove.port());
    host.send(0xFF);
  }
  EXPECT_EQ(test::open_descriptors(), descriptors);
  EXPECT_EQ(test::running_threads(), threads);
}

}  // namespace
}  // namespace tarsil::virtual_glove
