// The byte layout of recordings. A value that is no number appears as printf renders it, in JSON as well.
#include "tarsil/recording/format.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "tarsil/core/number_text.h"
#include "tarsil/core/version.h"
#include "tarsil/recording/decimal_text.h"

namespace tarsil::detail {

namespace {

constexpr int kDecimals = 6;
/// Inertial values have fewer decimals in tsl and json than in csv. Deliberate: readers rely on both.
constexpr int kImuDecimals = 3;

/// The values with a comma behind each.
void append_values(std::string& out, std::span<const float> values) {
  using Batch = DecimalBatch<kDecimals>;
  std::array<char, Batch::kCapacity * Batch::kTextSize> text;
  while (!values.empty()) {
    const std::size_t count = std::min(values.size(), Batch::kCapacity);
    out.append(text.data(), Batch(values.first(count)).write(text.data(), 0, count));
    values = values.subspan(count);
  }
}

/// Ends a list whose elements have a comma behind each.
void end_list(std::string& out) {
  if (out.back() == ',') {
    out.back() = ']';
  } else {
    out += ']';
  }
}

void append_floats(std::string& out, std::span<const float> values) {
  out += '[';
  append_values(out, values);
  end_list(out);
}

char* write_text(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

constexpr std::size_t kAxes = 3;
constexpr std::size_t kSampleValues = 2 * kAxes;
/// As many samples as fill a batch.
constexpr std::size_t kSampleBatch = DecimalBatch<kImuDecimals>::kCapacity / kSampleValues;

/// Room for what stands between the values of a sample.
constexpr std::size_t kSampleKeysSize = sizeof(R"({"acc":[],"gyro":[]},)");

void append_sample_batch(std::string& out, std::span<const ImuSample> samples) {
  std::array<float, kSampleBatch * kSampleValues> values;
  std::size_t count = 0;
  for (const ImuSample& sample : samples) {
    for (const float axis : sample.acc) values[count++] = axis;
    for (const float axis : sample.gyro) values[count++] = axis;
  }
  using Batch = DecimalBatch<kImuDecimals>;
  const Batch batch({values.data(), count});
  std::array<char, kSampleBatch*(kSampleKeysSize + kSampleValues * Batch::kTextSize)> text;
  char* end = text.data();
  for (std::size_t i = 0; i < count; i += kSampleValues) {
    end = write_text(end, R"({"acc":[)");
    end = batch.write(end, i, kAxes) - 1;
    end = write_text(end, R"(],"gyro":[)");
    end = batch.write(end, i + kAxes, kAxes) - 1;
    end = write_text(end, "]},");
  }
  out.append(text.data(), end);
}

void append_imu(std::string& out, std::span<const ImuSample> samples) {
  out += '[';
  while (!samples.empty()) {
    const std::size_t count = std::min(samples.size(), kSampleBatch);
    append_sample_batch(out, samples.first(count));
    samples = samples.subspan(count);
  }
  end_list(out);
}

/// The members of a frame object, from "seq" on, and its end.
void append_frame_members(std::string& out, const Frame& frame) {
  out += R"("seq":)";
  append_unsigned(out, frame.seq);
  out += R"(,"t":)";
  append_time(out, frame.t);
  out += R"(,"q":)";
  append_floats(out, frame.q);
  out += R"(,"touch":)";
  append_floats(out, frame.touch);
  out += R"(,"imu":)";
  append_imu(out, frame.imu);
  out += frame.stale ? R"(,"stale":true})" : R"(,"stale":false})";
}

/// The members of a marker object, from "t" on, and its end.
void append_marker_members(std::string& out, const Marker& marker) {
  out += R"("t":)";
  append_time(out, marker.t);
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

}  // namespace

void append_tsl_header(std::string& out, std::string_view file_name, double t_created,
                       const StringMap& metadata) {
  out += R"({"type":"header","version":1,"sdk":")";
  out += kVersion;
  out += R"(","format":"tsl","file":)";
  append_quoted(out, file_name);
  out += R"(,"t_created":)";
  append_time(out, t_created);
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
  append_time(out, frame.t);
  out += frame.stale ? ",1," : ",0,";
  append_values(out, frame.q);
  append_values(out, frame.touch);
  for (const ImuSample& sample : frame.imu) {
    append_values(out, sample.acc);
    append_values(out, sample.gyro);
  }
  out.back() = '\n';  // for the last comma
}

void append_csv_marker(std::string& out, const Marker& marker) {
  out += "# marker t=";
  append_time(out, marker.t);
  out += " name=";
  out += marker.name;
  out += '\n';
}

void append_json_document(std::string& out, double t_created, const StringMap& metadata,
                          const std::vector<Frame>& frames, const std::vector<Marker>& markers) {
  out += "{\n  \"version\": 1,\n  \"sdk\": \"";
  out += kVersion;
  out += "\",\n  \"format\": \"json\",\n  \"t_created\": ";
  append_time(out, t_created);
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
