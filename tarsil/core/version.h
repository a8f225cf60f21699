// The library's version, the one place where it stands: the build and the recordings take it from here.
#pragma once

#include <string_view>

namespace tarsil {

/// Version of the library and of the tool, "major.minor.patch".
inline constexpr std::string_view kVersion = "0.3.0";

}  // namespace tarsil
