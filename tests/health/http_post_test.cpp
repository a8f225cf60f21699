// One request as it goes over the wire, and every way in which the answer may fail to come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <future>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/health/certificate.h"
#include "tests/health/http_server.h"
#include "tests/health/network.h"
#include "tests/support/resources.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"

namespace tarsil {

namespace {

using namespace std::chrono_literals;
using test::http_answer;
using test::HttpAnswer;
using test::HttpRequest;
using test::HttpServer;
using test::network_error;
using testing::ElementsAre;
using testing::Pair;

std::string failure_of(const std::string& url) {
  try {
    static_cast<void>(http_post(url, "{}", ""));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

std::string failure_with(const HttpAnswer& answer) {
  const HttpServer server(answer);
  return failure_of(server.url());
}

/// The headers that are not the HTTP library's own affair.
std::vector<std::pair<std::string, std::string>> own_headers(const HttpRequest& request) {
  auto headers = request.headers;
  std::erase_if(headers, [](const auto& header) {
    return header.first == "Host" || header.first == "Content-Length" || header.first == "Expect";
  });
  return headers;
}

class HttpPost : public test::LoopbackTest {
 protected:
  static HttpRequest request_of(const std::string& path, const std::string& body, const std::string& key) {
    const HttpServer server(http_answer(200, "{}"));
    static_cast<void>(http_post(server.url(path), body, key));
    return server.requests().at(0);
  }
};

TEST_F(HttpPost, sends_the_body_to_the_path) {
  const HttpRequest request = request_of("/v3/tarsil/health", "{\n  \"a\": \"\xE2\x9C\x93\"\n}\n", "");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/v3/tarsil/health");
  EXPECT_EQ(request.body, "{\n  \"a\": \"\xE2\x9C\x93\"\n}\n");
}

TEST_F(HttpPost, sends_two_headers_without_a_key) {
  EXPECT_THAT(own_headers(request_of("/", "{}", "")),
              ElementsAre(Pair("Content-Type", "application/json"), Pair("Accept", "application/json")));
}

TEST_F(HttpPost, sends_three_headers_with_a_key) {
  EXPECT_THAT(own_headers(request_of("/", "{}", "key of mine")),
              ElementsAre(Pair("Content-Type", "application/json"), Pair("Accept", "application/json"),
                          Pair("X-API-Key", "key of mine")));
}

TEST_F(HttpPost, sends_an_empty_body) {
  const HttpRequest request = request_of("/", "", "");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, "");
  EXPECT_THAT(request.headers, testing::Contains(Pair("Content-Length", "0")));
}

TEST_F(HttpPost, sends_a_body_up_to_its_first_zero_byte) {
  EXPECT_EQ(request_of("/", std::string("{}\0{}", 5), "").body, "{}");
}

TEST_F(HttpPost, sends_a_large_body_whole) {
  const std::string body(3'000'000, 'x');
  EXPECT_EQ(request_of("/", body, "").body, body);
}

TEST_F(HttpPost, returns_status_and_body_whatever_they_are) {
  for (const int status : {200, 201, 302, 401, 404, 500, 503}) {
    const HttpServer server(http_answer(status, "what it says"));
    const HttpResponse response = http_post(server.url(), "{}", "");
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, "what it says");
  }
}

TEST_F(HttpPost, returns_a_body_with_any_bytes) {
  std::string body;
  for (int byte = 0; byte < 256; ++byte) body += static_cast<char>(byte);
  const HttpServer server(http_answer(200, body));
  EXPECT_EQ(http_post(server.url(), "{}", "").body, body);
}

TEST_F(HttpPost, returns_a_large_body_whole) {
  std::string body;
  for (int i = 0; body.size() < 2'000'000; ++i) body += std::to_string(i) + ",";
  const HttpServer server(http_answer(200, body));
  EXPECT_EQ(http_post(server.url(), "{}", "").body, body);
}

TEST_F(HttpPost, puts_a_chunked_answer_together) {
  const HttpServer server(
      HttpAnswer{{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "7\r\n{\"certi\r\n",
                  "9\r\nficate\": \r\n", "3\r\n\"1\"\r\n1\r\n}\r\n", "0\r\n\r\n"},
                 20ms});
  EXPECT_EQ(http_post(server.url(), "{}", "").body, R"({"certificate": "1"})");
}

TEST_F(HttpPost, takes_a_slow_answer) {
  HttpAnswer answer{{"HTTP/1.1 200 OK\r\n", "Content-Length: 4\r\n\r\n"}, 100ms};
  for (const char* piece : {"s", "l", "o", "w"}) answer.pieces.emplace_back(piece);
  const HttpServer server(answer);
  EXPECT_EQ(http_post(server.url(), "{}", "").body, "slow");
}

TEST_F(HttpPost, takes_an_answer_that_ends_with_the_connection) {
  const HttpServer server(HttpAnswer{{"HTTP/1.0 200 OK\r\n\r\n", "no length"}});
  const HttpResponse response = http_post(server.url(), "{}", "");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "no length");
}

TEST_F(HttpPost, looks_at_the_final_status) {
  const HttpServer server(HttpAnswer{
      {"HTTP/1.1 102 Processing\r\n\r\n", "HTTP/1.1 403 Forbidden\r\nContent-Length: 2\r\n\r\nno"}});
  const HttpResponse response = http_post(server.url(), "{}", "");
  EXPECT_EQ(response.status, 403);
  EXPECT_EQ(response.body, "no");
}

TEST_F(HttpPost, follows_no_redirection) {
  const HttpServer elsewhere(http_answer(200, "{}"));
  const HttpServer server(HttpAnswer{
      {"HTTP/1.1 307 Temporary Redirect\r\nLocation: " + elsewhere.url() + "\r\nContent-Length: 0\r\n\r\n"}});
  EXPECT_EQ(http_post(server.url(), "{}", "").status, 307);
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST_F(HttpPost, fails_where_nobody_listens) {
  EXPECT_EQ(failure_of(test::ClosedPort().url()), network_error(CURLE_COULDNT_CONNECT));
}

TEST_F(HttpPost, fails_without_an_address) {
  EXPECT_EQ(failure_of(""), network_error(CURLE_URL_MALFORMAT));
  EXPECT_EQ(failure_of("http://"), network_error(CURLE_URL_MALFORMAT));
}

TEST_F(HttpPost, speaks_no_other_protocol) {
  const test::TempDirectory directory;
  test::write_file(directory.file("secret"), "{}");
  EXPECT_EQ(failure_of("file://" + directory.file("secret")), network_error(CURLE_UNSUPPORTED_PROTOCOL));
  EXPECT_EQ(failure_of("ftp://127.0.0.1/x"), network_error(CURLE_UNSUPPORTED_PROTOCOL));
  EXPECT_EQ(failure_of("gopher://127.0.0.1/x"), network_error(CURLE_UNSUPPORTED_PROTOCOL));
  EXPECT_EQ(failure_of("nonsense://127.0.0.1/x"), network_error(CURLE_UNSUPPORTED_PROTOCOL));
}

TEST_F(HttpPost, fails_when_the_answer_is_cut_off) {
  EXPECT_EQ(failure_with({{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"certificate_url\": \"http"}}),
            network_error(CURLE_PARTIAL_FILE));
  EXPECT_EQ(failure_with({{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n8\r\n{\"cer"}}),
            network_error(CURLE_PARTIAL_FILE));
}

TEST_F(HttpPost, fails_when_no_answer_comes) {
  EXPECT_EQ(failure_with({}), network_error(CURLE_GOT_NOTHING));
}

TEST_F(HttpPost, fails_when_the_answer_is_not_http) {
  EXPECT_THAT(failure_with({{"SSH-2.0-Server\r\n"}}), testing::StartsWith("Network error: "));
}

TEST_F(HttpPost, gives_up_after_ten_seconds_both_on_silence_and_on_a_trickle) {
  const HttpServer silent(HttpAnswer{.held = true});
  const HttpServer trickling(
      HttpAnswer{{"HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n", "x"}, 200ms, true, false});
  const auto started = std::chrono::steady_clock::now();
  const auto ask = [&started](const HttpServer& server) {
    const std::string failure = failure_of(server.url());
    return std::pair(failure, std::chrono::steady_clock::now() - started);
  };
  auto second = std::async(std::launch::async, [&] { return ask(trickling); });
  const auto [silence, silence_took] = ask(silent);
  const auto [trickle, trickle_took] = second.get();
  EXPECT_EQ(silence, network_error(CURLE_OPERATION_TIMEDOUT));
  EXPECT_EQ(trickle, network_error(CURLE_OPERATION_TIMEDOUT));
  EXPECT_GE(silence_took, 9900ms);
  EXPECT_GE(trickle_took, 9900ms);
  EXPECT_LT(std::max(silence_took, trickle_took), 60s);
}

TEST_F(HttpPost, leaves_no_descriptor_behind) {
  const HttpServer server({http_answer(200, "{}"), HttpAnswer{}, http_answer(500, "{}")});
  static_cast<void>(http_post(server.url(), "{}", ""));
  // Asked for from here on: the library opens things of its own with the first transfer.
  const test::ClosedPort nobody;
  const std::size_t before = test::open_descriptors();
  EXPECT_EQ(failure_of(server.url()), network_error(CURLE_GOT_NOTHING));
  EXPECT_EQ(http_post(server.url(), "{}", "").status, 500);
  EXPECT_EQ(failure_of(nobody.url()), network_error(CURLE_COULDNT_CONNECT));
  EXPECT_EQ(failure_of(""), network_error(CURLE_URL_MALFORMAT));
  // The server may still be about to close its side.
  EXPECT_TRUE(test::eventually([&] { return test::open_descriptors() <= before; }));
}

}  // namespace

}  // namespace tarsil
