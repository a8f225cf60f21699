// The client of the certificate service: a health report goes out, a certificate comes back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarsil {

/// An HTTP answer.
struct HttpResponse {
  /// Status code; 0 if there was no answer.
  std::int64_t status = 0;
  /// The answer's content as it came, without the headers.
  std::string body = {};
};

/// What the service issues for a report.
struct Certificate {
  /// The certificate's number with the service; may be empty.
  std::string certificate_id = {};
  /// Where it can be looked at.
  std::string certificate_url = {};
  /// When it was issued, in the service's own words; may be empty.
  std::string issued_at = {};
};

/// Posts a JSON document, which ends at its first zero byte if it has one. Without an API key no key header
/// is sent. Takes at most 10 seconds; checks certificates; follows no redirection; speaks HTTP and HTTPS
/// only. Throws std::runtime_error ("Network error: " and the reason) if no whole answer is received. Any
/// thread may call it.
HttpResponse http_post(const std::string& url, const std::string& body, const std::string& api_key);

/// Posts a report document and reads the certificate from the answer.
/// Throws std::runtime_error with a message for the user for every other answer than a certificate.
Certificate upload_health_report(const std::string& url, const std::string& document,
                                 const std::string& api_key);

/// The text that follows `key` in `text`: between the next two quotes behind the quoted key, whatever stands
/// before them, with "\/" read as "/". Empty if there is none. Deliberately no parser.
[[nodiscard]] std::string json_get_string(std::string_view text, std::string_view key);

/// What a service's answer gives as the reason of a failure: the text of "error", else of "detail", else all
/// of it.
[[nodiscard]] std::string extract_error_message(std::string_view text);

}  // namespace tarsil
