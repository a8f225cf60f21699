// A line by fmt.
#include <fmt/compile.h>
#include <fmt/format.h>

#include <cstdint>

#include "benchmarks/line_layout.h"
#include "benchmarks/renderers.h"

namespace tarsil::benchmarks {

namespace {

class FmtText : public FlatText {
 public:
  void integer(std::uint64_t value) { end_ = fmt::format_to(end_, FMT_COMPILE("{}"), value); }
  void fixed(double value, int decimals) {
    end_ = decimals == 6 ? fmt::format_to(end_, FMT_COMPILE("{:.6f}"), value)
                         : fmt::format_to(end_, FMT_COMPILE("{:.3f}"), value);
  }
};

}  // namespace

std::string_view render_by_fmt(const Frame& frame) {
  static FmtText text;
  text.clear();
  write_line(text, frame);
  return text.view();
}

}  // namespace tarsil::benchmarks
