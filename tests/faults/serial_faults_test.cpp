// The sources that read a glove, and the search for one, while their calls fail in turn.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "tarsil/core/device.h"
#include "tarsil/core/errors.h"
#include "tarsil/core/thread.h"
#include "tarsil/serial/port_scan.h"
#include "tarsil/serial/reconnecting_source.h"
#include "tarsil/serial/serial_source.h"
#include "tests/faults/glove_on_port.h"
#include "tests/faults/library_faults.h"

namespace tarsil {
namespace {

using test::error_of;
using test::fail_each_in_turn;
using test::use_with;

constexpr const char* kClosed = "SerialSource stream closed";
constexpr const char* kNoMemory = "std::bad_alloc";
constexpr const char* kNoThread = "Resource temporarily unavailable";

constexpr int kFrames = 10;

/// Errors that say that a port cannot be had.
constexpr const char* kOpenErrors[] = {"EACCES", "EBUSY", "EMFILE", "ENFILE",
                                       "ENOMEM", "EIO",   "EAGAIN", "ENXIO"};

class SerialFaults : public testing::Test {
 protected:
  [[nodiscard]] const std::string& port() const { return glove_.path(); }
  [[nodiscard]] std::string on_port(const std::string& call) const { return call + "@" + port(); }

  /// Reads some frames from the glove.
  void read_frames(std::int32_t timeout_ms = 5000) {
    SerialSource source({.port = port(), .timeout_ms = timeout_ms});
    for (int i = 0; i < kFrames; ++i) source.read_frame();
  }

  test::GloveOnPort glove_;
};

using SerialSourceFaults = SerialFaults;

TEST_F(SerialSourceFaults, in_opening_the_port_leave_the_source_closed) {
  std::vector<std::string> rules = {on_port("tcgetattr") + ":1:EIO", on_port("tcsetattr") + ":1:EIO"};
  for (const char* const fault : kOpenErrors) rules.push_back(on_port("open") + ":1:" + fault);
  for (const std::string& rule : rules) {
    EXPECT_EQ(use_with(rule,
                       [&] {
                         SerialSource source({.port = port()});
                         EXPECT_FALSE(source.is_open()) << rule;
                         EXPECT_EQ(error_of([&] { source.read_frame(); }), kClosed) << rule;
                       }),
              1U)
        << rule;
  }
}

TEST_F(SerialSourceFaults, in_any_read_end_the_stream) {
  fail_each_in_turn(on_port("read"), "EIO", [&](const std::string& rules, std::size_t number) {
    ASSERT_TRUE(glove_.wait_until_free());
    const std::string error = error_of([&] { read_frames(); });
    // Reads bring as much as has come, so that the last ones may not be needed.
    EXPECT_TRUE(error == kClosed || (error.empty() && number != 1)) << rules << ": " << error;
  });
}

TEST_F(SerialSourceFaults, in_a_command_are_silence) {
  for (const char* const command : {":1:EIO", ":2:EIO", ":1:NONE", ":1:EAGAIN:0"}) {
    ASSERT_TRUE(glove_.wait_until_free());
    use_with(on_port("write") + command, [&] {
      EXPECT_EQ(error_of([&] { read_frames(300); }),
                "No data received from " + port() +
                    " within timeout. Check that the Tarsil glove is powered and sending data.");
    });
  }
}

TEST_F(SerialSourceFaults, that_are_none_are_survived) {
  for (const std::string& rules :
       {on_port("open") + ":1:EINTR:3:4", on_port("read") + ":1:EINTR:3:4", on_port("write") + ":1:EINTR:3:4",
        on_port("read") + ":1:ONE:0", on_port("ioctl") + ":1:EBUSY:0", std::string("cfsetispeed:1:EINVAL"),
        std::string("cfsetospeed:1:EINVAL"), on_port("close") + ":1:EIO"}) {
    ASSERT_TRUE(glove_.wait_until_free());
    EXPECT_GE(use_with(rules, [&] { EXPECT_EQ(error_of([&] { read_frames(); }), "") << rules; }), 1U)
        << rules;
  }
}

TEST_F(SerialSourceFaults, in_starting_the_reader_are_told) {
  use_with("thread:1:EAGAIN", [&] { EXPECT_EQ(error_of([&] { read_frames(); }), kNoThread); });
}

TEST_F(SerialSourceFaults, of_memory_end_the_stream_at_most) {
  for (const char* const fault : {"ENOMEM", "ENOMEM:0"}) {
    fail_each_in_turn("memory", fault, [&](const std::string& rules, std::size_t number) {
      ASSERT_TRUE(glove_.wait_until_free());
      const std::string error = error_of([&] { read_frames(); });
      EXPECT_TRUE(error.empty() || (number != 0 && (error == kClosed || error == kNoMemory)))
          << rules << ": " << error;
    });
  }
}

class ReconnectingSourceFaults : public SerialFaults {
 protected:
  [[nodiscard]] ReconnectingConfig config() const {
    ReconnectingConfig config;
    config.factory = [port = port()] { return std::make_shared<SerialSource>(SerialConfig{.port = port}); };
    config.read_timeout_s = 0.2F;
    config.initial_backoff_s = 0.01F;
    return config;
  }

