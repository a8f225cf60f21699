// Other ways to load a tsl recording, to compare with the replayer's. All fill the same records: number,
// time, joint angles, pads and inertial samples of every frame line.
#pragma once

#include <string>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::benchmarks {

/// One way to load.
struct Loader {
  std::string name;
  std::vector<Frame> (*load)(const std::string& path);
};

/// By std::from_chars, over the whole file in memory, along the layout that the recorder writes.
[[nodiscard]] std::vector<Frame> load_by_from_chars(const std::string& path);
/// By simdjson on demand, every line a document of its own.
[[nodiscard]] std::vector<Frame> load_by_simdjson_lines(const std::string& path);
/// By simdjson on demand, the file as a stream of documents.
[[nodiscard]] std::vector<Frame> load_by_simdjson_stream(const std::string& path);
/// By simdjson's tree of the whole document, the file as a stream of documents.
[[nodiscard]] std::vector<Frame> load_by_simdjson_tree(const std::string& path);
/// By RapidJSON's events, in place, with its exact numbers.
[[nodiscard]] std::vector<Frame> load_by_rapidjson(const std::string& path);

/// Those that are installed.
[[nodiscard]] std::vector<Loader> peer_loaders();

}  // namespace tarsil::benchmarks
