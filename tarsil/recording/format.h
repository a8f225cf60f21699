// How a recording looks: frames, markers and metadata as the text of the three file formats. Pure functions
// that append to a text of the caller's, so that one buffer serves a whole recording.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/core/marker.h"

namespace tarsil::detail {

using StringMap = std::map<std::string, std::string>;

// tsl: one JSON object a line.

/// The first line of a tsl file. `file_name` is without directories, `t_created` in seconds since the Unix
/// epoch.
void append_tsl_header(std::string& out, std::string_view file_name, double t_created,
                       const StringMap& metadata);
void append_tsl_frame(std::string& out, const Frame& frame);
void append_tsl_marker(std::string& out, const Marker& marker);

// csv: one row a frame.

/// The line of column names. The array lengths of `frame` say how many there are; rows of later frames may be
/// wider or narrower.
void append_csv_heading(std::string& out, const Frame& frame);
void append_csv_row(std::string& out, const Frame& frame);
/// A comment line: time and name as it stands. The marker's data has no place in this format.
void append_csv_marker(std::string& out, const Marker& marker);

// json: one document.

void append_json_document(std::string& out, double t_created, const StringMap& metadata,
                          const std::vector<Frame>& frames, const std::vector<Marker>& markers);

// Pieces.

/// A JSON string. Quote, backslash, line feed, carriage return and tab are escaped; every other byte stands
/// as it is.
void append_quoted(std::string& out, std::string_view text);
/// An object of strings in key order. The blanks after colon and comma are part of the format, even in tsl
/// lines.
void append_string_map(std::string& out, const StringMap& map);

}  // namespace tarsil::detail
