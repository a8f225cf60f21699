// A glove without hardware, on a thread of its own: plug it in by constructing it, open port() as a host
// would.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/virtual_glove/account.h"
#include "tools/virtual_glove/config.h"
#include "tools/virtual_glove/descriptor.h"
#include "tools/virtual_glove/firmware.h"
#include "tools/virtual_glove/port_link.h"
#include "tools/virtual_glove/pty.h"
#include "tools/virtual_glove/transmitter.h"

namespace tarsil::virtual_glove {

/// Runs a Firmware on a Pty. All functions may be called from any thread except the glove's own.
///
/// The account stays exact whatever the host does: a cycle that the line has no room for is delayed, or, if
/// the glove is set up for overruns, lost and counted. While the line is full the glove waits for the host;
/// the host's leaving, a pulled plug or `stop` ends the wait as well.
class VirtualGlove {
 public:
  /// Opens the pseudo-terminal, places the link and starts. Throws std::invalid_argument for settings outside
  /// their limits and std::runtime_error if the line or the link cannot be made.
  explicit VirtualGlove(GloveConfig config = {});

  /// Stops.
  ~VirtualGlove();
  VirtualGlove(const VirtualGlove&) = delete;
  VirtualGlove& operator=(const VirtualGlove&) = delete;

  /// What a host opens: the link if there is one, else the pseudo-terminal.
  std::string port() const;

  /// Path of the pseudo-terminal, a new one after every replug; empty while unplugged.
  std::string pty_path() const;

  /// Pulls the plug: the line hangs up and the link vanishes. Returns once that has happened; does nothing if
  /// unplugged.
  void unplug();

  /// Plugs the glove in again, on a new pseudo-terminal. Returns once hosts can open it; does nothing if
  /// plugged. Throws what kept it from coming back, if anything did.
  void plug();

  /// Ends the glove for good, unplugged. Returns promptly; calling it again does nothing. One thread at a
  /// time may call it.
  void stop();

  /// A snapshot of the counts.
  Account account() const;

  /// All bytes that hosts have written, in order.
  Bytes commands() const;

  /// Waits until `condition` holds for the account, at most `timeout`; returns whether it does. Throws what
  /// ended the glove if it failed meanwhile. The condition is called with the glove's lock held: it must not
  /// call the glove.
  bool wait_until(const std::function<bool(const Account&)>& condition, std::chrono::milliseconds timeout);

  /// wait_until for a number of sampled cycles.
  bool wait_for_cycles(std::uint64_t cycles, std::chrono::milliseconds timeout);

  /// wait_until for the end of a limited number of cycles, host gone.
  bool wait_finished(std::chrono::milliseconds timeout);

  /// For the poll of a program: readable once the glove has finished, or has ended.
  int finished_fd() const { return finished_.get(); }

 private:
  enum class PlugRequest { none, plug, unplug };

  // On the glove's thread.
  void run() noexcept;
  bool step();
  void plug_in();
  void come_back();
  void vanish();
  void keep_replug_times(TimePoint now);
  std::optional<TimePoint> vanishing_due() const;
  void attend_hosts();
  void obey_host_events(TimePoint now);
  void host_closed();
  void free_from_listeners(TimePoint now);
  void send(TimePoint now);
  void wait();
  TimePoint next_wake() const;
  void publish();

  // On the caller's.
  void request(PlugRequest request);
  void rethrow_failure() const;

  const bool overrun_;
  const std::optional<Replug> replug_;
  PortLink link_;
  Descriptor wake_;
  Descriptor finished_;

  // Touched by the glove's thread only, once it runs.
  Account live_;
  Firmware firmware_;
  Transmitter transmitter_;
  std::unique_ptr<Pty> pty_;
  std::optional<TimePoint> return_at_;
  std::optional<TimePoint> listener_check_at_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stop_ = false;
  bool ended_ = false;
  PlugRequest request_ = PlugRequest::none;
  Account account_;
  Bytes commands_;
  std::string pty_path_;
  std::exception_ptr failure_;

  std::thread thread_;
};

}  // namespace tarsil::virtual_glove
