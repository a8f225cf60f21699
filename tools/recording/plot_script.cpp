// One panel under the other on the same axis of time: a finger each, the pads, the inertial units.
#include "tools/recording/plot_script.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <string_view>
#include <utility>

#include "tarsil/cli/visible_text.h"

namespace tarsil::recording_tool {

namespace {

constexpr std::array<std::string_view, 5> kFingers{"thumb", "index", "middle", "ring", "pinky"};
constexpr std::array<std::string_view, 4> kJoints{"MCP abduction", "MCP flexion", "PIP", "DIP"};
constexpr std::array<std::string_view, 5> kColours{"#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00"};
constexpr double kDegrees = 180.0 / std::numbers::pi;

/// Nine digits: times may span microseconds or, with a clock that was set, years.
void append_number(std::string& out, double value) {
  std::array<char, 32> text;
  const auto written =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 9);
  out.append(text.data(), written.ptr);
}

bool is_plain(char c) {
  constexpr std::string_view kHarmless = " ._+-,:()/=";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kHarmless.find(c) != std::string_view::npos;
}

/// Whether a character of more than one byte can stand in a picture: controls cannot, and two that XML
/// forbids. In png only Latin, Greek and Cyrillic letters can: what the fonts of this machine lack would
/// become a box as large as the picture. In svg it is up to the viewer.
bool is_drawn(std::string_view character, PictureFormat format) {
  constexpr std::string_view kFirst = "\xC2\xA0";
  constexpr std::string_view kBehindCyrillic = "\xD4\x80";
  if (character < kFirst) return false;
  if (format == PictureFormat::png) return character < kBehindCyrillic;
  return character != "\xEF\xBF\xBE" && character != "\xEF\xBF\xBF";
}

/// A text as gnuplot takes it. Only what can neither end the quotes nor mean anything inside them stays.
std::string quoted(std::string_view text, PictureFormat format) {
  std::string out = "'";
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(1, cli::multibyte_length(text));
    const std::string_view character = text.substr(0, length);
    const bool stays = length == 1 ? is_plain(character.front()) : is_drawn(character, format);
    out += stays ? character : "?";
    text.remove_prefix(length);
  }
  return out + "'";
}

void append_settings(std::string& out, const PlotColumns& columns, PictureFormat format, PictureSize size) {
  out += "set encoding utf8\n";
  out += format == PictureFormat::svg ? "set terminal svg noenhanced background 'white' size "
                                      : "set terminal pngcairo noenhanced size ";
  out += std::to_string(size.width) + "," + std::to_string(size.height) + "\n";
  // A recording of one moment has an axis, too.
  const double end = columns.extent().duration() > 0.0 ? columns.extent().duration() : 1.0;
  out += "set datafile missing 'nan'\nset xrange [0:";
  append_number(out, end);
  out += "]\nset key outside right top samplen 2 maxrows 5\nset grid\nset lmargin at screen ";
  append_number(out, static_cast<double>(kLeftMargin) / size.width);
  out += "\nset rmargin at screen ";
  append_number(out, 1.0 - static_cast<double>(kRightMargin) / size.width);
  out += "\nset format x '%g s'\nset tmargin 1\nset bmargin 1.5\n";
}

/// Shades stretches over the whole height of every panel.
void append_shades(std::string& out, const PlotColumns& columns, const std::vector<Stretch>& stretches,
                   std::string_view colour) {
  const double half = (columns.time_of(0) > 0.0 ? columns.time_of(0) : 0.5);
  for (const auto& [first, last] : stretches) {
    out += "set object rectangle from ";
    append_number(out, columns.time_of(first) - half);
    out += ",graph 0 to ";
    append_number(out, columns.time_of(last) + half);
    out += ",graph 1 front fillcolor rgb '";
    out += colour;
    out += "' fillstyle transparent solid 0.3 noborder\n";
  }
}

