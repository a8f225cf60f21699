// A picture of a recording, as a script for gnuplot with its data inside.
#pragma once

#include <string>
#include <vector>

#include "tools/recording/plot_columns.h"

namespace tarsil::recording_tool {

enum class PictureFormat { svg, png };

/// What there is to see besides the columns.
struct PlotTexts {
  std::string title;
  struct Mark {
    /// Seconds from the first frame on.
    double time = 0.0;
    std::string name;
  };
  std::vector<Mark> markers;
};

// Pixels beside the panels: numbers on the left, names on the right.
inline constexpr unsigned kLeftMargin = 100;
inline constexpr unsigned kRightMargin = 190;

struct PictureSize {
  unsigned width = 1200;
  unsigned height = 1600;
};

/// The script, which writes the picture to standard output. Texts from outside cannot become commands in it.
[[nodiscard]] std::string plot_script(const PlotColumns& columns, const PlotTexts& texts,
                                      PictureFormat format, PictureSize size);

}  // namespace tarsil::recording_tool
