// A small HTTP server on the loopback interface whose every answer a test writes down byte by byte, mistakes
// included.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tarsil::test {

/// A request as it came over the wire.
struct HttpRequest {
  std::string method;
  std::string target;
  /// Names and values in the order in which they came.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

/// What the server sends to one client before it ends the connection.
struct HttpAnswer {
  /// The bytes, in the pieces in which they are sent.
  std::vector<std::string> pieces = {};
  /// The time between two pieces.
  std::chrono::milliseconds pause{0};
  /// Sends the last piece again and again, until the client leaves.
  bool endless = false;
  /// Sends nothing before the test calls release().
  bool held = false;
};

/// A whole and correct answer.
[[nodiscard]] HttpAnswer http_answer(int status, const std::string& body);

/// An open file descriptor with an owner.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  [[nodiscard]] int get() const { return number_; }

 private:
  int number_;
};

/// A port of 127.0.0.1 at which nobody listens, and nobody else can while the object lives.
class ClosedPort {
 public:
  ClosedPort();

  /// "http://127.0.0.1:PORT"
  [[nodiscard]] std::string url() const;

 private:
  Descriptor socket_;
};

/// Serves one client after the other in a thread of its own: the n-th gets the n-th answer, and those who
/// come later get the last one. Any thread may ask it.
class HttpServer {
 public:
  explicit HttpServer(std::vector<HttpAnswer> answers);
  explicit HttpServer(HttpAnswer answer) : HttpServer(std::vector<HttpAnswer>{std::move(answer)}) {}
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  ~HttpServer();

  /// The address of `path` at this server.
  [[nodiscard]] std::string url(const std::string& path = "/v3/tarsil/health") const;

  /// The requests that came whole so far.
  [[nodiscard]] std::vector<HttpRequest> requests() const;

  /// Lets the held answers go out.
  void release();

 private:
  void serve();
  void serve_client(int client, const HttpAnswer& answer);
  bool receive_request(int client);
  void send_answer(int client, const HttpAnswer& answer);
  /// Waits until the descriptor is readable; false if the server has to stop first.
  [[nodiscard]] bool wait_readable(int descriptor) const;
  /// False if the server has to stop first.
  bool wait_for_release();
  bool sleep_for(std::chrono::milliseconds time);

  std::vector<HttpAnswer> answers_;
  Descriptor listener_;
  Descriptor stop_event_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  bool released_ = false;
  std::vector<HttpRequest> requests_;
  std::thread thread_;
};

}  // namespace tarsil::test