/// Their names stand beside them: behind, and before those at the end, where the names of the lines begin; in
/// two rows, so that neighbours do not lie on each other.
void append_marker_lines(std::string& out, const PlotColumns& columns, const PlotTexts& texts,
                         PictureFormat format) {
  constexpr std::array<std::string_view, 2> kHeights{"0.93", "0.79"};
  std::size_t row = 0;
  for (const PlotTexts::Mark& marker : texts.markers) {
    out += "set arrow from ";
    append_number(out, marker.time);
    out += ",graph 0 to ";
    append_number(out, marker.time);
    out += ",graph 1 nohead front dashtype 2 linecolor rgb 'black'\nset label ";
    out += quoted(marker.name, format) + " at ";
    append_number(out, marker.time);
    out += ",graph ";
    out += kHeights[row++ % kHeights.size()];
    out += marker.time > 0.9 * columns.extent().duration() ? " right front offset character -0.5,0\n"
                                                           : " left front offset character 0.5,0\n";
  }
}

/// A channel of a panel.
struct Channel {
  const std::vector<Range>* columns;
  std::string name;
};
using Channels = std::vector<Channel>;

bool has_values(const Channel& channel) {
  return !std::ranges::all_of(*channel.columns, &Range::empty);
}

/// The values of all channels; with a little room around a single one.
void append_value_range(std::string& out, const Channels& channels, double factor) {
  Range all;
  for (const Channel& channel : channels) {
    for (const Range& range : *channel.columns) {
      if (range.empty()) continue;
      all.add(range.low);
      all.add(range.high);
    }
  }
  const double low = static_cast<double>(all.low) * factor;
  const double high = static_cast<double>(all.high) * factor;
  const double margin = high > low ? 0.05 * (high - low) : 0.05 * std::abs(high) + 0.01;
  out += "set yrange [";
  append_number(out, low - margin);
  out += ':';
  append_number(out, high + margin);
  out += "]\n";
}

/// The time and a value of each channel, times `factor`.
void append_row(std::string& out, const PlotColumns& columns, const Channels& channels, std::size_t column,
                float Range::*value, double factor) {
  append_number(out, columns.time_of(column));
  for (const Channel& channel : channels) {
    const Range& range = (*channel.columns)[column];
    out += ' ';
    if (range.empty()) {
      out += "nan";
    } else {
      append_number(out, static_cast<double>(range.*value) * factor);
    }
  }
  out += '\n';
}

/// Columns with values and no gap between them.
using Run = std::vector<std::size_t>;

std::vector<Run> runs_of(const PlotColumns& columns, const Channels& channels) {
  std::vector<Run> runs;
  bool broken = true;
  for (std::size_t column = 0; column < columns.size(); ++column) {
    broken = broken || columns.gap_ends_at(column);
    const auto has_any = [column](const Channel& channel) { return !(*channel.columns)[column].empty(); };
    if (!std::ranges::any_of(channels, has_any)) continue;
    if (broken) runs.emplace_back();
    broken = false;
    runs.back().push_back(column);
  }
  return runs;
}

/// The smallest values of a column and, if there are others, the largest ones.
void append_rows(std::string& out, const PlotColumns& columns, const Channels& channels, std::size_t column,
                 double factor) {
  const auto varies = [column](const Channel& channel) {
    return (*channel.columns)[column].low < (*channel.columns)[column].high;
  };
  append_row(out, columns, channels, column, &Range::low, factor);
  if (std::ranges::any_of(channels, varies)) {
    append_row(out, columns, channels, column, &Range::high, factor);
  }
}

/// A line for each run, which an empty row ends. Runs of one column, which make no line, are points as well.
/// Returns whether there are any.
bool append_data(std::string& out, const PlotColumns& columns, const Channels& channels, double factor) {
  std::string points;
  out += "$lines << EOD\n";
  for (const Run& run : runs_of(columns, channels)) {
    for (const std::size_t column : run) append_rows(out, columns, channels, column, factor);
    out += '\n';
    if (run.size() == 1) append_rows(points, columns, channels, run.front(), factor);
  }
  out += "EOD\n";
  if (!points.empty()) out += "$points << EOD\n" + points + "EOD\n";
  return !points.empty();
}

