// What tests of the network have in common.
#pragma once

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace tarsil::test {

/// Tests that talk to this machine only, whatever proxy the environment asks for.
class LoopbackTest : public testing::Test {
 protected:
  LoopbackTest() { setenv("no_proxy", "*", 1); }
};

/// The message of a transfer that fails in this way. Its wording is the installed libcurl's.
inline std::string network_error(CURLcode code) {
  return std::string("Network error: ") + curl_easy_strerror(code);
}

}  // namespace tarsil::test
