// tarsil-recording info
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "tarsil/cli/output.h"
#include "tarsil/core/number_text.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"
#include "tools/recording/json_text.h"
#include "tools/recording/summary.h"

namespace tarsil::recording_tool {

namespace {

std::string fixed(double value, int decimals) {
  std::string text;
  detail::append_fixed(text, value, decimals);
  return text;
}

/// "2026-11-21 05:57:00 UTC"; empty for what is not in the calendar.
std::string time_of_day(double t) {
  constexpr double kYear10000 = 253402300800.0;
  if (!(t >= 0.0 && t < kYear10000)) return {};
  const auto seconds = static_cast<std::time_t>(t);
  std::tm parts{};
  std::array<char, 64> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts)};
}

std::string row(std::string name, const std::string& value) {
  constexpr std::size_t kColumn = 12;
  name.resize(std::max(kColumn, name.size() + 1), ' ');
  return name + value + "\n";
}

std::string gaps_text(const Gaps& gaps) {
  if (gaps.count == 0) return "none";
  return std::to_string(gaps.count) + ", with " + std::to_string(gaps.missing) + " frames missing, at most " +
         std::to_string(gaps.largest) + " at once";
}

std::string marker_rows(const Summary& summary) {
  std::string text = row("markers", std::to_string(summary.marker_count()));
  for (const MarkedTime& marker : summary.markers()) {
    text.append("  ").append(fixed(marker.t - summary.first_t(), 3)).append(" s  ").append(marker.name);
    for (const auto& [key, value] : marker.data) text.append("  ").append(key).append("=").append(value);
    text += '\n';
  }
  const std::uint64_t more = summary.marker_count() - summary.markers().size();
  if (more > 0) text.append("  and ").append(std::to_string(more)).append(" more\n");
  return text;
}

std::string metadata_rows(const Summary& summary) {
  if (!summary.has_header()) return row("metadata", "the header is missing");
  std::string text = row("metadata", std::to_string(summary.metadata().size()));
  for (const auto& [key, value] : summary.metadata()) text.append("  ").append(row(key, value));
  return text;
}

std::string as_text(const Summary& summary, const std::string& path) {
  std::string text = row("file", path);
  text += row("frames", std::to_string(summary.frames()));
  if (summary.frames() > 0) {
    text += row("begin", time_of_day(summary.first_t()));
    text += row("duration", fixed(summary.duration(), 2) + " s");
    const auto rate = summary.rate();
    text += row("rate", rate ? fixed(*rate, 2) + " fresh frames a second" : "not known");
    text += row("gaps", gaps_text(summary.gaps()));
    text += row("stale", std::to_string(summary.stale()) + " frames, " +
                             fixed(100.0 * summary.stale_share(), 2) + " %");
  }
  if (summary.with_non_numbers() > 0) {
    text +=
        row("no numbers", std::to_string(summary.with_non_numbers()) + " frames with values that are none");
  }
  if (summary.damaged() > 0) {
    text += row("damaged", std::to_string(summary.damaged()) + " lines (tarsil-recording check tells where)");
  }
  return text + marker_rows(summary) + metadata_rows(summary);
}

std::string json_object(const Pairs& pairs) {
  std::string text = "{";
  for (const auto& [key, value] : pairs) {
    if (text.size() > 1) text += ", ";
    text += json_string(key) + ": " + json_string(value);
  }
  return text + "}";
}

std::string json_markers(const Summary& summary) {
  std::string text = "[";
  for (const MarkedTime& marker : summary.markers()) {
    text += text.size() > 1 ? ",\n    " : "\n    ";
    text.append("{\"t\": ").append(json_number(marker.t, 6));
    text.append(", \"name\": ").append(json_string(marker.name));
    text.append(", \"data\": ").append(json_object(marker.data)).append("}");
  }
  return text + (text.size() > 1 ? "\n  ]" : "]");
}

std::string as_json(const Summary& summary, const std::string& path) {
  std::string text = "{\n";
  const auto member = [&text](const char* name, const std::string& value) {
    if (text.size() > 2) text += ",\n";
    text.append("  \"").append(name).append("\": ").append(value);
  };
  const bool any = summary.frames() > 0;
  const auto rate = summary.rate();
  member("file", json_string(path));
  member("sdk", summary.has_header() ? json_string(summary.sdk()) : "null");
  member("frames", std::to_string(summary.frames()));
  member("stale", std::to_string(summary.stale()));
  member("stale_share", json_number(summary.stale_share(), 6));
  member("first_t", any ? json_number(summary.first_t(), 6) : "null");
  member("last_t", any ? json_number(summary.last_t(), 6) : "null");
  member("duration", json_number(summary.duration(), 6));
  member("rate", rate ? json_number(*rate, 3) : "null");
  member("gaps", std::to_string(summary.gaps().count));
  member("missing_frames", std::to_string(summary.gaps().missing));
  member("largest_gap", std::to_string(summary.gaps().largest));
  member("frames_with_non_numbers", std::to_string(summary.with_non_numbers()));
  member("damaged_lines", std::to_string(summary.damaged()));
  member("marker_count", std::to_string(summary.marker_count()));
  member("markers", json_markers(summary));
  member("metadata", summary.has_header() ? json_object(summary.metadata()) : "null");
  return text + "\n}\n";
}

}  // namespace

int info_command(Words words) {
  constexpr std::array kOptions{Option{.name = "--json"}};
  const CommandLine line(words, kOptions, 1);
  RecordingLines lines(line.file(0));
  Summary summary;
  RecordingLine next;
  while (lines.next(next)) summary.add(next);
  cli::write_output(line.has("--json") ? as_json(summary, line.file(0)) : as_text(summary, line.file(0)));
  return summary.knows_anything() ? kDone : kDamaged;
}

}  // namespace tarsil::recording_tool
