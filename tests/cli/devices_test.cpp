// The list of gloves as text.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tarsil/cli/commands.h"
#include "tarsil/core/device_info.h"

namespace tarsil::cli {
namespace {

TEST(DeviceList, has_one_line_for_each_glove_in_order) {
  EXPECT_EQ(
      format_device_list({{"TSL-ttyACM1", 1, "1.4", 20, 30, 5}, {"TSL-ttyACM0", 0, "unknown", 16, 20, 4}}),
      "TSL-ttyACM1  right  fw 1.4  20 DOFs\n"
      "TSL-ttyACM0  left  fw unknown  16 DOFs\n");
}

TEST(DeviceList, calls_every_side_but_1_left) {
  for (const std::int32_t side : {0, 2, -1, std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(format_device_list({{"TSL-1", side, "2.0", 20, 30, 5}}), "TSL-1  left  fw 2.0  20 DOFs\n")
        << side;
  }
}

TEST(DeviceList, shows_texts_and_counts_as_they_are) {
  EXPECT_EQ(format_device_list({{"", 1, "", -5, 0, 0}}), "  right  fw   -5 DOFs\n");
}

TEST(DeviceList, says_what_to_check_when_there_is_none) {
  EXPECT_EQ(format_device_list({}), "No devices found. Check USB connection and port permissions.\n");
}

}  // namespace
}  // namespace tarsil::cli
