// An HTTPS server in a process of its own, and the certificate that it shows.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

/// A fresh key and a certificate for it that is its own authority. Made with the openssl command.
class TlsIdentity {
 public:
  /// `name` is whom the certificate is for, such as "IP:127.0.0.1" or "DNS:host.example".
  explicit TlsIdentity(const std::string& name);

  /// Makes the certificate anew, as one that ended yesterday.
  void expire();

  /// Makes the certificate anew, as one that `authority` vouches for. Their names have to differ.
  void be_issued_by(const TlsIdentity& authority);

  [[nodiscard]] std::string certificate() const { return directory_.file("certificate.pem"); }
  [[nodiscard]] std::string key() const { return directory_.file("key.pem"); }

 private:
  void sign_anew(const std::vector<std::string>& how);

  TempDirectory directory_;
};

/// Answers every request with a certificate of health. Killed when the object goes.
class TlsServer {
 public:
  /// `mode` is what the server's program is told besides; see there.
  explicit TlsServer(const TlsIdentity& identity, const std::vector<std::string>& mode = {});

  /// At 127.0.0.1.
  [[nodiscard]] std::string port() const { return port_; }

  /// Whether the server has reported a line that begins like this.
  [[nodiscard]] bool has_line(const std::string& beginning);
  [[nodiscard]] bool wait_for_line(const std::string& beginning);

 private:
  Process process_;
  std::string port_;
};

}  // namespace tarsil::test
