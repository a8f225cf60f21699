// The byte layout of recordings. A value that is no number appears as printf renders it, in JSON as well.
#include "tarsil/recording/format.h"

#include <cstddef>
#include <span>

#include "tarsil/core/number_text.h"
#include "tarsil/core/version.h"

namespace tarsil::detail {

namespace {

constexpr int kDecimals = 6;
/// Inertial values have fewer decimals in tsl and json than in csv. Deliberate: readers rely on both.
constexpr int kImuDecimals = 3;

void append_floats(std::string& out, std::span<const float> values, int decimals) {
  out += '[';
  bool first = true;
  for (const float value : values) {
    if (!first) out += ',';
    first = false;
    append_fixed(out, value, decimals);
  }
  out += ']';
}

void append_imu(std::string& out, const std::vector<ImuSample>& samples) {
  out += '[';
  bool first = true;
  for (const ImuSample& sample : samples) {
    if (!first) out += ',';
    first = false;
    out += R"({"acc":)";
    append_floats(out, sample.acc, kImuDecimals);
    out += R"(,"gyro":)";
    append_floats(out, sample.gyro, kImuDecimals);
    out += '}';
  }
  out += ']';
}

/// The members of a frame object, from "seq" on, and its end.
void append_frame_members(std::string& out, const Frame& frame) {
  out += R"("seq":)";
  append_unsigned(out, frame.seq);
  out += R"(,"t":)";
  append_fixed(out, frame.t, kDecimals);
  out += R"(,"q":)";
  append_floats(out, frame.q, kDecimals);
  out += R"(,"touch":)";
  append_floats(out, frame.touch, kDecimals);
  out += R"(,"imu":)";
  append_imu(out, frame.imu);
  out += frame.stale ? R"(,"stale":true})" : R"(,"stale":false})";
}

/// The members of a marker object, from "t" on, and its end.
void append_marker_members(std::string& out, const Marker& marker) {
  out += R"("t":)";
  append_fixed(out, marker.t, kDecimals);
  out += R"(,"name":)";
  append_quoted(out, marker.name);
  out += R"(,"data":)";
  append_string_map(out, marker.data);
  out += '}';
}

/// The members of a json document's array, one a line, by `append_members`.
template <typename T>
void append_json_lines(std::string& out, const std::vector<T>& records,
                       void (*append_members)(std::string&, const T&)) {
  for (std::size_t i = 0; i < records.size(); ++i) {
    out += "    {";
    append_members(out, records[i]);
    out += i + 1 < records.size() ? ",\n" : "\n";
  }
}

void append_csv_columns(std::string& out, std::string_view prefix, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    out += prefix;
    append_unsigned(out, i);
  }
}

void append_csv_values(std::string& out, std::span<const float> values) {
  for (const float value : values) {
    out += ',';
    append_fixed(out, value, kDecimals);
  }
}

}  // namespace

void append_tsl_header(std::string& out, std::string_view file_name, double t_created,
                       const StringMap& metadata) {
  out += R"({"type":"header","version":1,"sdk":")";
  out += kVersion;
  out += R"(","format":"tsl","file":)";
  append_quoted(out, file_name);
  out += R"(,"t_created":)";
  append_fixed(out, t_created, kDecimals);
  out += R"(,"metadata":)";
  append_string_map(out, metadata);
  out += "}\n";
}

void append_tsl_frame(std::string& out, const Frame& frame) {
  out += R"({"type":"frame",)";
  append_frame_members(out, frame);
  out += '\n';
}

void append_tsl_marker(std::string& out, const Marker& marker) {
  out += R"({"type":"marker",)";
  append_marker_members(out, marker);
  out += '\n';
}

void append_csv_heading(std::string& out, const Frame& frame) {
  out += "seq,t,stale";
  append_csv_columns(out, ",q_", frame.q.size());
  append_csv_columns(out, ",touch_", frame.touch.size());
  for (std::size_t j = 0; j < frame.imu.size(); ++j) {
    for (const std::string_view axis : {"_ax", "_ay", "_az", "_gx", "_gy", "_gz"}) {
      out += ",imu_";
      append_unsigned(out, j);
      out += axis;
    }
  }
  out += '\n';
}

void append_csv_row(std::string& out, const Frame& frame) {
  append_unsigned(out, frame.seq);
  out += ',';
  append_fixed(out, frame.t, kDecimals);
  out += frame.stale ? ",1" : ",0";
  append_csv_values(out, frame.q);
  append_csv_values(out, frame.touch);
  for (const ImuSample& sample : frame.imu) {
    append_csv_values(out, sample.acc);
    append_csv_values(out, sample.gyro);
  }
  out += '\n';
}

void append_csv_marker(std::string& out, const Marker& marker) {
  out += "# marker t=";
  append_fixed(out, marker.t, kDecimals);
  out += " name=";
  out += marker.name;
  out += '\n';
}

void append_json_document(std::string& out, double t_created, const StringMap& metadata,
                          const std::vector<Frame>& frames, const std::vector<Marker>& markers) {
  out += "{\n  \"version\": 1,\n  \"sdk\": \"";
  out += kVersion;
  out += "\",\n  \"format\": \"json\",\n  \"t_created\": ";
  append_fixed(out, t_created, kDecimals);
  out += ",\n  \"metadata\": ";
  append_string_map(out, metadata);
  out += ",\n  \"frame_count\": ";
  append_unsigned(out, frames.size());
  out += ",\n  \"frames\": [\n";
  append_json_lines(out, frames, append_frame_members);
  out += "  ],\n  \"markers\": [\n";
  append_json_lines(out, markers, append_marker_members);
  out += "  ]\n}\n";
}

void append_quoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += c;
    }
  }
  out += '"';
}

void append_string_map(std::string& out, const StringMap& map) {
  out += '{';
  bool first = true;
  for (const auto& [key, value] : map) {
    if (!first) out += ", ";
    first = false;
    append_quoted(out, key);
    out += ": ";
    append_quoted(out, value);
  }
  out += '}';
}

}  // namespace tarsil::detail
