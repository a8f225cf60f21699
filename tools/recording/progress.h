// How far the work is, for a person who waits for it.
#pragma once

#include <chrono>
#include <cstdint>

namespace tarsil::recording_tool {

/// A bar on standard error if that is a terminal, from the second second on. It goes when the object goes, so
/// that what is printed afterwards begins on a clean line.
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { clear(); }

  /// `done` of `all` bytes of this pass over the file; an `all` of 0 is not known.
  void show(std::uint64_t done, std::uint64_t all);
  /// Takes the bar away.
  void clear();

 private:
  bool on_terminal_;
  bool shown_ = false;
  unsigned skipped_ = 0;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace tarsil::recording_tool
