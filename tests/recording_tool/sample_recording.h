// The recording tool as the tests start it, and recordings for it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace tarsil::test {

inline constexpr ExitStatus kDone{0, 0};
inline constexpr ExitStatus kFailed{1, 0};
inline constexpr ExitStatus kWrongUsage{2, 0};
inline constexpr ExitStatus kDamaged{3, 0};

/// The built tool with these arguments.
[[nodiscard]] ProcessOptions recording_tool(const std::vector<std::string>& arguments);

/// Runs the tool to its end.
[[nodiscard]] Finished run_recording_tool(const std::vector<std::string>& arguments);

/// A header as the recorder writes it, 131 bytes with its line feed.
[[nodiscard]] std::string header_line();

/// A frame of one joint, one pad and one unit, recorded at 1700000000 plus a hundredth of a second for each
/// number: 162 bytes with its line feed if the number has one digit.
[[nodiscard]] std::string frame_line(unsigned seq, bool stale = false);

/// A marker named "grasp" at that time.
[[nodiscard]] std::string marker_line(unsigned hundredths);

/// A header and frames numbered from 0.
[[nodiscard]] std::string small_recording(unsigned frames);

/// What stands in a directory, in order.
[[nodiscard]] std::vector<std::string> names_in(const std::string& directory);

}  // namespace tarsil::test
