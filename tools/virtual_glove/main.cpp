// The program around the virtual glove: reads the command line, says where the port is, waits for the end and
// prints the account.
#include <poll.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/virtual_glove/account.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/options.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace {

namespace vg = tarsil::virtual_glove;

constexpr int kUsageError = 2;

// Makes the signals that end the program readable from a descriptor. To be called before there is another
// thread, so that the signals are blocked in all of them.
vg::Descriptor receive_end_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // A reader of the output that goes away must not end the program before it has removed its link.
  vg::Descriptor received(::signalfd(-1, &signals, SFD_CLOEXEC));
  if (received.get() < 0 || ::signal(SIGPIPE, SIG_IGN) == SIG_ERR ||
      ::pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot receive signals");
  }
  return received;
}

void wait_for_end(const vg::VirtualGlove& glove, const vg::Descriptor& signals) {
  std::array<pollfd, 2> files{{{signals.get(), POLLIN, 0}, {glove.finished_fd(), POLLIN, 0}}};
  while (::poll(files.data(), files.size(), -1) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot wait for the end");
  }
}

int run(const vg::GloveConfig& config) {
  const vg::Descriptor signals = receive_end_signals();
  vg::VirtualGlove glove(config);
  std::cout << "port " << glove.port() << std::endl;
  wait_for_end(glove, signals);
  glove.stop();
  vg::write_account(std::cout, glove.account());
  std::cout.flush();
  // A glove that failed has ended by itself; waiting on it tells why.
  glove.wait_finished(std::chrono::milliseconds(0));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string_view> words(argv + 1, argv + argc);
    const vg::Options options = vg::parse_options(words);
    if (options.help) {
      std::cout << vg::kHelp;
      return 0;
    }
    return run(options.config);
  } catch (const vg::OptionError& error) {
    std::cerr << "tarsil-virtual-glove: " << error.what() << "\nTry tarsil-virtual-glove --help.\n";
    return kUsageError;
  } catch (const std::exception& error) {
    std::cerr << "tarsil-virtual-glove: " << error.what() << '\n';
    return 1;
  }
}
