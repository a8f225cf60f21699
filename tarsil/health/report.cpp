// Both layouts are fixed: the table drifts from its headings, and that is how people know it.
#include "tarsil/health/report.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "tarsil/core/number_text.h"
#include "tarsil/core/version.h"

namespace tarsil {

namespace {

using detail::append_fixed;
using detail::append_integer;
using detail::append_right_aligned;

constexpr float kGood = 0.85F;
constexpr float kFair = 0.6F;
constexpr float kMilliPerOne = 1000.0F;
constexpr std::size_t kRuleWidth = 56;
constexpr int kDocumentDecimals = 6;

void append_left_aligned(std::string& out, std::string_view text, std::size_t width) {
  out += text;
  if (text.size() < width) out.append(width - text.size(), ' ');
}

void append_rule(std::string& out) {
  out.append(kRuleWidth, '-');
  out += '\n';
}

/// Whole per cent, truncated. What no score can be counts as 0.
std::int32_t percent(float score) {
  const float value = 100.0F * score;
  constexpr float kTooLarge = 2147483648.0F;
  return value > -kTooLarge && value < kTooLarge ? static_cast<std::int32_t>(value) : 0;
}

std::string_view verdict(float score) {
  if (score > kGood) return " ✓";
  return score > kFair ? " ⚠" : " ✗";
}

void append_joint_row(std::string& out, const JointHealth& joint) {
  append_right_aligned(out, std::to_string(joint.dof), 4);
  out += "  ";
  append_right_aligned(out, std::to_string(percent(joint.score)), 6);
  out += "%  ";
  append_fixed(out, joint.noise_rms * kMilliPerOne, 1, 10);
  out += "  ";
  append_fixed(out, joint.backlash * kMilliPerOne, 1, 12);
  out += "  ";
  append_right_aligned(out, std::to_string(joint.dropouts), 6);
  out += verdict(joint.score);
  out += '\n';
}

/// "2026-11-15T18:29:03Z" for the whole second before `timestamp`; empty for times beyond the calendar.
std::string utc_text(double timestamp) {
  constexpr double kEndOfTime = 9223372036854775808.0;  // 2^63
  if (!(timestamp > -kEndOfTime && timestamp < kEndOfTime)) return {};
  const auto seconds = static_cast<std::time_t>(timestamp);
  std::tm calendar{};
  if (gmtime_r(&seconds, &calendar) == nullptr) return {};
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &calendar);
  return {text.data(), length};
}

void append_key(std::string& out, std::string_view key) {
  out += '"';
  out += key;
  out += "\": ";
}

void append_text_line(std::string& out, std::string_view key, std::string_view value) {
  out += "  ";
  append_key(out, key);
  out += '"';
  out += value;
  out += "\",\n";
}

void append_integer_line(std::string& out, std::string_view key, std::int64_t value) {
  out += "  ";
  append_key(out, key);
  append_integer(out, value);
  out += ",\n";
}

void append_joint_object(std::string& out, const JointHealth& joint) {
  out += "    {";
  append_key(out, "dof");
  append_integer(out, joint.dof);
  out += ", ";
  append_key(out, "name");
  out += "\"Joint ";
  append_integer(out, std::int64_t{joint.dof} + 1);
  out += "\", ";
  append_key(out, "score");
  append_fixed(out, joint.score, kDocumentDecimals);
  out += ", ";
  append_key(out, "noise_rms");
  append_fixed(out, joint.noise_rms, kDocumentDecimals);
  out += ", ";
  append_key(out, "backlash");
  append_fixed(out, joint.backlash, kDocumentDecimals);
  out += ", ";
  append_key(out, "dropouts");
  append_integer(out, joint.dropouts);
  out += '}';
}

}  // namespace

std::string format_health_report(const HealthReport& report) {
  std::string out = "\nHealth check — " + report.device_serial + "  fw " + report.device_firmware + "\n";
  out += "Frames analyzed: " + std::to_string(report.frames_analyzed) + "\n\n";
  append_left_aligned(out, "DOF", 6);
  append_left_aligned(out, "Score", 10);
  append_left_aligned(out, "Noise(mrad)", 14);
  append_left_aligned(out, "Backlash(mrad)", 16);
  append_left_aligned(out, "Dropouts", 10);
  out += '\n';
  append_rule(out);
  for (const JointHealth& joint : report.joints) append_joint_row(out, joint);
  append_rule(out);
  return out + "Overall: " + std::to_string(percent(report.overall_score)) + "%\n";
}

std::string health_report_to_json(const HealthReport& report, const DeviceInfo& info) {
  std::string out = "{\n";
  append_text_line(out, "sdk_version", kVersion);
  append_text_line(out, "os", "Linux");
  append_text_line(out, "timestamp", utc_text(report.timestamp));
  append_text_line(out, "device_serial", report.device_serial);
  append_text_line(out, "device_firmware", report.device_firmware);
  append_text_line(out, "device_side", info.side == 0 ? "L" : "R");  // deliberately, only 0 is left here
  append_integer_line(out, "device_n_dofs", info.n_dofs);
  append_integer_line(out, "frames_analyzed", report.frames_analyzed);
  out += "  ";
  append_key(out, "overall_score");
  append_fixed(out, report.overall_score, kDocumentDecimals);
  out += ",\n  ";
  append_key(out, "joints");
  out += "[\n";
  for (std::size_t i = 0; i < report.joints.size(); ++i) {
    append_joint_object(out, report.joints[i]);
    out += i + 1 < report.joints.size() ? ",\n" : "\n";
  }
  out += "  ]\n}\n";
  return out;
}

}  // namespace tarsil
