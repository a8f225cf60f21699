// The ways of the standard library, and the list of all.
#include "benchmarks/renderers.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iomanip>
#include <locale>
#include <sstream>

#include "benchmarks/line_layout.h"

namespace tarsil::benchmarks {

namespace {

class ToCharsText : public FlatText {
 public:
  void integer(std::uint64_t value) { end_ = std::to_chars(end_, end_ + kRoom, value).ptr; }
  void fixed(double value, int decimals) {
    end_ = std::to_chars(end_, end_ + kRoom, value, std::chars_format::fixed, decimals).ptr;
  }
};

class PrintfText : public FlatText {
 public:
  void integer(std::uint64_t value) { end_ += std::snprintf(end_, kRoom, "%ju", std::uintmax_t{value}); }
  void fixed(double value, int decimals) { end_ += std::snprintf(end_, kRoom, "%.*f", decimals, value); }
};

class StreamText {
 public:
  StreamText() {
    stream_.imbue(std::locale::classic());
    stream_ << std::fixed;
  }

  void text(const char* literal) { stream_ << literal; }
  void integer(std::uint64_t value) { stream_ << value; }
  void fixed(double value, int decimals) { stream_ << std::setprecision(decimals) << value; }

  /// Keeps the stream's memory.
  void clear() { stream_.str(empty_); }
  [[nodiscard]] std::string_view view() const { return stream_.view(); }

 private:
  std::ostringstream stream_;
  const std::string empty_;
};

template <typename Text>
std::string_view render(const Frame& frame) {
  static Text text;
  text.clear();
  write_line(text, frame);
  return text.view();
}

}  // namespace

std::string_view render_by_to_chars(const Frame& frame) {
  return render<ToCharsText>(frame);
}

std::string_view render_by_snprintf(const Frame& frame) {
  return render<PrintfText>(frame);
}

std::string_view render_by_stream(const Frame& frame) {
  return render<StreamText>(frame);
}

std::vector<Renderer> peer_renderers() {
  return {
      {"to_chars", render_by_to_chars},
      {"snprintf", render_by_snprintf},
      {"ostringstream", render_by_stream},
#ifdef TARSIL_BENCHMARK_FMT
      {"fmt", render_by_fmt},
#endif
#ifdef TARSIL_BENCHMARK_DOUBLE_CONVERSION
      {"double-conversion", render_by_double_conversion},
#endif
  };
}

}  // namespace tarsil::benchmarks
