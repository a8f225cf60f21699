// What the service's answers turn into: certificates, or messages for the user.
#include "tarsil/health/certificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/health/http_server.h"
#include "tests/health/network.h"

namespace tarsil {

namespace {

using test::http_answer;
using test::HttpServer;

TEST(JsonText, is_what_stands_between_the_quotes_behind_the_key) {
  EXPECT_EQ(json_get_string(R"({"a": "1", "b": "2"})", "b"), "2");
  EXPECT_EQ(json_get_string(R"({"a":"1"})", "a"), "1");
  EXPECT_EQ(json_get_string("{\"a\"\n :\t \"1 2\n3\"}", "a"), "1 2\n3");
  EXPECT_EQ(json_get_string(R"({"a": ""})", "a"), "");
}

TEST(JsonText, is_empty_where_something_is_missing) {
  EXPECT_EQ(json_get_string("", "a"), "");
  EXPECT_EQ(json_get_string(R"({"b": "1"})", "a"), "");
  EXPECT_EQ(json_get_string(R"({a: "1"})", "a"), "");
  EXPECT_EQ(json_get_string(R"({"a": 1})", "a"), "");
  EXPECT_EQ(json_get_string(R"({"a")", "a"), "");
  EXPECT_EQ(json_get_string(R"({"a": "1)", "a"), "");
  EXPECT_EQ(json_get_string(R"({"a": ")", "a"), "");
}

TEST(JsonText, belongs_to_the_whole_key) {
  EXPECT_EQ(json_get_string(R"({"certificate": "1", "certificate_id": "2"})", "certificate_id"), "2");
  EXPECT_EQ(json_get_string(R"({"my_id": "1", "id": "2"})", "id"), "2");
  EXPECT_EQ(json_get_string(R"({"ID": "1"})", "id"), "");
}

TEST(JsonText, belongs_to_the_first_of_equal_keys) {
  EXPECT_EQ(json_get_string(R"({"a": "1", "a": "2"})", "a"), "1");
  EXPECT_EQ(json_get_string(R"({"inner": {"a": "1"}, "a": "2"})", "a"), "1");
}

TEST(JsonText, of_a_key_that_also_is_a_value_follows_that_value) {
  EXPECT_EQ(json_get_string(R"({"kind": "a", "b": "1"})", "a"), "b");
}

TEST(JsonText, of_a_key_without_text_is_the_next_text_in_the_document) {
  EXPECT_EQ(json_get_string(R"({"a": 17, "b": "1"})", "a"), "b");
  EXPECT_EQ(json_get_string(R"({"a": null, "b": "1"})", "a"), "b");
  EXPECT_EQ(json_get_string(R"({"a": ["x", "y"]})", "a"), "x");
  EXPECT_EQ(json_get_string(R"("a" no colon at all "b")", "a"), "b");
}

TEST(JsonText, loses_the_backslash_of_an_escaped_slash) {
  EXPECT_EQ(json_get_string(R"({"a": "https:\/\/host\/path"})", "a"), "https://host/path");
  EXPECT_EQ(json_get_string(R"({"a": "\/"})", "a"), "/");
  EXPECT_EQ(json_get_string(R"({"a": "\/\/"})", "a"), "//");
}

TEST(JsonText, keeps_every_other_escape) {
  EXPECT_EQ(json_get_string(R"({"a": "x\ny\t\u0041\\z"})", "a"), R"(x\ny\t\u0041\\z)");
  EXPECT_EQ(json_get_string(R"({"a": "end\"})", "a"), R"(end\)");
}

TEST(JsonText, pairs_a_backslash_with_the_slash_behind_it) {
  EXPECT_EQ(json_get_string(R"({"a": "\\/"})", "a"), R"(\/)");
  EXPECT_EQ(json_get_string(R"({"a": "\\//"})", "a"), R"(\//)");
  EXPECT_EQ(json_get_string(R"({"a": "/\"})", "a"), R"(/\)");
}

TEST(JsonText, ends_at_an_escaped_quote) {
  EXPECT_EQ(json_get_string(R"({"a": "say \"hi\""})", "a"), R"(say \)");
}

TEST(JsonText, may_belong_to_an_odd_key) {
  EXPECT_EQ(json_get_string(R"({"": "1"})", ""), "1");
  EXPECT_EQ(json_get_string(R"({"a.b*": "1"})", "a.b*"), "1");
}

TEST(ErrorMessage, is_the_error_else_the_detail_else_all) {
  EXPECT_EQ(extract_error_message(R"({"error": "boom"})"), "boom");
  EXPECT_EQ(extract_error_message(R"({"detail": "forbidden"})"), "forbidden");
  EXPECT_EQ(extract_error_message(R"({"detail": "forbidden", "error": "boom"})"), "boom");
  EXPECT_EQ(extract_error_message(R"({"message": "no"})"), R"({"message": "no"})");
  EXPECT_EQ(extract_error_message("<html>Bad Gateway</html>"), "<html>Bad Gateway</html>");
  EXPECT_EQ(extract_error_message(""), "");
}

TEST(ErrorMessage, is_not_unescaped) {
  EXPECT_EQ(extract_error_message(R"({"error": "no \/such\/path"})"), R"(no \/such\/path)");
}

TEST(ErrorMessage, may_be_empty) {
  EXPECT_EQ(extract_error_message(R"({"error": "", "detail": "forbidden"})"), "");
}

TEST(ErrorMessage, of_an_error_without_text_is_the_next_text) {
  EXPECT_EQ(extract_error_message(R"({"error": true, "code": "E7"})"), "code");
  EXPECT_EQ(extract_error_message(R"({"detail": [{"loc": "x"}]})"), "loc");
}

TEST(ErrorMessage, falls_back_where_the_text_does_not_end) {
  // Behind "error" no two quotes are left, behind "detail" there are.
  EXPECT_EQ(extract_error_message(R"({"detail": "d", "error": 1})"), "d");
  EXPECT_EQ(extract_error_message(R"({"error": "bo)"), R"({"error": "bo)");
}

class Certificates : public test::LoopbackTest {
 protected:
  /// The message for the user when the service answers like this.
  static std::string message_for(int status, const std::string& body) {
    const HttpServer server(http_answer(status, body));
    try {
      static_cast<void>(upload_health_report(server.url(), "{}\n", ""));
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "no error";
  }

  static Certificate certificate_from(const std::string& body) {
    const HttpServer server(http_answer(200, body));
    return upload_health_report(server.url(), "{}\n", "");
  }
};

constexpr const char* kGoodBody =
    R"({"ok": true, "certificate_id": "TC-17", "certificate_url": "https://host.example/c/TC-17", )"
    R"("issued_at": "2026-03-01T10:00:00Z"})";

TEST_F(Certificates, come_from_the_texts_of_the_answer) {
  const Certificate certificate = certificate_from(kGoodBody);
  EXPECT_EQ(certificate.certificate_id, "TC-17");
  EXPECT_EQ(certificate.certificate_url, "https://host.example/c/TC-17");
  EXPECT_EQ(certificate.issued_at, "2026-03-01T10:00:00Z");
}

TEST_F(Certificates, are_asked_for_with_the_document_and_the_key) {
  const HttpServer server(http_answer(200, kGoodBody));
  static_cast<void>(upload_health_report(server.url("/some/where?a=b"), "{\n  \"joints\": []\n}\n", "k-123"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].target, "/some/where?a=b");
  EXPECT_EQ(requests[0].body, "{\n  \"joints\": []\n}\n");
  EXPECT_THAT(requests[0].headers, testing::Contains(testing::Pair("X-API-Key", "k-123")));
}

TEST_F(Certificates, lose_the_backslashes_of_escaped_slashes) {
  EXPECT_EQ(certificate_from(R"({"certificate_url":"https:\/\/host.example\/c\/9"})").certificate_url,
            "https://host.example/c/9");
}

TEST_F(Certificates, need_no_identifier_and_no_time) {
  const Certificate certificate = certificate_from(R"({"certificate_url":"https://host.example/c"})");
  EXPECT_EQ(certificate.certificate_id, "");
  EXPECT_EQ(certificate.certificate_url, "https://host.example/c");
  EXPECT_EQ(certificate.issued_at, "");
}

TEST_F(Certificates, are_refused_without_an_address) {
  const std::string body = R"({"certificate_id": "TC-1", "certificate_url": "", "issued_at": "now"})";
  EXPECT_EQ(message_for(200, body), "Server response missing 'certificate_url': " + body);
  EXPECT_EQ(message_for(200, "{}"), "Server response missing 'certificate_url': {}");
  EXPECT_EQ(message_for(200, ""), "Server response missing 'certificate_url': ");
}

TEST_F(Certificates, are_refused_where_the_service_says_not_ok) {
  const std::string tight = R"({"ok":false,"certificate_url":"https://host.example/c"})";
  EXPECT_EQ(message_for(200, tight), "Server error: " + tight);
  const std::string loose = R"({"certificate_url": "https://host.example/c", "ok": false})";
  EXPECT_EQ(message_for(200, loose), "Server error: " + loose);
  const std::string nested = R"({"certificate_url": "u", "inner": {"ok":false}})";
  EXPECT_EQ(message_for(200, nested), "Server error: " + nested);
}

TEST_F(Certificates, are_not_refused_for_other_spellings_of_not_ok) {
  EXPECT_EQ(certificate_from(R"({"ok" : false, "certificate_url": "u"})").certificate_url, "u");
  EXPECT_EQ(certificate_from(R"({"ok":  false, "certificate_url": "u"})").certificate_url, "u");
  EXPECT_EQ(certificate_from(R"({"ok": False, "certificate_url": "u"})").certificate_url, "u");
}

TEST_F(Certificates, need_a_valid_key) {
  EXPECT_EQ(message_for(401, kGoodBody),
            "Invalid API key (HTTP 401).\n"
            "Set your key: export TARSIL_API_KEY=<your_key>\n"
            "Contact Vorlix to obtain your key.");
}

TEST_F(Certificates, are_denied_with_the_reason) {
  EXPECT_EQ(message_for(403, R"({"detail": "forbidden"})"), "Access denied (HTTP 403). forbidden");
  EXPECT_EQ(message_for(403, R"({"error": "blocked", "detail": "forbidden"})"),
            "Access denied (HTTP 403). blocked");
  EXPECT_EQ(message_for(403, "go away"), "Access denied (HTTP 403). go away");
}

TEST_F(Certificates, are_limited_per_hour) {
  EXPECT_EQ(message_for(429, R"({"error": "slow down"})"),
            "Rate limit exceeded (HTTP 429). Wait before retrying (limit: 120 requests/hour).");
}

TEST_F(Certificates, are_refused_with_every_other_status) {
  EXPECT_EQ(message_for(500, R"({"error": "boom"})"), "HTTP 500: boom");
  EXPECT_EQ(message_for(502, "<html>Bad Gateway</html>"), "HTTP 502: <html>Bad Gateway</html>");
  EXPECT_EQ(message_for(404, ""), "HTTP 404: ");
  EXPECT_EQ(message_for(400, R"({"ok":false,"error":"bad document"})"), "HTTP 400: bad document");
  EXPECT_EQ(message_for(418, R"({"detail":"teapot"})"), "HTTP 418: teapot");
}

TEST_F(Certificates, come_with_status_200_only) {
  EXPECT_EQ(message_for(201, kGoodBody), std::string("HTTP 201: ") + kGoodBody);
  EXPECT_EQ(message_for(202, R"({"error": "later"})"), "HTTP 202: later");
  EXPECT_EQ(message_for(204, ""), "HTTP 204: ");
}

TEST_F(Certificates, are_not_looked_for_elsewhere) {
  const HttpServer elsewhere(http_answer(200, kGoodBody));
  const std::string head = "HTTP/1.1 302 Found\r\nLocation: " + elsewhere.url() +
                           "\r\nContent-Length: 5\r\nConnection: close\r\n\r\nmoved";
  const HttpServer server(test::HttpAnswer{{head}});
  try {
    static_cast<void>(upload_health_report(server.url(), "{}\n", ""));
    FAIL() << "the redirection was followed";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "HTTP 302: moved");
  }
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST_F(Certificates, are_asked_for_once) {
  const HttpServer server({http_answer(500, "{}"), http_answer(200, kGoodBody)});
  EXPECT_THROW(static_cast<void>(upload_health_report(server.url(), "{}\n", "")), std::runtime_error);
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(Certificates, cannot_come_through_a_dead_line) {
  const test::ClosedPort nobody;
  try {
    static_cast<void>(upload_health_report(nobody.url(), "{}\n", ""));
    FAIL() << "somebody answered";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), test::network_error(CURLE_COULDNT_CONNECT));
  }
}

}  // namespace

}  // namespace tarsil
