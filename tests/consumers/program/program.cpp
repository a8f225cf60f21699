// A program as somebody else would write it, with something from every part of the library: what it includes
// is installed, and what it calls is in the library.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "tarsil/tarsil.h"

namespace {

void record(const std::filesystem::path& path) {
  tarsil::MockSource source({.hz = 1000, .realtime = false});
  tarsil::Recorder recorder(path, {{"serial", source.device_info().serial}, {"side", "left"}});
  for (int i = 0; i < 20; ++i) recorder.write_frame(source.read_frame());
  recorder.add_marker("end", {{"reason", "enough"}});
}

void replay(const std::filesystem::path& path) {
  const tarsil::Device device(std::make_shared<tarsil::Replayer>(path, tarsil::ReplayerConfig{.speed = 0}));
  int frames = 0;
  for (; device.source()->is_open(); ++frames) device.source()->read_frame();
  std::cout << device.info().serial << ' ' << (device.info().side == 0 ? "left" : "right") << ", " << frames
            << " frames\n";
}

void check_health(const std::filesystem::path& path) {
  const tarsil::Replayer recording(path);
  const tarsil::HealthReport report = tarsil::analyze_health(recording.frames(), recording.device_info());
  std::cout << report.joints.size() << " joints, " << recording.markers().size() << " marker, document "
            << (tarsil::health_report_to_json(report, recording.device_info()).empty() ? "empty" : "made")
            << '\n';
}

void look_for_a_glove() {
  std::cout << "ports: " << (tarsil::list_ports().size() < 1000 ? "listed" : "too many") << '\n';
  tarsil::ReconnectingSource source({
      .factory =
          [] {
            return std::make_shared<tarsil::SerialSource>(tarsil::SerialConfig{.port = "/nowhere/glove"});
          },
      .max_attempts = 0,
  });
  try {
    source.read_frame();
  } catch (const tarsil::StreamUnderrunError& error) {
    // Errors are caught by their type only if program and library agree on what the type is.
    std::cout << error.what() << '\n';
  }
}

void ask_for_a_certificate() {
  try {
    tarsil::upload_health_report("http://127.0.0.1:1/", "{}", "");
  } catch (const std::exception& error) {
    std::cout << std::string(error.what()).substr(0, 13) << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) return 2;
  const std::filesystem::path path = argv[1];
  std::cout << "tarsil " << tarsil::kVersion << '\n';
  record(path);
  replay(path);
  check_health(path);
  look_for_a_glove();
  ask_for_a_certificate();
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
