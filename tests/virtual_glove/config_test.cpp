// Settings outside their limits are refused before anything happens.
#include "tools/virtual_glove/config.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

namespace tarsil::virtual_glove {
namespace {

bool accepts(const std::function<void(GloveConfig&)>& change) {
  GloveConfig config;
  change(config);
  try {
    validate(config);
    return true;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

TEST(Config, defaults_are_inside_the_limits) {
  EXPECT_TRUE(accepts([](GloveConfig&) {}));
}

TEST(Config, limits_are_included) {
  EXPECT_TRUE(accepts([](GloveConfig& config) {
    config.serial = std::string(255, 'x');
    config.firmware_major = 255;
    config.firmware_minor = 0;
    config.hz = 20000;
    config.replug = Replug{0, 1e6};
    config.faults = {{FaultKind::garbage, 1.0}, {FaultKind::silence, 0, 1e6, 0}};
    config.defects = {{19, DefectKind::stuck, -180}, {0, DefectKind::noisy, 180}};
  }));
}

TEST(Config, values_outside_the_limits_are_refused) {
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.serial = std::string(256, 'x'); }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.firmware_major = 256; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.firmware_minor = -1; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.hz = 0; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.hz = std::nan(""); }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.replug = Replug{-1, 1}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.replug = Replug{1, INFINITY}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.faults = {{FaultKind::garbage, 1.1}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.faults = {{FaultKind::garbage, 0, -1}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.faults = {{FaultKind::silence, 0, 0, 2e6}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.defects = {{20, DefectKind::stuck, 0}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.defects = {{-1, DefectKind::stuck, 0}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.defects = {{1, DefectKind::noisy, -1}}; }));
  EXPECT_FALSE(accepts([](GloveConfig& config) { config.defects = {{1, DefectKind::stuck, 181}}; }));
}

}  // namespace
}  // namespace tarsil::virtual_glove
