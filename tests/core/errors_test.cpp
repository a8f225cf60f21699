// The two errors of sources: nothing but a message, caught as what the standard library knows.
#include "tarsil/core/errors.h"

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace tarsil {
namespace {

template <typename Error>
std::string message_caught_as_exception(const std::string& text) {
  try {
    throw Error(text);
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST(StreamUnderrunError, carries_its_message_to_who_catches_a_standard_exception) {
  EXPECT_EQ(message_caught_as_exception<StreamUnderrunError>("SerialSource stream closed"),
            "SerialSource stream closed");
}

TEST(DeviceNotFoundError, carries_its_message_to_who_catches_a_standard_exception) {
  EXPECT_EQ(message_caught_as_exception<DeviceNotFoundError>("No Tarsil device found"),
            "No Tarsil device found");
}

TEST(Errors, derive_from_the_runtime_error_and_not_from_each_other) {
  EXPECT_TRUE((std::is_base_of_v<std::runtime_error, StreamUnderrunError>));
  EXPECT_TRUE((std::is_base_of_v<std::runtime_error, DeviceNotFoundError>));
  EXPECT_FALSE((std::is_base_of_v<StreamUnderrunError, DeviceNotFoundError>));
  EXPECT_FALSE((std::is_base_of_v<DeviceNotFoundError, StreamUnderrunError>));
}

}  // namespace
}  // namespace tarsil
