// The glove's thread: waits for commands, for hosts that come and go, for its own schedule and for room on
// the line, all in one poll.
#include "tools/virtual_glove/virtual_glove.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <utility>

namespace tarsil::virtual_glove {
namespace {

// The kernel's wake-up for room on a full line can come before the room does, and then only once; a short
// look now and then makes up for it.
constexpr auto kFullLineCheck = std::chrono::milliseconds(20);
constexpr std::chrono::milliseconds kListenerCheck{100};
constexpr auto kLongestWait = std::chrono::hours(1);

Descriptor make_event() {
  Descriptor event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (event.get() < 0) throw std::system_error(errno, std::generic_category(), "cannot make an event");
  return event;
}

// Neither call can fail in a way that matters: a full counter is a raised event, an empty one is a cleared
// event.
void raise_event(const Descriptor& event) {
  static_cast<void>(::eventfd_write(event.get(), 1));
}
void clear_event(const Descriptor& event) {
  eventfd_t count = 0;
  static_cast<void>(::eventfd_read(event.get(), &count));
}

timespec to_timespec(Clock::duration duration) {
  const auto positive = std::max(duration, Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(positive);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(positive - seconds);
  return {static_cast<std::time_t>(seconds.count()), static_cast<long>(rest.count())};
}

GloveConfig validated(GloveConfig config) {
  validate(config);
  return config;
}

}  // namespace

VirtualGlove::VirtualGlove(GloveConfig config)
    : overrun_(config.overrun),
      replug_(config.replug),
      link_(config.link),
      wake_(make_event()),
      finished_(make_event()),
      firmware_(validated(std::move(config)), live_) {
  plug_in();
  publish();
  thread_ = std::thread([this] { run(); });
}

VirtualGlove::~VirtualGlove() {
  stop();
}

std::string VirtualGlove::port() const {
  return link_.path().empty() ? pty_path() : link_.path();
}

std::string VirtualGlove::pty_path() const {
  const std::lock_guard lock(mutex_);
  return pty_path_;
}

void VirtualGlove::unplug() {
  request(PlugRequest::unplug);
}

void VirtualGlove::plug() {
  request(PlugRequest::plug);
}

void VirtualGlove::request(PlugRequest request) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return ended_ || request_ == PlugRequest::none; });
  if (!ended_) request_ = request;
  raise_event(wake_);
  changed_.wait(lock, [this] { return ended_ || request_ == PlugRequest::none; });
  rethrow_failure();
}

void VirtualGlove::stop() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  raise_event(wake_);
  if (thread_.joinable()) thread_.join();
}

Account VirtualGlove::account() const {
  const std::lock_guard lock(mutex_);
  return account_;
}

Bytes VirtualGlove::commands() const {
  const std::lock_guard lock(mutex_);
  return commands_;
}

bool VirtualGlove::wait_until(const std::function<bool(const Account&)>& condition,
                              std::chrono::milliseconds timeout) {
  const TimePoint deadline = Clock::now() + std::min<std::chrono::milliseconds>(timeout, kLongestWait);
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [&] { return ended_ || condition(account_); });
  rethrow_failure();
  return condition(account_);
}

bool VirtualGlove::wait_for_cycles(std::uint64_t cycles, std::chrono::milliseconds timeout) {
  return wait_until([cycles](const Account& account) { return account.cycles >= cycles; }, timeout);
}

bool VirtualGlove::wait_finished(std::chrono::milliseconds timeout) {
  return wait_until([](const Account& account) { return account.finished; }, timeout);
}

void VirtualGlove::rethrow_failure() const {
  if (failure_) std::rethrow_exception(failure_);
}

void VirtualGlove::run() noexcept {
  std::exception_ptr failure;
  try {
    while (step()) wait();
  } catch (const std::exception&) {
    failure = std::current_exception();
  }
  vanish();
  publish();
  {
    const std::lock_guard lock(mutex_);
    failure_ = failure;
    ended_ = true;
  }
  changed_.notify_all();
  raise_event(finished_);
}

// One turn of the loop; false when the glove has been told to stop.
bool VirtualGlove::step() {
  clear_event(wake_);
  PlugRequest request = PlugRequest::none;
  {
    const std::lock_guard lock(mutex_);
    if (stop_) return false;
    request = request_;
  }
  if (request == PlugRequest::plug) come_back();
  if (request == PlugRequest::unplug) vanish();

  keep_replug_times(Clock::now());
  if (pty_) {
    attend_hosts();
    send(Clock::now());
  }
  live_.line_full = transmitter_.needs_room();
  live_.finished = live_.exhausted && live_.hosts_open == 0 && live_.hosts > 0;
  if (live_.finished) raise_event(finished_);

  if (request != PlugRequest::none) {
    const std::lock_guard lock(mutex_);
    request_ = PlugRequest::none;
  }
  publish();
  return true;
}

void VirtualGlove::plug_in() {
  auto pty = std::make_unique<Pty>();
  link_.point_to(pty->path());
  pty_ = std::move(pty);
  firmware_.power_on();
  live_.plugged = true;
}

