// A named point in time inside a recording.
#pragma once

#include <map>
#include <string>

namespace tarsil {

/// A named point in time inside a recording.
struct Marker {
  /// Seconds since the Unix epoch, on the same clock as Frame::t.
  double t = 0.0;
  /// What happened; any text.
  std::string name = {};
  /// Free key-value pairs, keys in ascending byte order; may be empty.
  std::map<std::string, std::string> data = {};
};

}  // namespace tarsil
