// Other ways to render the tsl line of a frame, to compare with the recorder's own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"

namespace tarsil::benchmarks {

/// One way to render. Its memory is its own and used again for every line, and what it returns is valid until
/// the next call.
struct Renderer {
  std::string name;
  std::string_view (*render)(const Frame&);
};

/// Into a flat buffer by std::to_chars: the tightest that the standard library allows.
[[nodiscard]] std::string_view render_by_to_chars(const Frame& frame);
/// Into a flat buffer by snprintf.
[[nodiscard]] std::string_view render_by_snprintf(const Frame& frame);
/// Into a string stream that is emptied and used again, in the classic locale.
[[nodiscard]] std::string_view render_by_stream(const Frame& frame);
/// Into a flat buffer by fmt, with formats compiled in.
[[nodiscard]] std::string_view render_by_fmt(const Frame& frame);
/// Into a flat buffer by double-conversion.
[[nodiscard]] std::string_view render_by_double_conversion(const Frame& frame);

/// Those that are installed.
[[nodiscard]] std::vector<Renderer> peer_renderers();

}  // namespace tarsil::benchmarks
