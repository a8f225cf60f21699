// The glove's state machine: commands in, transmissions out.
#include "tools/virtual_glove/firmware.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "tools/virtual_glove/random.h"

namespace tarsil::virtual_glove {
namespace {

constexpr auto kAnnouncementPeriod = std::chrono::milliseconds(200);
// Only when the host has had time to set up the line.
constexpr std::chrono::milliseconds kFirstAnnouncement{150};
constexpr auto kLongestLag = std::chrono::seconds(1);

// Marks the device as simulated. The bytes avoid 0x01, so that an identity frame that a host takes for
// streamed data holds no packet magic here.
constexpr std::array<std::uint8_t, 8> kDeviceField = {'V', 'I', 'R', 'T', 'U', 'A', 'L', 0x00};

// Keeps the faults' random sequence apart from the motion's, which has the same seed.
constexpr std::uint64_t kFaultKey = 0x6661756C7473;

Bytes identity_frame(const GloveConfig& config) {
  Identity identity;
  identity.serial = config.serial;
  identity.firmware_major = static_cast<std::uint8_t>(config.firmware_major);
  identity.firmware_minor = static_cast<std::uint8_t>(config.firmware_minor);
  identity.device = kDeviceField;
  return encode_identity(identity);
}

}  // namespace

Clock::duration clock_duration(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::nanoseconds(std::llround(std::min(seconds, kLongestSeconds) * 1e9)));
}

Firmware::Firmware(const GloveConfig& config, Account& account)
    : announce_(config.announce),
      frames_(config.frames),
      side_code_(config.left ? kLeftSideCode : kRightSideCode),
      first_counter_(config.first_counter),
      period_(clock_duration(1.0 / config.hz)),
      identity_frame_(identity_frame(config)),
      motion_(config.seed, config.hz, config.defects),
      plan_(config.faults, derived_seed(config.seed, kFaultKey)),
      account_(account) {}

void Firmware::power_on() {
  host_closed();
  account_.hung = false;
  silent_until_ = TimePoint{};
  streaming_since_.reset();
}

void Firmware::host_opened(TimePoint now) {
  next_announcement_ = now + kFirstAnnouncement;
}

void Firmware::host_closed() {
  account_.streaming = false;
  identities_owed_ = 0;
  backlog_.clear();
}

void Firmware::command(std::uint8_t byte, TimePoint now) {
  if (account_.hung) {
    ++account_.commands_ignored;
  } else if (now < silent_until_) {
    backlog_.push_back(byte);
  } else {
    obey_backlog(now);
    obey(byte, now);
  }
}

void Firmware::obey_backlog(TimePoint now) {
  for (const std::uint8_t byte : std::exchange(backlog_, {})) obey(byte, now);
}

void Firmware::obey(std::uint8_t byte, TimePoint now) {
  if (byte == kResetCommand) {
    ++account_.resets;
    account_.streaming = false;
    ++identities_owed_;
  } else if (byte == kStartCommand) {
    ++account_.starts;
    start(now);
  } else {
    ++account_.commands_ignored;
  }
}

void Firmware::start(TimePoint now) {
  account_.streaming = true;
  next_cycle_ = 0;
  next_cycle_due_ = now;
  streaming_since_ = now;
}

bool Firmware::announces() const {
  return announce_ && account_.hosts_open > 0 && !account_.streaming;
}

std::optional<TimePoint> Firmware::next_wish() const {
  if (!backlog_.empty() || identities_owed_ > 0) return TimePoint{};
  if (streams()) return next_cycle_due_;
  if (announces()) return next_announcement_;
  return std::nullopt;
}

std::optional<TimePoint> Firmware::next_due() const {
  if (account_.hung) return std::nullopt;
  std::optional<TimePoint> due = next_wish();
  if (due) due = std::max(*due, silent_until_);
  return due;
}

Transmission Firmware::transmit(TimePoint now) {
  obey_backlog(now);
  if (identities_owed_ > 0) {
    --identities_owed_;
    next_announcement_ = now + kAnnouncementPeriod;
    return identity();
  }
  if (streams()) return sample(now);
  if (announces()) {
    next_announcement_ = now + kAnnouncementPeriod;
    return identity();
  }
  return {};
}

void Firmware::lose_due(TimePoint now) {
  while (streams() && !account_.hung && next_cycle_due_ <= now) {
    ++next_cycle_;
    next_cycle_due_ += period_;
    ++account_.cycles;
    ++account_.cycles_lost;
    account_.exhausted = frames_ > 0 && account_.cycles >= frames_;
  }
}

Transmission Firmware::identity() {
  ++account_.identities;
  return {.pieces = {identity_frame_}};
}

Transmission Firmware::sample(TimePoint now) {
  if (now - next_cycle_due_ > kLongestLag) next_cycle_due_ = now;
  next_cycle_due_ += period_;

  const std::uint64_t index = next_cycle_++;
  const auto counter = static_cast<std::uint16_t>((first_counter_ + index) & 0xFFFFU);
  const double seconds = std::chrono::duration<double>(now - *streaming_since_).count();
  CycleFate fate = plan_.fate({side_code_, counter, hand_blocks(motion_.at(index))}, seconds);

  ++account_.cycles;
  account_.exhausted = frames_ > 0 && account_.cycles >= frames_;
  if (fate.lost) ++account_.cycles_lost;
  for (std::size_t kind = 0; kind < kFaultKinds; ++kind) account_.faults[kind] += fate.struck[kind];
  account_.hung = fate.hang;
  if (fate.silence_seconds > 0) {
    silent_until_ = now + clock_duration(fate.silence_seconds);
    next_cycle_due_ = silent_until_;
  }
  return {std::move(fate.pieces), !fate.lost, fate.damaged};
}

}  // namespace tarsil::virtual_glove
