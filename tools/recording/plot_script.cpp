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

/// A text as gnuplot takes it. Only what can neither end the quotes nor mean anything inside them stays.
std::string quoted(std::string_view text) {
  constexpr std::string_view kHarmless = " ._+-,:()/=";
  std::string out = "'";
  for (const char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       kHarmless.find(c) != std::string_view::npos;
    out += plain ? c : '?';
  }
  return out + "'";
}

void append_settings(std::string& out, const PlotColumns& columns, PictureFormat format, PictureSize size) {
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

void append_marker_lines(std::string& out, const PlotTexts& texts) {
  for (const PlotTexts::Mark& marker : texts.markers) {
    out += "set arrow from ";
    append_number(out, marker.time);
    out += ",graph 0 to ";
    append_number(out, marker.time);
    out += ",graph 1 nohead dashtype 2 linecolor rgb 'black'\nset label ";
    out += quoted(marker.name) + " at ";
    append_number(out, marker.time);
    out += ",graph 0.93 offset character 0.5,0\n";
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

/// A line a channel: for each column that has values, its smallest and its largest ones.
void append_lines(std::string& out, const PlotColumns& columns, const Channels& channels, double factor) {
  out += "$lines << EOD\n";
  for (std::size_t column = 0; column < columns.size(); ++column) {
    const auto has_any = [column](const Channel& channel) { return !(*channel.columns)[column].empty(); };
    const auto varies = [column](const Channel& channel) {
      return (*channel.columns)[column].low < (*channel.columns)[column].high;
    };
    if (std::ranges::any_of(channels, has_any)) {
      append_row(out, columns, channels, column, &Range::low, factor);
    }
    if (std::ranges::any_of(channels, varies)) {
      append_row(out, columns, channels, column, &Range::high, factor);
    }
  }
  out += "EOD\n";
}

void append_line_panel(std::string& out, const PlotColumns& columns, Channels channels, double factor,
                       std::string_view label) {
  std::erase_if(channels, [](const Channel& channel) { return !has_values(channel); });
  if (channels.empty()) return;
  append_lines(out, columns, channels, factor);
  append_value_range(out, channels, factor);
  out += "set ylabel " + quoted(label) + "\nplot ";
  for (std::size_t i = 0; i < channels.size(); ++i) {
    if (i > 0) out += ", ";
    out += "$lines using 1:" + std::to_string(i + 2) + " with lines linewidth 1 linecolor rgb '";
    out += kColours[i % kColours.size()];
    out += "' title " + quoted(channels[i].name);
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
  append_marker_lines(out, texts);
  out += "set multiplot layout " + std::to_string(panel_count(columns.extent())) + ",1 title " +
         quoted(texts.title) + "\n";
  append_finger_panels(out, columns);
  append_pad_panel(out, columns);
  append_acceleration_panel(out, columns);
  return out + "unset multiplot\n";
}

}  // namespace tarsil::recording_tool