  /// Reads until there were some fresh frames, whatever comes between them; false if they do not come.
  static bool reads_on(ReconnectingSource& source) {
    int fresh = 0;
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (fresh < kFrames && std::chrono::steady_clock::now() < deadline) {
      try {
        if (!source.read_frame().stale) ++fresh;
      } catch (const std::bad_alloc&) {
        // The consumer's own part of reading takes memory, too.
      }
    }
    return fresh == kFrames;
  }
};

TEST_F(ReconnectingSourceFaults, of_the_port_pass) {
  std::vector<std::string> calls = {on_port("tcgetattr") + ":1:EIO:2", on_port("tcsetattr") + ":1:EIO:2",
                                    on_port("read") + ":1:EIO", on_port("read") + ":2:EIO"};
  for (const char* const fault : kOpenErrors) calls.push_back(on_port("open") + ":1:" + fault + ":2");
  for (const std::string& rules : calls) {
    ASSERT_TRUE(glove_.wait_until_free());
    EXPECT_GE(use_with(rules,
                       [&] {
                         ReconnectingSource source(config());
                         EXPECT_TRUE(reads_on(source)) << rules;
                       }),
              1U)
        << rules;
  }
}

/// How many reads it takes depends on how much has come by then.
TEST_F(ReconnectingSourceFaults, of_the_port_that_come_back_pass_each_time) {
  use_with(on_port("read") + ":3:EIO:1:5", [&] {
    ReconnectingSource source(config());
    EXPECT_TRUE(reads_on(source));
  });
}

TEST_F(ReconnectingSourceFaults, of_the_port_that_stay_end_in_giving_up) {
  use_with(on_port("open") + ":1:EMFILE:0", [&] {
    ReconnectingConfig patient = config();
    patient.max_attempts = 3;
    ReconnectingSource source(std::move(patient));
    EXPECT_TRUE(test::eventually([&] { return !source.is_open(); }));
    EXPECT_EQ(error_of([&] { source.read_frame(); }), "ReconnectingSource: closed");
  });
}

TEST_F(ReconnectingSourceFaults, in_starting_threads_of_its_own_are_told) {
  for (const char* const rules : {"thread:2:EAGAIN", "thread:3:EAGAIN", "thread:1:EAGAIN:0"}) {
    ASSERT_TRUE(glove_.wait_until_free());
    use_with(rules,
             [&] { EXPECT_EQ(error_of([&] { ReconnectingSource source(config()); }), kNoThread) << rules; });
  }
}

TEST_F(ReconnectingSourceFaults, in_starting_a_reader_pass) {
  use_with("thread:1:EAGAIN", [&] {
    ReconnectingSource source(config());
    EXPECT_TRUE(reads_on(source));
  });
}

TEST_F(ReconnectingSourceFaults, of_memory_pass) {
  fail_each_in_turn("memory", "ENOMEM", [&](const std::string& rules, std::size_t /*number*/) {
    ASSERT_TRUE(glove_.wait_until_free());
    std::unique_ptr<ReconnectingSource> source;
    const std::string error = error_of([&] { source = std::make_unique<ReconnectingSource>(config()); });
    EXPECT_TRUE(source ? reads_on(*source) : error == kNoMemory) << rules << ": " << error;
  });
}

TEST_F(ReconnectingSourceFaults, of_memory_that_stay_hold_nobody_up) {
  fail_each_in_turn("memory", "ENOMEM:0", [&](const std::string& rules, std::size_t /*number*/) {
    ASSERT_TRUE(glove_.wait_until_free());
    const std::string error = error_of([&] {
      ReconnectingSource source(config());
      // Repetitions of nothing take no memory.
      for (int i = 0; i < kFrames && !source.read_frame().stale; ++i) {
      }
    });
    EXPECT_TRUE(error.empty() || error == kNoMemory) << rules << ": " << error;
  });
}

TEST(StartThreadFaults, give_the_caller_its_mask_back) {
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  for (const char* const rules : {"thread:1:EAGAIN", "memory:1:ENOMEM"}) {
    use_with(rules, [] { EXPECT_NE(error_of([] { detail::start_thread([] {}).join(); }), ""); });
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < NSIG; ++signal) {
      EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << rules << " " << signal;
    }
  }
}

/// A device directory with two gloves, of which the first announces itself.
class SearchFaults : public testing::Test {
 protected:
  [[nodiscard]] std::string entry(const std::string& name) const { return directory_.file(name); }
  [[nodiscard]] std::string directory() const { return directory_.path(); }