void append_line_panel(std::string& out, const PlotColumns& columns, Channels channels, double factor,
                       std::string_view label) {
  std::erase_if(channels, [](const Channel& channel) { return !has_values(channel); });
  if (channels.empty()) return;
  const bool has_points = append_data(out, columns, channels, factor);
  append_value_range(out, channels, factor);
  out += "set ylabel '" + std::string(label) + "'\nplot ";
  for (std::size_t i = 0; i < channels.size(); ++i) {
    if (i > 0) out += ", ";
    const std::string values = " using 1:" + std::to_string(i + 2);
    const std::string colour = " linecolor rgb '" + std::string(kColours[i % kColours.size()]) + "'";
    out.append("$lines").append(values).append(" with lines linewidth 1").append(colour);
    out.append(" title '").append(channels[i].name).append("'");
    if (has_points) {
      out.append(", $points").append(values).append(" with points pointtype 7 pointsize 0.6").append(colour);
      out.append(" notitle");
    }
  }
  // Names of markers stand in the first panel only.
  out += "\nunset label\n";
}

void append_finger_panels(std::string& out, const PlotColumns& columns) {
  for (std::size_t finger = 0; finger < kFingers.size(); ++finger) {
    Channels channels;
    for (std::size_t joint = 0; joint < kJoints.size(); ++joint) {
      const std::size_t index = finger * kJoints.size() + joint;
      if (index >= columns.extent().joints) break;
      channels.push_back({&columns.joint(index), std::string(kJoints[joint])});
    }
    append_line_panel(out, columns, std::move(channels), kDegrees, std::string(kFingers[finger]) + " (deg)");
  }
}

/// The largest value of every column, and where there is none the one before: a pad keeps its pressure.
void append_pad_panel(std::string& out, const PlotColumns& columns) {
  if (columns.extent().pads == 0) return;
  out += "$pads << EOD\n";
  for (std::size_t pad = 0; pad < columns.extent().pads; ++pad) {
    float held = 0.0F;
    for (const Range& range : columns.pad(pad)) {
      if (!range.empty()) held = range.high;
      append_number(out, static_cast<double>(held));
      out += ' ';
    }
    out += '\n';
  }
  out += "EOD\nset ylabel 'pad'\nset yrange [-0.5:";
  append_number(out, static_cast<double>(columns.extent().pads) - 0.5);
  out +=
      "]\nset cbrange [0:1]\nset palette defined (0 'white', 0.5 'orange', 1 'dark-red')\nplot $pads matrix "
      "using (($1+0.5)*";
  const double end = columns.extent().duration() > 0.0 ? columns.extent().duration() : 1.0;
  append_number(out, end / static_cast<double>(columns.size()));
  out += "):2:3 with image notitle\nunset colorbox\n";
}

void append_acceleration_panel(std::string& out, const PlotColumns& columns) {
  Channels channels;
  for (std::size_t unit = 0; unit < columns.extent().units; ++unit) {
    channels.push_back({&columns.unit(unit), "unit " + std::to_string(unit)});
  }
  append_line_panel(out, columns, std::move(channels), 1.0, "acceleration (g)");
}

std::size_t panel_count(const Extent& extent) {
  return (extent.joints + kJoints.size() - 1) / kJoints.size() + (extent.pads > 0 ? 1 : 0) +
         (extent.units > 0 ? 1 : 0);
}

}  // namespace

std::string plot_script(const PlotColumns& columns, const PlotTexts& texts, PictureFormat format,
                        PictureSize size) {
  std::string out;
  append_settings(out, columns, format, size);
  append_shades(out, columns, columns.stale_stretches(), "#808080");
  append_shades(out, columns, columns.gap_stretches(), "#ff0000");
  append_marker_lines(out, columns, texts, format);
  out += "set multiplot layout " + std::to_string(panel_count(columns.extent())) + ",1 title " +
         quoted(texts.title, format) + "\n";
  append_finger_panels(out, columns);
  append_pad_panel(out, columns);
  append_acceleration_panel(out, columns);
  return out + "unset multiplot\n";
}

}  // namespace tarsil::recording_tool
