// Requests over HTTPS: whom the client trusts, and where it finds the certificates that say so. Each request
// is made in a child process whose root directory is the test's own, so that the bundles are what the test
// puts there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "tarsil/health/certificate.h"
#include "tests/health/http_server.h"
#include "tests/health/network.h"
#include "tests/health/tls_server.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil {

namespace {

namespace fs = std::filesystem;
using test::network_error;
using test::TlsIdentity;
using test::TlsServer;

constexpr const char* kFirstBundle = "etc/ssl/certs/ca-certificates.crt";
constexpr const char* kSecondBundle = "etc/pki/tls/certs/ca-bundle.crt";
constexpr const char* kThirdBundle = "etc/ssl/ca-bundle.pem";

/// Whoever is not the superuser becomes it in a user namespace, where everyone may change the root directory.
bool enter_root(const std::string& path) {
  if (::chroot(path.c_str()) != 0) {
    if (errno != EPERM || ::unshare(CLONE_NEWUSER) != 0 || ::chroot(path.c_str()) != 0) return false;
  }
  return ::chdir("/") == 0;
}

/// What `action` returns, or the message of what it throws, in a child process that sees `root` as "/".
/// Says so if a signal ended the child.
std::string in_root(const std::string& root, const std::function<std::string()>& action) {
  constexpr unsigned kPatienceSeconds = 60;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::runtime_error("cannot make a pipe");
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    ::alarm(kPatienceSeconds);
    std::string said = "cannot change the root directory";
    try {
      if (enter_root(root)) said = action();
    } catch (const std::exception& error) {
      said = error.what();
    }
    const bool told = ::write(ends[1], said.data(), said.size()) == static_cast<ssize_t>(said.size());
    ::_exit(told ? 0 : 1);
  }
  ::close(ends[1]);
  const test::Descriptor heard(ends[0]);
  std::string said;
  std::array<char, 4096> bytes;
  for (ssize_t count = 0; (count = ::read(heard.get(), bytes.data(), bytes.size())) > 0;) {
    said.append(bytes.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) said += "killed by signal " + std::to_string(WTERMSIG(status));
  return said;
}

class Tls : public test::LoopbackTest {
 protected:
  /// Puts a bundle with this one certificate into the root directory.
  void add_bundle(const char* path, const std::string& certificate) {
    prepare(path);
    test::write_file(root_.path() / path, test::read_file(certificate));
  }

  /// Puts something there that nobody can open, not even the superuser.
  void add_unopenable_bundle(const char* path) {
    prepare(path);
    fs::create_symlink(fs::path(path).filename(), root_.path() / path);
  }

  [[nodiscard]] std::string upload(const TlsServer& server) const {
    return upload_to("https://127.0.0.1:" + server.port() + "/v3/tarsil/health", "{}\n");
  }

  [[nodiscard]] std::string upload_to(const std::string& url, const std::string& document) const {
    return in_root(root_.path(), [&] { return upload_health_report(url, document, "").certificate_url; });
  }

  TlsIdentity own_{"IP:127.0.0.1"};
  TlsIdentity other_{"IP:127.0.0.1"};

 private:
  void prepare(const char* path) { fs::create_directories((root_.path() / path).parent_path()); }

  test::TempDirectory root_;
};

constexpr const char* kCertificateUrl = "https://host.example/c/TC-TLS";

TEST_F(Tls, request_reaches_a_trusted_server) {
  TlsServer server(own_);
  add_bundle(kFirstBundle, own_.certificate());
  EXPECT_EQ(upload(server), kCertificateUrl);
  EXPECT_TRUE(server.wait_for_line("POST /v3/tarsil/health HTTP/1.1 3"));
}

TEST_F(Tls, untrusted_server_gets_nothing) {
  TlsServer server(own_);
  add_bundle(kFirstBundle, other_.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
  EXPECT_FALSE(server.has_line("POST"));
}

TEST_F(Tls, server_of_another_name_gets_nothing) {
  const TlsIdentity misplaced("DNS:certificates.tarsil.example");
  TlsServer server(misplaced);
  add_bundle(kFirstBundle, misplaced.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
  EXPECT_FALSE(server.has_line("POST"));
}

TEST_F(Tls, server_with_an_expired_certificate_gets_nothing) {
  TlsIdentity expired("IP:127.0.0.1");
  expired.expire();
  TlsServer server(expired);
  add_bundle(kFirstBundle, expired.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
  EXPECT_FALSE(server.has_line("POST"));
}

TEST_F(Tls, authority_decides_whether_a_server_is_trusted) {
  TlsIdentity issued("IP:127.0.0.1,DNS:server.example");
  issued.be_issued_by(own_);
  TlsServer server(issued);
  add_bundle(kFirstBundle, other_.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
  EXPECT_FALSE(server.has_line("POST"));
  add_bundle(kFirstBundle, own_.certificate());
  EXPECT_EQ(upload(server), kCertificateUrl);
}

TEST_F(Tls, second_bundle_is_found) {
  TlsServer server(own_);
  add_bundle(kSecondBundle, own_.certificate());
  EXPECT_EQ(upload(server), kCertificateUrl);
}

TEST_F(Tls, third_bundle_is_found) {
  TlsServer server(own_);
  add_bundle(kThirdBundle, own_.certificate());
  EXPECT_EQ(upload(server), kCertificateUrl);
}

TEST_F(Tls, bundles_that_cannot_be_opened_are_passed_over) {
  TlsServer server(own_);
  add_unopenable_bundle(kFirstBundle);
  add_unopenable_bundle(kSecondBundle);
  add_bundle(kThirdBundle, own_.certificate());
  EXPECT_EQ(upload(server), kCertificateUrl);
}

TEST_F(Tls, search_stops_at_the_first_bundle) {
  TlsServer server(own_);
  add_bundle(kFirstBundle, other_.certificate());
  add_bundle(kSecondBundle, own_.certificate());
  add_bundle(kThirdBundle, own_.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
}

TEST_F(Tls, second_bundle_comes_before_the_third) {
  TlsServer server(own_);
  add_bundle(kSecondBundle, other_.certificate());
  add_bundle(kThirdBundle, own_.certificate());
  EXPECT_EQ(upload(server), network_error(CURLE_PEER_FAILED_VERIFICATION));
}

TEST_F(Tls, server_is_not_trusted_without_a_bundle) {
  TlsServer server(own_);
  // What exactly is wrong then is the library's own configuration.
  EXPECT_THAT(upload(server), testing::StartsWith("Network error: "));
  EXPECT_FALSE(server.has_line("POST"));
}

TEST_F(Tls, plain_request_needs_no_bundle) {
  const test::HttpServer server(test::http_answer(200, R"({"certificate_url": "u"})"));
  EXPECT_EQ(upload_to(server.url(), "{}\n"), "u");
}

TEST_F(Tls, connection_that_breaks_is_an_error_and_not_the_end_of_the_program) {
  TlsServer server(own_, {"reset"});
  add_bundle(kFirstBundle, own_.certificate());
  constexpr std::size_t kMoreThanTheLineHolds = 20'000'000;
  const std::string url = "https://127.0.0.1:" + server.port() + "/";
  EXPECT_THAT(upload_to(url, std::string(kMoreThanTheLineHolds, ' ')),
              testing::StartsWith("Network error: "));
  EXPECT_TRUE(server.wait_for_line("reset"));
}

TEST_F(Tls, name_that_is_not_found_is_an_error) {
  EXPECT_EQ(upload_to("https://certificates.invalid/", "{}\n"), network_error(CURLE_COULDNT_RESOLVE_HOST));
}

}  // namespace

}  // namespace tarsil
