// Lines are spelt out here rather than made by the library: they are what the tool is held to.
#include "tests/recording_tool/sample_recording.h"

#include <algorithm>
#include <filesystem>

namespace tarsil::test {

namespace {

std::string time_text(unsigned hundredths) {
  const std::string digits = std::to_string(100 + hundredths % 100).substr(1);
  return std::to_string(1700000000 + hundredths / 100) + "." + digits + "0000";
}

}  // namespace

ProcessOptions recording_tool(const std::vector<std::string>& arguments) {
  ProcessOptions options;
  options.command = {TARSIL_RECORDING_TOOL};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  return options;
}

Finished run_recording_tool(const std::vector<std::string>& arguments) {
  return run(recording_tool(arguments));
}

std::string header_line() {
  return R"({"type":"header","version":1,"sdk":"0.3.0","format":"tsl","file":"take.tsl","t_created":1700000000.000000,)"
         R"("metadata":{"side": "left"}})"
         "\n";
}

std::string frame_line(unsigned seq, bool stale) {
  return R"({"type":"frame","seq":)" + std::to_string(seq) + R"(,"t":)" + time_text(seq) +
         R"(,"q":[0.500000],"touch":[0.250000],"imu":[{"acc":[0.010,-0.020,0.990],"gyro":[0.500,0.000,-1.250]}])" +
         (stale ? R"(,"stale":true})" : R"(,"stale":false})") + "\n";
}

std::string marker_line(unsigned hundredths) {
  return R"({"type":"marker","t":)" + time_text(hundredths) + R"(,"name":"grasp","data":{"object": "cup"}})" +
         "\n";
}

std::string small_recording(unsigned frames) {
  std::string text = header_line();
  for (unsigned seq = 0; seq < frames; ++seq) text += frame_line(seq);
  return text;
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

}  // namespace tarsil::test
