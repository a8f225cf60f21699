// Arbitrary reports as table and document, and arbitrary angles through the analysis that makes reports.
// Input: the texts and numbers of a report, as take_report() and take_frames() read them.
#include <array>
#include <bit>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "tarsil/core/version.h"
#include "tarsil/health/analysis.h"
#include "tarsil/health/report.h"
#include "tests/health/plain_analysis.h"

namespace tarsil::fuzz {

namespace {

template <typename... Values>
std::string printed(const char* format, Values... values) {
  std::array<char, 512> text;
  const int length = std::snprintf(text.data(), text.size(), format, values...);
  require(length >= 0 && static_cast<std::size_t>(length) < text.size(), "there is room for the number");
  return text.data();
}

/// A score that no whole number of per cent can hold counts as 0.
int percent(float score) {
  const float hundredfold = 100.0F * score;
  return hundredfold > -2147483648.0F && hundredfold < 2147483648.0F ? static_cast<int>(hundredfold) : 0;
}

std::string plain_table(const HealthReport& report) {
  const std::string rule = std::string(56, '-') + "\n";
  std::string text =
      "\nHealth check \u2014 " + report.device_serial + "  fw " + report.device_firmware + "\n";
  text += printed("Frames analyzed: %d\n\n", report.frames_analyzed);
  text += printed("%-6s%-10s%-14s%-16s%-10s\n", "DOF", "Score", "Noise(mrad)", "Backlash(mrad)", "Dropouts");
  text += rule;
  for (const JointHealth& joint : report.joints) {
    const float noise = joint.noise_rms * 1000.0F;
    const float backlash = joint.backlash * 1000.0F;
    text += printed("%4d  %6d%%  %10.1f  %12.1f  %6d", joint.dof, percent(joint.score),
                    static_cast<double>(noise), static_cast<double>(backlash), joint.dropouts);
    text += joint.score > 0.85F ? " \u2713\n" : joint.score > 0.6F ? " \u26A0\n" : " \u2717\n";
  }
  return text + rule + printed("Overall: %d%%\n", percent(report.overall_score));
}

/// Empty for a time that no calendar holds.
std::string plain_time(double timestamp) {
  if (!(timestamp > -9.2e18 && timestamp < 9.2e18)) return "";
  const auto seconds = static_cast<std::time_t>(timestamp);
  std::tm calendar{};
  if (gmtime_r(&seconds, &calendar) == nullptr) return "";
  std::array<char, 64> text;  // roomy: the year 2147485547 has to fit the product's buffer, too
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &calendar);
  return {text.data(), length};
}

std::string plain_document(const HealthReport& report, const DeviceInfo& info) {
  std::string text = "{\n  \"sdk_version\": \"" + std::string(kVersion) + "\",\n  \"os\": \"Linux\",\n";
  text += "  \"timestamp\": \"" + plain_time(report.timestamp) + "\",\n";
  text += "  \"device_serial\": \"" + report.device_serial + "\",\n";
  text += "  \"device_firmware\": \"" + report.device_firmware + "\",\n";
  text += printed("  \"device_side\": \"%s\",\n", info.side == 0 ? "L" : "R");
  text += printed("  \"device_n_dofs\": %d,\n", info.n_dofs);
  text += printed("  \"frames_analyzed\": %d,\n", report.frames_analyzed);
  text += printed("  \"overall_score\": %.6f,\n  \"joints\": [\n", static_cast<double>(report.overall_score));
  std::size_t left = report.joints.size();
  for (const JointHealth& joint : report.joints) {
    text += printed("    {\"dof\": %d, \"name\": \"Joint %lld\", ", joint.dof, joint.dof + 1LL);
    text += printed("\"score\": %.6f, ", static_cast<double>(joint.score));
    text += printed("\"noise_rms\": %.6f, ", static_cast<double>(joint.noise_rms));
    text += printed("\"backlash\": %.6f, ", static_cast<double>(joint.backlash));
    text += printed("\"dropouts\": %d}%s\n", joint.dropouts, --left > 0 ? "," : "");
  }
  return text + "  ]\n}\n";
}

void check_report(const HealthReport& report, const DeviceInfo& info) {
  require(format_health_report(report) == plain_table(report), "the table is what printf makes of it");
  require(health_report_to_json(report, info) == plain_document(report, info),
          "the document is what printf makes of it");
}

HealthReport take_report(Input& input) {
  HealthReport report;
  report.device_serial = input.text();
  report.device_firmware = input.text();
  report.overall_score = input.number<float>();
  report.frames_analyzed = input.number<std::int32_t>();
  report.timestamp = input.number<double>();
  report.joints.resize(input.byte() % 32);
  for (JointHealth& joint : report.joints) {
    joint.dof = input.number<std::int32_t>();
    joint.score = input.number<float>();
    joint.noise_rms = input.number<float>();
    joint.backlash = input.number<float>();
    joint.dropouts = input.number<std::int32_t>();
  }
  return report;
}

/// Angles of any bits, or a walk in small steps, around the sizes at which the analysis decides.
class Angles {
 public:
  explicit Angles(bool walk) : walk_(walk) {}

