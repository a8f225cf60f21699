// Requests of several threads at once: each has a transfer of its own.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tarsil/health/certificate.h"
#include "tests/health/http_server.h"
#include "tests/health/network.h"

namespace tarsil {

namespace {

class HttpPostThreads : public test::LoopbackTest {};

TEST_F(HttpPostThreads, do_not_get_in_each_others_way) {
  constexpr std::size_t kThreads = 4;
  constexpr int kRequests = 5;
  std::vector<int> answered(kThreads);
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&answered, i] {
      const std::string own = "answer for thread " + std::to_string(i);
      const test::HttpServer server(test::http_answer(200, own));
      for (int request = 0; request < kRequests; ++request) {
        if (http_post(server.url(), own, "").body == own) ++answered[i];
      }
    });
  }
  threads.clear();
  EXPECT_EQ(answered, std::vector(kThreads, kRequests));
}

}  // namespace

}  // namespace tarsil
