// The line itself, seen from both of its ends.
#include "tools/virtual_glove/pty.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/wait.h"
#include "tests/virtual_glove/host.h"

namespace tarsil::virtual_glove {
namespace {

using test::eventually;

Descriptor open_port(const Pty& pty) {
  return Descriptor(::open(pty.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
}

bool is_exclusive(const Descriptor& fd) {
  int exclusive = 0;
  EXPECT_EQ(::ioctl(fd.get(), TIOCGEXCL, &exclusive), 0);
  return exclusive != 0;
}

std::vector<HostEvent> next_events(Pty& pty) {
  pollfd file{pty.events_fd(), POLLIN, 0};
  ::poll(&file, 1, 30000);
  return pty.read_events();
}

// Writes until the line takes no more, and returns how much it took.
std::size_t fill(Pty& pty) {
  const Bytes bytes(455, 0x55);
  std::size_t total = 0;
  for (std::size_t taken = pty.write_some(bytes); taken > 0; taken = pty.write_some(bytes)) total += taken;
  return total;
}

TEST(Pty, is_raw_before_any_host_comes) {
  Pty pty;
  const Descriptor port = open_port(pty);
  termios settings{};
  ASSERT_EQ(::tcgetattr(port.get(), &settings), 0);
  EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0U);
  EXPECT_EQ(settings.c_oflag & OPOST, 0U);
}

TEST(Pty, does_not_hear_its_own_voice) {
  Pty pty;
  EXPECT_EQ(pty.write_some(Bytes{1, 2, 3, '\n', 0xFF}), 5U);
  EXPECT_TRUE(eventually([&] { return pty.unread() == 5; }));
  EXPECT_EQ(pty.read_commands(), Bytes{});
}

TEST(Pty, carries_every_byte_value_unchanged_both_ways) {
  Pty pty;
  Host host(pty.path());
  Bytes all(256);
  for (std::size_t value = 0; value < all.size(); ++value) all[value] = static_cast<std::uint8_t>(value);
  EXPECT_EQ(pty.write_some(all), 256U);
  EXPECT_EQ(host.read_bytes(256), all);
  Bytes heard;
  for (const std::uint8_t byte : all) host.send(byte);
  EXPECT_TRUE(eventually([&] {
    const Bytes more = pty.read_commands();
    heard.insert(heard.end(), more.begin(), more.end());
    return heard.size() >= 256;
  }));
  EXPECT_EQ(heard, all);
}

TEST(Pty, notices_hosts_that_come_and_go) {
  Pty pty;
  EXPECT_TRUE(pty.read_events().empty());
  {
    const Descriptor port = open_port(pty);
    EXPECT_EQ(next_events(pty), std::vector{HostEvent::opened});
  }
  EXPECT_EQ(next_events(pty), std::vector{HostEvent::closed});
}

TEST(Pty, tells_equal_events_apart_however_late_it_looks) {
  Pty pty;
  {
    const Descriptor first = open_port(pty);
    const Descriptor second = open_port(pty);
    const Descriptor third = open_port(pty);
  }
  EXPECT_EQ(pty.read_events(), (std::vector{HostEvent::opened, HostEvent::opened, HostEvent::opened,
                                            HostEvent::closed, HostEvent::closed, HostEvent::closed}));
}

TEST(Pty, takes_no_notice_of_other_lines) {
  Pty pty;
  Pty other;
  { const Descriptor port = open_port(other); }
  EXPECT_TRUE(pty.read_events().empty());
  EXPECT_EQ(other.read_events().size(), 2U);
}

TEST(Pty, ends_the_exclusive_use_of_a_host_that_left) {
  Pty pty;
  { const Host host(pty.path()); }
  {
    const Descriptor port = open_port(pty);
    if (port.get() >= 0) {
      EXPECT_TRUE(is_exclusive(port));
    }
  }
  pty.end_exclusive_use();
  const Descriptor port = open_port(pty);
  ASSERT_GE(port.get(), 0);
  EXPECT_FALSE(is_exclusive(port));
}

TEST(Pty, counts_what_no_host_has_read) {
  Pty pty;
  Host host(pty.path());
  EXPECT_EQ(pty.unread(), 0U);
  EXPECT_EQ(pty.write_some(Bytes(100, 7)), 100U);
  EXPECT_TRUE(eventually([&] { return pty.unread() == 100; }));
  EXPECT_EQ(host.read_bytes(100).size(), 100U);
  EXPECT_EQ(pty.unread(), 0U);
}

TEST(Pty, full_line_takes_no_more_and_loses_nothing) {
  Pty pty;
  Host host(pty.path());
  const std::size_t taken = fill(pty);
  EXPECT_GE(taken, 4096U);
  EXPECT_EQ(host.read_bytes(taken).size(), taken);
  EXPECT_TRUE(eventually([&] { return pty.write_some(Bytes{9}) == 1; }));
}

TEST(Pty, discards_all_that_is_unread) {
  Pty pty;
  EXPECT_GT(fill(pty), 0U);
  pty.discard_unread();
  Host host(pty.path());
  EXPECT_EQ(pty.write_some(Bytes{1, 2, 3}), 3U);
  EXPECT_EQ(host.read_rest(), (Bytes{1, 2, 3}));
}

TEST(Pty, host_sees_a_hang_up_when_the_plug_is_pulled) {
  auto pty = std::make_unique<Pty>();
  Host host(pty->path());
  const std::string path = pty->path();
  pty.reset();
  pollfd file{host.fd(), POLLIN, 0};
  EXPECT_EQ(::poll(&file, 1, 30000), 1);
  EXPECT_NE(file.revents & POLLHUP, 0);
  EXPECT_EQ(host.read_once(), Bytes{});
  EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

}  // namespace
}  // namespace tarsil::virtual_glove
