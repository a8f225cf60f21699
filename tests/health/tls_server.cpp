// The server itself is a Python program, and the openssl command makes the certificates.
#include "tests/health/tls_server.h"

#include <filesystem>
#include <stdexcept>

namespace tarsil::test {

namespace {

ProcessOptions server_options(const TlsIdentity& identity, const std::vector<std::string>& mode) {
  ProcessOptions options;
  options.command = {"python3", TARSIL_TLS_SERVER, identity.certificate(), identity.key()};
  options.command.insert(options.command.end(), mode.begin(), mode.end());
  return options;
}

}  // namespace

TlsIdentity::TlsIdentity(const std::string& name) {
  // A configuration of its own: the system's may be missing, or say anything.
  write_file(directory_.file("openssl.cnf"),
             "[req]\n"
             "distinguished_name = subject\n"
             "x509_extensions = extensions\n"
             "prompt = no\n"
             "[subject]\n"
             "CN = " +
                 name +
                 "\n"
                 "[extensions]\n"
                 "basicConstraints = critical, CA:true\n"
                 "subjectKeyIdentifier = hash\n"
                 "subjectAltName = " +
                 name + "\n");
  const Finished made =
      run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
           "-days", "2", "-config", directory_.file("openssl.cnf"), "-keyout", key(), "-out", certificate()});
  if (made.status.code != 0) throw std::runtime_error("openssl made no certificate: " + made.error);
}

void TlsIdentity::expire() {
  sign_anew({"-signkey", key(), "-days", "-1"});
}

void TlsIdentity::be_issued_by(const TlsIdentity& authority) {
  sign_anew({"-CA", authority.certificate(), "-CAkey", authority.key(), "-set_serial", "2", "-days", "2"});
}

void TlsIdentity::sign_anew(const std::vector<std::string>& how) {
  const std::string signed_anew = directory_.file("signed.pem");
  std::vector<std::string> command{"openssl", "x509", "-in", certificate(), "-out", signed_anew};
  command.insert(command.end(), how.begin(), how.end());
  const Finished made = run(command);
  if (made.status.code != 0) throw std::runtime_error("openssl made no certificate: " + made.error);
  std::filesystem::rename(signed_anew, certificate());
}

TlsServer::TlsServer(const TlsIdentity& identity, const std::vector<std::string>& mode)
    : process_(server_options(identity, mode)) {
  if (!process_.wait_for_output("\n"))
    throw std::runtime_error("the server does not start: " + process_.error());
  port_ = process_.output().substr(0, process_.output().find('\n'));
}

bool TlsServer::has_line(const std::string& beginning) {
  return process_.output().find('\n' + beginning) != std::string::npos;
}

bool TlsServer::wait_for_line(const std::string& beginning) {
  return process_.wait_for_output('\n' + beginning);
}

}  // namespace tarsil::test