  float next(Input& input) {
    if (!walk_) return input.number<float>();
    constexpr std::array<float, 8> kSteps{0.0F,          0.0005F, 0.00049999997F, 0.003F,
                                          0.0030000003F, 0.01F,   0.06F,          1.5F};
    const std::uint8_t step = input.byte();
    const float size = kSteps[step % kSteps.size()];
    // A walk from 0 keeps some steps exact; each of the others is off by what the sum rounds away.
    return value_ = (step & 0x40) != 0 ? 0.0F : (step & 0x80) != 0 ? value_ - size : value_ + size;
  }

 private:
  bool walk_;
  float value_ = 0.0F;
};

/// Frames of `width` angles; after a byte above 250 one of fewer.
std::vector<Frame> take_frames(Input& input, std::size_t width) {
  Angles angles(input.byte() % 2 != 0);
  std::vector<Frame> frames;
  while (!input.empty()) {
    const std::uint8_t gap = input.byte();
    Frame& frame = frames.emplace_back();
    frame.q.resize(gap > 250 ? std::min<std::size_t>(width, gap - 251U) : width);
    for (float& value : frame.q) value = angles.next(input);
  }
  return frames;
}

void check_analysis(const std::vector<Frame>& frames, const DeviceInfo& info) {
  const HealthReport report = analyze_health(frames, info);
  const HealthReport expected =
      test::plain_analysis(frames, static_cast<std::size_t>(std::max(info.n_dofs, 0)));
  require(report.frames_analyzed == static_cast<std::int32_t>(frames.size()), "frames are counted");
  require(report.device_serial == info.serial && report.device_firmware == info.firmware,
          "texts are the device's");
  require(report.joints.size() == expected.joints.size(), "every joint has an entry");
  for (std::size_t d = 0; d < expected.joints.size(); ++d) {
    const JointHealth& joint = report.joints[d];
    const JointHealth& plain = expected.joints[d];
    require(joint.dof == plain.dof && joint.dropouts == plain.dropouts, "dropouts are the plain analysis's");
    require(test::bits(joint.noise_rms) == test::bits(plain.noise_rms), "noise is the plain analysis's");
    require(test::bits(joint.backlash) == test::bits(plain.backlash), "backlash is the plain analysis's");
    require(test::bits(joint.score) == test::bits(plain.score), "a score is the plain analysis's");
    require(joint.score >= 0.0F && joint.score <= 1.0F, "a score lies between 0 and 1");
  }
  require(test::bits(report.overall_score) == test::bits(expected.overall_score),
          "the overall score is the plain analysis's");
  check_report(report, info);
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarsil::fuzz;
  Input input(data, size);
  const tarsil::HealthReport report = take_report(input);
  tarsil::DeviceInfo info;
  info.serial = report.device_serial;
  info.firmware = report.device_firmware;
  info.side = input.number<std::int8_t>();
  info.n_dofs = input.number<std::int32_t>();
  check_report(report, info);
  info.n_dofs = info.n_dofs % 24;
  check_analysis(take_frames(input, input.byte() % 24), info);
  return 0;
}