void VirtualGlove::come_back() {
  return_at_.reset();
  if (pty_) return;
  plug_in();
  ++live_.replugs;
}

void VirtualGlove::vanish() {
  return_at_.reset();
  if (!pty_) return;
  link_.remove();
  host_closed();
  pty_.reset();
  live_.hosts_open = 0;
  live_.plugged = false;
}

// Vanishes and comes back on its own, as configured. A glove that has sent all it had stays.
void VirtualGlove::keep_replug_times(TimePoint now) {
  if (return_at_ && now >= *return_at_) come_back();
  const std::optional<TimePoint> vanish_at = vanishing_due();
  if (!vanish_at || now < *vanish_at) return;
  vanish();
  return_at_ = now + clock_duration(replug_->away);
}

std::optional<TimePoint> VirtualGlove::vanishing_due() const {
  const std::optional<TimePoint> since = firmware_.streaming_since();
  if (!replug_ || !pty_ || !since || live_.exhausted) return std::nullopt;
  if (replug_->times > 0 && live_.replugs >= replug_->times) return std::nullopt;
  return *since + clock_duration(replug_->seconds);
}

// Commands are read first and obeyed last: the opening by whoever wrote them is then among the events, and so
// is the leaving of the host before. A command that came with nobody left on the line is nobody's.
void VirtualGlove::attend_hosts() {
  const Bytes commands = pty_->read_commands();
  if (!commands.empty()) {
    const std::lock_guard lock(mutex_);
    commands_.insert(commands_.end(), commands.begin(), commands.end());
  }
  const TimePoint now = Clock::now();
  obey_host_events(now);
  if (live_.hosts_open == 0) return;
  for (const std::uint8_t byte : commands) firmware_.command(byte, now);
  if (!commands.empty()) listener_check_at_.reset();
  free_from_listeners(now);
}

// A host that looks for gloves opens the line, only listens, and opens it anew a moment after it has closed
// it: sooner than its closing could be noticed here. So a host that says nothing is not left the exclusive
// use.
void VirtualGlove::free_from_listeners(TimePoint now) {
  if (!listener_check_at_ || now < *listener_check_at_) return;
  pty_->end_exclusive_use();
  listener_check_at_ = now + kListenerCheck;
}

void VirtualGlove::obey_host_events(TimePoint now) {
  bool left = false;
  for (const HostEvent event : pty_->read_events()) {
    if (event == HostEvent::opened) {
      ++live_.hosts;
      ++live_.hosts_open;
      firmware_.host_opened(now);
      if (live_.hosts_open == 1) listener_check_at_ = now + kListenerCheck;
    } else if (live_.hosts_open > 0 && --live_.hosts_open == 0) {
      left = true;
      host_closed();
    }
  }
  if (!left) return;
  pty_->discard_unread();
  if (live_.hosts_open == 0) pty_->end_exclusive_use();
}

void VirtualGlove::host_closed() {
  if (transmitter_.busy() && transmitter_.transmission().is_packet) ++live_.abandoned;
  transmitter_.drop();
  firmware_.host_closed();
  listener_check_at_.reset();
}

void VirtualGlove::send(TimePoint now) {
  if (!transmitter_.busy()) {
    const std::optional<TimePoint> due = firmware_.next_due();
    if (!due || *due > now) return;
    transmitter_.begin(firmware_.transmit(now));
    if (!transmitter_.busy()) return;
  }
  live_.bytes += transmitter_.advance(*pty_, now);
  if (overrun_ && transmitter_.needs_room()) firmware_.lose_due(now);
  if (transmitter_.busy() || !transmitter_.transmission().is_packet) return;
  ++live_.packets;
  if (transmitter_.transmission().damaged) ++live_.damaged;
}

TimePoint VirtualGlove::next_wake() const {
  TimePoint wake = Clock::now() + kLongestWait;
  if (!pty_) return return_at_ ? std::min(wake, *return_at_) : wake;
  wake = std::min(wake, vanishing_due().value_or(wake));
  if (listener_check_at_) wake = std::min(wake, *listener_check_at_);
  if (!transmitter_.busy()) return std::min(wake, firmware_.next_due().value_or(wake));
  if (transmitter_.needs_room()) return std::min(wake, Clock::now() + kFullLineCheck);
  return std::min(wake, transmitter_.paused_until().value_or(wake));
}

void VirtualGlove::wait() {
  std::array<pollfd, 3> files{{{wake_.get(), POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}}};
  if (pty_) {
    files[1].fd = pty_->events_fd();
    files[2].fd = pty_->line_fd();
    if (transmitter_.needs_room()) files[2].events |= POLLOUT;
  }
  const timespec limit = to_timespec(next_wake() - Clock::now());
  // An interrupted wait is a short one: the loop looks at everything again anyway.
  if (::ppoll(files.data(), files.size(), &limit, nullptr) < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for the line");
  }
}

void VirtualGlove::publish() {
  {
    const std::lock_guard lock(mutex_);
    account_ = live_;
    pty_path_ = pty_ ? pty_->path() : std::string();
  }
  changed_.notify_all();
}

}  // namespace tarsil::virtual_glove
