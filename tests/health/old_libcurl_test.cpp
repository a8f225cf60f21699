// A libcurl that does not know how to be kept to two protocols: nothing is sent with it.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <stdexcept>
#include <string>

#include "tarsil/health/certificate.h"
#include "tests/health/http_server.h"
#include "tests/health/network.h"

#undef curl_easy_setopt

namespace {

bool g_is_old = false;

}  // namespace

// Found before libcurl's own. Every value that the library sets is a long or a pointer, and both are passed
// alike.
extern "C" CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  if (g_is_old && option == CURLOPT_PROTOCOLS_STR) return CURLE_UNKNOWN_OPTION;
  using Function = CURLcode (*)(CURL*, CURLoption, ...);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
  va_list arguments;
  va_start(arguments, option);
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  return next(handle, option, value);
}

namespace tarsil {
namespace {

class OldLibcurl : public test::LoopbackTest {
 protected:
  OldLibcurl() { g_is_old = true; }
  ~OldLibcurl() override { g_is_old = false; }
};

TEST_F(OldLibcurl, is_refused_before_anything_is_sent) {
  const test::HttpServer server(test::http_answer(200, "{}"));
  try {
    static_cast<void>(http_post(server.url(), "{}", ""));
    FAIL() << "posted without the limit to two protocols";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), test::network_error(CURLE_UNKNOWN_OPTION));
  }
}

TEST_F(OldLibcurl, is_nothing_else_than_the_present_one_without_that_option) {
  g_is_old = false;
  const test::HttpServer server(test::http_answer(200, "{}"));
  EXPECT_EQ(http_post(server.url(), "{}", "").status, 200);
}

}  // namespace
}  // namespace tarsil
