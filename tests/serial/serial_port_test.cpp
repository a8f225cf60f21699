// One serial line: how it is set up, as seen from its other end, and what reading and writing do.
#include "tarsil/serial/serial_port.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/serial/child.h"
#include "tests/serial/scripted_glove.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"

namespace tarsil::detail {
namespace {

using test::Bytes;
using test::Child;
using test::ScriptedGlove;
using ::testing::ElementsAre;

constexpr std::int32_t kBaud = 2000000;

/// What one read gives; nothing if it fails.
std::optional<Bytes> read_once(SerialPort& port, std::size_t space = 4096) {
  Bytes bytes(space);
  const auto count = port.read(bytes);
  if (!count) return std::nullopt;
  bytes.resize(*count);
  return bytes;
}

/// The descriptor of this process that is open on `path`, other than `known`; -1 if there is none.
int descriptor_on(const std::string& path, int known) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const int descriptor = std::stoi(entry.path().filename());
    if (descriptor != known && std::filesystem::read_symlink(entry.path(), gone) == path) return descriptor;
  }
  return -1;
}

TEST(SerialPort, makes_the_line_raw) {
  const ScriptedGlove glove;
  termios before = glove.settings();
  before.c_iflag = ICRNL | IXON | ISTRIP | INPCK;
  before.c_oflag = OPOST | ONLCR;
  before.c_lflag = ICANON | ECHO | ISIG | IEXTEN;
  before.c_cflag = CS8 | CREAD | HUPCL | CSTOPB | B9600;
  before.c_cc[VTIME] = 7;
  before.c_cc[VMIN] = 9;
  glove.apply(before);

  const auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  const termios after = glove.settings();
  EXPECT_EQ(after.c_iflag, 0U);
  EXPECT_EQ(after.c_oflag, 0U);
  EXPECT_EQ(after.c_lflag, 0U);
  // Eight bits, receiver on, modem lines ignored; beside that only the speed.
  EXPECT_EQ(after.c_cflag, 0x8B0U | B2000000);
  EXPECT_EQ(after.c_cc[VTIME], 1);
  EXPECT_EQ(after.c_cc[VMIN], 0);
}

TEST(SerialPort, leaves_the_other_control_characters_as_they_are) {
  const ScriptedGlove glove;
  termios before = glove.settings();
  for (std::size_t i = 0; i < NCCS; ++i) before.c_cc[i] = static_cast<cc_t>(0x40 + i);
  glove.apply(before);
  before = glove.settings();

  const auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  termios after = glove.settings();
  EXPECT_EQ(after.c_cc[VTIME], 1);
  EXPECT_EQ(after.c_cc[VMIN], 0);
  after.c_cc[VTIME] = before.c_cc[VTIME];
  after.c_cc[VMIN] = before.c_cc[VMIN];
  EXPECT_THAT(after.c_cc, ::testing::ElementsAreArray(before.c_cc));
  EXPECT_EQ(after.c_line, before.c_line);
}

TEST(SerialPort, sets_the_speed_of_the_rate) {
  struct Rate {
    std::int32_t baud;
    speed_t speed;
  };
  const std::vector<Rate> rates{{9600, B9600},       {19200, B19200},     {38400, B38400},
                                {57600, B57600},     {230400, B230400},   {460800, B460800},
                                {921600, B921600},   {1000000, B1000000}, {1500000, B1500000},
                                {2000000, B2000000}, {115200, B115200}};
  for (const Rate& rate : rates) {
    SCOPED_TRACE(rate.baud);
    const ScriptedGlove glove;
    const auto port = SerialPort::open(glove.port(), rate.baud);
    ASSERT_TRUE(port.has_value());
    const termios line = glove.settings();
    EXPECT_EQ(cfgetispeed(&line), rate.speed);
    EXPECT_EQ(cfgetospeed(&line), rate.speed);
  }
}

TEST(SerialPort, sets_115200_for_rates_that_lines_do_not_have) {
  // Among them rates that the system knows, and numbers that are the codes of others.
  for (const std::int32_t baud :
       {250000, 0, -1, 1, 300, 4800, 500000, 3000000, 4000000, 9601, static_cast<std::int32_t>(B2000000),
        std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(baud);
    const ScriptedGlove glove;
    const auto port = SerialPort::open(glove.port(), baud);
    ASSERT_TRUE(port.has_value());
    const termios line = glove.settings();
    EXPECT_EQ(cfgetispeed(&line), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B115200));
  }
}

TEST(SerialPort, asks_for_exclusive_use) {
  const ScriptedGlove glove;
  EXPECT_FALSE(glove.exclusive());
  const auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  EXPECT_TRUE(glove.exclusive());
}