  void wait_until_free() {
    const auto free = [](const auto& account) { return account.hosts_open == 0; };
    ASSERT_TRUE(first_.wait_until(free, test::kPatience));
    ASSERT_TRUE(second_.wait_until(free, test::kPatience));
  }

  /// The serials that discovery finds.
  [[nodiscard]] std::vector<std::string> found() {
    wait_until_free();
    std::vector<std::string> serials;
    for (const DeviceInfo& glove : detail::discover_in(directory())) serials.push_back(glove.serial);
    return serials;
  }

  test::TempDirectory directory_;
  virtual_glove::VirtualGlove first_{{.link = entry("ttyACM0"), .serial = "A", .hz = 1000, .announce = true}};
  virtual_glove::VirtualGlove second_{{.link = entry("ttyACM1"), .serial = "B", .hz = 1000}};
};

using Serials = std::vector<std::string>;

TEST_F(SearchFaults, of_one_port_leave_the_other) {
  std::vector<std::string> calls;
  for (const std::string call : {"tcgetattr", "tcsetattr", "read"})
    calls.push_back(call + "@" + entry("ttyACM0") + ":1:EIO");
  for (const char* const fault : kOpenErrors) calls.push_back("open@" + entry("ttyACM0") + ":1:" + fault);
  calls.emplace_back("thread:1:EAGAIN");
  for (const std::string& rules : calls) {
    use_with(rules, [&] { EXPECT_EQ(found(), Serials{"B"}) << rules; });
  }
}

TEST_F(SearchFaults, of_the_directory_are_told) {
  for (const char* const fault : {"EACCES", "EMFILE", "ENFILE", "ENOMEM", "EIO"}) {
    const std::string rules = "opendir@" + directory() + ":1:" + fault;
    EXPECT_EQ(use_with(rules, [&] { EXPECT_THROW(found(), std::filesystem::filesystem_error) << rules; }),
              1U);
  }
  fail_each_in_turn("readdir@" + directory(), "EIO", [&](const std::string& rules, std::size_t number) {
    Serials serials;
    const std::string error = error_of([&] { serials = found(); });
    EXPECT_EQ(error.empty(), number == 0) << rules << ": " << error;
    EXPECT_EQ(serials.size(), number == 0 ? 2U : 0U) << rules;
  });
}

TEST_F(SearchFaults, of_memory_hide_a_glove_or_are_told) {
  fail_each_in_turn("memory", "ENOMEM", [&](const std::string& rules, std::size_t number) {
    Serials serials;
    const std::string error = error_of([&] { serials = found(); });
    EXPECT_TRUE(error.empty() ? serials.size() >= (number == 0 ? 2U : 1U) : error == kNoMemory)
        << rules << ": " << error;
  });
}

TEST_F(SearchFaults, of_memory_that_stay_are_told_or_find_nothing) {
  fail_each_in_turn("memory", "ENOMEM:0", [&](const std::string& rules, std::size_t number) {
    Serials serials;
    const std::string error = error_of([&] { serials = found(); });
    EXPECT_TRUE(error.empty() ? serials.size() <= 2U : number != 0 && error == kNoMemory)
        << rules << ": " << error;
  });
}

TEST_F(SearchFaults, of_a_port_do_not_end_the_listening) {
  const std::string first = "@" + entry("ttyACM0");
  const std::string second = "@" + entry("ttyACM1");
  // A read that fails brings nothing, like any that comes back without a byte.
  for (const std::string& rules :
       {"read" + first + ":1:EIO", "read" + first + ":1:EINTR:3:4", "open" + first + ":1:EINTR:3:4",
        "ioctl" + first + ":1:EBUSY", "open" + second + ":1:EBUSY", "close" + first + ":1:EIO"}) {
    wait_until_free();
    EXPECT_GE(
        use_with(rules,
                 [&] { EXPECT_EQ(detail::auto_detect_port_in(directory()), entry("ttyACM0")) << rules; }),
        rules.starts_with("open" + second) ? 0U : 1U);
  }
  for (const std::string& rules :
       {"open" + first + ":1:EMFILE", "tcgetattr" + first + ":1:EIO", "tcsetattr" + first + ":1:EIO"}) {
    wait_until_free();
    use_with(rules, [&] {
      EXPECT_EQ(error_of([&] { static_cast<void>(detail::auto_detect_port_in(directory())); }).substr(0, 47),
                "No Tarsil glove detected on any serial port. Ma")
          << rules;
    });
  }
}

}  // namespace
}  // namespace tarsil
