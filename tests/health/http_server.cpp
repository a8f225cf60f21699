// Blocking sockets; an event descriptor wakes the thread when the server has to stop.
#include "tests/health/http_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace tarsil::test {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr int kBacklog = 64;

int bind_to_loopback() {
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (descriptor < 0 || ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot bind a port of 127.0.0.1");
  }
  return descriptor;
}

int listen_on_loopback() {
  const int descriptor = bind_to_loopback();
  if (::listen(descriptor, kBacklog) != 0) throw std::runtime_error("cannot listen on 127.0.0.1");
  return descriptor;
}

std::string base_url(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot tell the port of a socket");
  }
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

bool send_all(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string_view take_line(std::string_view& text) {
  const std::size_t end = std::min(text.find("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 2, text.size()));
  return line;
}

HttpRequest parse_head(std::string_view head) {
  HttpRequest request;
  const std::string_view first = take_line(head);
  const std::size_t space = first.find(' ');
  request.method = first.substr(0, space);
  request.target = first.substr(space + 1, first.rfind(' ') - space - 1);
  while (!head.empty()) {
    const std::string_view line = take_line(head);
    const std::size_t colon = line.find(": ");
    request.headers.emplace_back(line.substr(0, colon), line.substr(colon + 2));
  }
  return request;
}

std::optional<std::string> header(const HttpRequest& request, std::string_view name) {
  for (const auto& [key, value] : request.headers) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::size_t body_size(const HttpRequest& request) {
  return std::stoul(header(request, "Content-Length").value_or("0"));
}

}  // namespace

HttpAnswer http_answer(int status, const std::string& body) {
  const std::string head =
      "HTTP/1.1 " + std::to_string(status) +
      " Said\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\nConnection: close\r\n\r\n";
  // An answer with this status has no body, and no length either.
  constexpr int kNoContent = 204;
  if (status == kNoContent) return {{"HTTP/1.1 204 Said\r\nConnection: close\r\n\r\n"}};
  return {{head + body}};
}

Descriptor::~Descriptor() {
  ::close(number_);
}

ClosedPort::ClosedPort() : socket_(bind_to_loopback()) {}

std::string ClosedPort::url() const {
  return base_url(socket_.get());
}

HttpServer::HttpServer(std::vector<HttpAnswer> answers)
    : answers_(std::move(answers)),
      listener_(listen_on_loopback()),
      stop_event_(::eventfd(0, EFD_CLOEXEC)),
      thread_([this] { serve(); }) {}

HttpServer::~HttpServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  eventfd_write(stop_event_.get(), 1);
  thread_.join();
}

std::string HttpServer::url(const std::string& path) const {
  return base_url(listener_.get()) + path;
}

std::vector<HttpRequest> HttpServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void HttpServer::release() {
  {
    const std::lock_guard lock(mutex_);
    released_ = true;
  }
  changed_.notify_all();
}

void HttpServer::serve() {
  for (std::size_t served = 0; wait_readable(listener_.get()); ++served) {
    const Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (client.get() < 0) continue;
    serve_client(client.get(), answers_[std::min(served, answers_.size() - 1)]);
  }
}

void HttpServer::serve_client(int client, const HttpAnswer& answer) {
  if (!receive_request(client)) return;
  if (answer.held && !wait_for_release()) return;
  send_answer(client, answer);
  // Bytes that nobody read would turn the end of the connection into a reset, and the answer could be lost.
  ::shutdown(client, SHUT_WR);
  std::array<char, 4096> rest;
  while (wait_readable(client) && ::recv(client, rest.data(), rest.size(), 0) > 0) {
  }
}

bool HttpServer::receive_request(int client) {
  std::string text;
  std::optional<HttpRequest> request;
  std::size_t whole = 0;
  while (!request || text.size() < whole) {
    std::array<char, 65536> bytes;
    if (!wait_readable(client)) return false;
    const ssize_t count = ::recv(client, bytes.data(), bytes.size(), 0);
    if (count <= 0) return false;
    text.append(bytes.data(), static_cast<std::size_t>(count));
    const std::size_t head = text.find(kHeadEnd);
    if (request || head == std::string::npos) continue;
    request = parse_head(std::string_view(text).substr(0, head));
    whole = head + kHeadEnd.size() + body_size(*request);
    if (header(*request, "Expect")) send_all(client, "HTTP/1.1 100 Continue\r\n\r\n");
  }
  request->body = text.substr(whole - body_size(*request));
  const std::lock_guard lock(mutex_);
  requests_.push_back(std::move(*request));
  return true;
}

void HttpServer::send_answer(int client, const HttpAnswer& answer) {
  for (std::size_t i = 0; i < answer.pieces.size(); ++i) {
    if (i > 0 && !sleep_for(answer.pause)) return;
    if (!send_all(client, answer.pieces[i])) return;
  }
  while (answer.endless) {
    if (!sleep_for(answer.pause) || !send_all(client, answer.pieces.back())) return;
  }
}

bool HttpServer::wait_readable(int descriptor) const {
  while (true) {
    std::array<pollfd, 2> polled{{{descriptor, POLLIN, 0}, {stop_event_.get(), POLLIN, 0}}};
    if (::poll(polled.data(), polled.size(), -1) < 0) continue;
    if (polled[1].revents != 0) return false;
    if (polled[0].revents != 0) return true;
  }
}

bool HttpServer::wait_for_release() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return stopping_ || released_; });
  return !stopping_;
}

bool HttpServer::sleep_for(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, time, [this] { return stopping_; });
}

}  // namespace tarsil::test
