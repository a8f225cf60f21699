// A line by double-conversion.
#include <double-conversion/double-conversion.h>

#include <charconv>
#include <cstdint>

#include "benchmarks/line_layout.h"
#include "benchmarks/renderers.h"

namespace tarsil::benchmarks {

namespace {

using double_conversion::DoubleToStringConverter;
using double_conversion::StringBuilder;

class DoubleConversionText : public FlatText {
 public:
  /// The library knows no integers.
  void integer(std::uint64_t value) { end_ = std::to_chars(end_, end_ + kRoom, value).ptr; }
  void fixed(double value, int decimals) {
    StringBuilder builder(end_, kRoom);
    converter_.ToFixed(value, decimals, &builder);
    end_ += builder.position();
    builder.Finalize();
  }

 private:
  // Nothing is said of exponents: fixed notation has none.
  DoubleToStringConverter converter_{DoubleToStringConverter::NO_FLAGS, "inf", "nan", 'e', 0, 0, 0, 0};
};

}  // namespace

std::string_view render_by_double_conversion(const Frame& frame) {
  static DoubleConversionText text;
  text.clear();
  write_line(text, frame);
  return text.view();
}

}  // namespace tarsil::benchmarks
