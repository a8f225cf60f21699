// The commands of the tool, and how they say how it went.
#pragma once

#include <span>
#include <stdexcept>
#include <string_view>

namespace tarsil::recording_tool {

// Exit statuses.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;
inline constexpr int kDamaged = 3;

/// The recording is damaged where the command needs it whole.
class DamagedRecording : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Words = std::span<const std::string_view>;

// Each takes the words behind its name and returns the exit status. They throw UsageError, DamagedRecording,
// and std::runtime_error for all else that goes wrong.
int info_command(Words words);
int check_command(Words words);
int recover_command(Words words);
int convert_command(Words words);
int plot_command(Words words);

}  // namespace tarsil::recording_tool
