// What the service's answers mean.
#include "tarsil/health/certificate.h"

#include <optional>
#include <stdexcept>

namespace tarsil {

namespace {

constexpr std::int64_t kOk = 200;
constexpr std::int64_t kUnauthorized = 401;
constexpr std::int64_t kForbidden = 403;
constexpr std::int64_t kTooManyRequests = 429;

/// The text between the next two quotes behind the quoted key.
std::optional<std::string_view> find_text(std::string_view text, std::string_view key) {
  const std::string quoted = '"' + std::string(key) + '"';
  const std::size_t found = text.find(quoted);
  if (found == std::string_view::npos) return std::nullopt;
  const std::size_t open = text.find('"', found + quoted.size());
  if (open == std::string_view::npos) return std::nullopt;
  const std::size_t close = text.find('"', open + 1);
  if (close == std::string_view::npos) return std::nullopt;
  return text.substr(open + 1, close - open - 1);
}

/// Nothing but 200 is a success, no other 2xx either.
void check_status(const HttpResponse& response) {
  switch (response.status) {
    case kOk:
      return;
    case kUnauthorized:
      throw std::runtime_error(
          "Invalid API key (HTTP 401).\n"
          "Set your key: export TARSIL_API_KEY=<your_key>\n"
          "Contact Vorlix to obtain your key.");
    case kForbidden:
      throw std::runtime_error("Access denied (HTTP 403). " + extract_error_message(response.body));
    case kTooManyRequests:
      throw std::runtime_error(
          "Rate limit exceeded (HTTP 429). Wait before retrying (limit: 120 requests/hour).");
    default:
      throw std::runtime_error("HTTP " + std::to_string(response.status) + ": " +
                               extract_error_message(response.body));
  }
}

}  // namespace

Certificate upload_health_report(const std::string& url, const std::string& document,
                                 const std::string& api_key) {
  const HttpResponse response = http_post(url, document, api_key);
  check_status(response);
  const std::string& body = response.body;
  for (const char* refusal : {"\"ok\":false", "\"ok\": false"}) {
    if (body.find(refusal) != std::string::npos) throw std::runtime_error("Server error: " + body);
  }
  Certificate certificate{json_get_string(body, "certificate_id"), json_get_string(body, "certificate_url"),
                          json_get_string(body, "issued_at")};
  if (certificate.certificate_url.empty()) {
    throw std::runtime_error("Server response missing 'certificate_url': " + body);
  }
  return certificate;
}

std::string json_get_string(std::string_view text, std::string_view key) {
  std::string value(find_text(text, key).value_or(""));
  for (std::size_t at = value.find("\\/"); at != std::string::npos; at = value.find("\\/", at + 1)) {
    value.erase(at, 1);
  }
  return value;
}

std::string extract_error_message(std::string_view text) {
  for (const char* key : {"error", "detail"}) {
    if (const auto message = find_text(text, key)) return std::string(*message);
  }
  return std::string(text);
}

}  // namespace tarsil