TEST(SerialPort, refuses_a_second_user) {
  const ScriptedGlove glove;
  ASSERT_EQ(::chmod(glove.port().c_str(), 0666), 0);
  const auto second_user = [&] {
    return Child([&](const auto&) {
             test::become_ordinary_user();
             const int descriptor = ::open(glove.port().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
             const bool refused = descriptor < 0 && errno == EBUSY;
             return SerialPort::open(glove.port(), kBaud) ? 1 : (refused ? 2 : 3);
           })
        .wait();
  };
  ASSERT_EQ(second_user(), 1);
  glove.end_exclusive_use();
  const auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  EXPECT_EQ(second_user(), 2);
}

TEST(SerialPort, does_not_become_the_controlling_terminal) {
  const ScriptedGlove glove;
  const int status = Child([&](const auto&) {
                       // A session leader without a terminal would get this one.
                       if (::setsid() < 0) return 1;
                       const auto port = SerialPort::open(glove.port(), kBaud);
                       if (!port) return 2;
                       return ::open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 && errno == ENXIO ? 0 : 3;
                     }).wait();
  EXPECT_EQ(status, 0);
}

TEST(SerialPort, is_not_inherited_by_programs) {
  const ScriptedGlove glove;
  const auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  const int descriptor = descriptor_on(glove.port(), glove.slave());
  ASSERT_GE(descriptor, 0);
  EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(::fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST(SerialPort, is_closed_once_with_the_object) {
  const ScriptedGlove glove;
  const std::size_t before = test::open_descriptors();
  {
    auto port = SerialPort::open(glove.port(), kBaud);
    ASSERT_TRUE(port.has_value());
    EXPECT_EQ(test::open_descriptors(), before + 1);
    SerialPort moved(std::move(*port));
    port.reset();
    EXPECT_EQ(test::open_descriptors(), before + 1);
    moved.write(0x42);
  }
  EXPECT_EQ(test::open_descriptors(), before);
}

TEST(SerialPort, does_not_open_what_is_no_terminal) {
  const test::TempDirectory directory;
  test::write_file(directory.path() / "file", "bytes");
  ASSERT_EQ(::mkfifo(directory.file("fifo").c_str(), 0600), 0);
  const std::size_t before = test::open_descriptors();
  for (const std::string& path : {directory.file("missing"), directory.file("file"), directory.file("fifo"),
                                  directory.path().string(), std::string("/dev/null"), std::string()}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(SerialPort::open(path, kBaud).has_value());
  }
  EXPECT_EQ(test::open_descriptors(), before);
  EXPECT_EQ(test::read_file(directory.path() / "file"), "bytes");
}

TEST(SerialPort, writes_one_byte) {
  ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  for (const std::uint8_t byte : Bytes{0xFF, 0xA5, 0x0A, 0x0D, 0x03, 0x11, 0x00}) port->write(byte);
  EXPECT_TRUE(test::eventually([&] { return glove.heard().size() >= 7; }));
  EXPECT_THAT(glove.heard(), ElementsAre(0xFF, 0xA5, 0x0A, 0x0D, 0x03, 0x11, 0x00));
}

TEST(SerialPort, reads_every_byte_value_unchanged) {
  const ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  glove.send(all);
  Bytes received;
  EXPECT_TRUE(test::eventually([&] {
    const auto bytes = read_once(*port);
    if (bytes) received.insert(received.end(), bytes->begin(), bytes->end());
    return received.size() >= all.size();
  }));
  EXPECT_EQ(received, all);
}

TEST(SerialPort, echoes_nothing) {
  ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  glove.send({0x41, 0x0A, 0x03});
  EXPECT_THAT(read_once(*port).value_or(Bytes{}), ElementsAre(0x41, 0x0A, 0x03));
  EXPECT_TRUE(glove.heard().empty());
}

TEST(SerialPort, reads_at_most_what_there_is_space_for) {
  const ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  glove.send({1, 2, 3, 4, 5});
  EXPECT_THAT(read_once(*port, 3).value_or(Bytes{}), ElementsAre(1, 2, 3));
  EXPECT_THAT(read_once(*port, 3).value_or(Bytes{}), ElementsAre(4, 5));
}

TEST(SerialPort, waits_a_tenth_of_a_second_for_bytes) {
  const ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(read_once(*port), Bytes{});
  // The system counts in ticks of up to 10 ms.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(85));
}

TEST(SerialPort, reads_nothing_from_a_line_that_has_hung_up) {
  ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  glove.unplug();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(read_once(*port), Bytes{});
  port->write(0xFF);
}

TEST(SerialPort, says_when_reading_fails) {
  const ScriptedGlove glove;
  const int status = Child([&](const auto&) {
                       auto port = SerialPort::open(glove.port(), kBaud);
                       if (!port || read_once(*port) != Bytes{}) return 1;
                       const test::ReadsFail reads_fail(glove.slave());
                       return read_once(*port) ? 2 : 0;
                     }).wait();
  EXPECT_EQ(status, 0);
}

TEST(SerialPort, reads_on_when_a_signal_comes) {
  struct sigaction quiet {};
  struct sigaction before {};
  quiet.sa_handler = [](int) {};
  // Without SA_RESTART: a waiting read is cut short.
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, &before), 0);
  const ScriptedGlove glove;
  auto port = SerialPort::open(glove.port(), kBaud);
  ASSERT_TRUE(port.has_value());
  std::atomic<bool> done = false;
  std::atomic<int> failed = 0;
  std::thread reader([&] {
    while (!done) failed += read_once(*port) ? 0 : 1;
  });
  for (int i = 0; i < 50; ++i) {
    ::pthread_kill(reader.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  done = true;
  reader.join();
  EXPECT_EQ(failed, 0);
  ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace tarsil::detail
