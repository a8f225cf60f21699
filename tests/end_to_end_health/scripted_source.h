// Commands of the tool with a source that a test writes down, in place of the one that the options ask for.
// Here a test decides what happens between two frames, which no real glove lets it do.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/data_source.h"
#include "tests/support/process.h"

namespace tarsil::test {

/// A source whose behaviour is in three functions; those that are left unset deliver default frames for ever,
/// under a default name. Only the thread of the command calls them.
struct SourceScript {
  /// The frame with this number, counted from 0. May throw, and may do anything else.
  std::function<Frame(int number)> frame = {};
  /// Whether the source is open after this many frames.
  std::function<bool(int delivered)> open = {};
  /// The name after this many frames.
  std::function<DeviceInfo(int delivered)> info = {};
  /// Called whenever the command has written a text to standard output.
  std::function<void(std::string_view text)> written = {};
};

/// What the command asked open_device for.
struct OpenRequest {
  bool reconnect = false;
  int queue_depth = 0;

  friend bool operator==(const OpenRequest&, const OpenRequest&) = default;
};

/// What a command run with a script has left.
struct ScriptedRun {
  Finished finished;
  OpenRequest request;
};

/// Runs the whole tool, as its main() does, in a child process: with `script` for its source and `input` for
/// its standard input. Without an input, the standard input stays open and nothing comes.
[[nodiscard]] ScriptedRun run_with_source(const SourceScript& script,
                                          const std::vector<std::string>& arguments,
                                          const std::optional<std::string>& input = "");

}  // namespace tarsil::test
