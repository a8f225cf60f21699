// The health of the joint sensors from a recording: what `tarsil health` says about a glove that is plugged
// in, for a session of last week.
//
//   recording_health FILE
#include <exception>
#include <iostream>

#include "tarsil/tarsil.h"

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "Usage: recording_health FILE\n";
    return 2;
  }
  // Only the tsl format can be read back. The frames are all there at once; nothing has to be played.
  const tarsil::Replayer recording(argv[1]);
  const tarsil::HealthReport report = tarsil::analyze_health(recording.frames(), recording.device_info());
  std::cout << tarsil::format_health_report(report);

  // The numbers behind the table: which joint to look at first.
  const tarsil::JointHealth* worst = nullptr;
  for (const tarsil::JointHealth& joint : report.joints) {
    if (worst == nullptr || joint.score < worst->score) worst = &joint;
  }
  if (worst != nullptr) std::cout << "worst joint: " << worst->dof << '\n';
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
