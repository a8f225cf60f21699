// The command health as a person runs it: collecting, the table, the question, the upload.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/end_to_end_health/health_tool.h"
#include "tests/health/http_server.h"
#include "tests/health/network.h"
#include "tests/health/tls_server.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"
#include "tests/support/wait.h"

namespace tarsil::test {

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kQuestion = "\nUpload for health certificate? [y/N] ";
const std::vector<std::string> kShortMock{"--mock", "--hz", "2000", "--frames", "20"};
constexpr const char* kCertificateBody =
    R"({"ok": true, "certificate_id": "TC-17", "certificate_url": "https:\/\/host.example\/c\/TC-17", )"
    R"("issued_at": "2026-03-01T10:00:00Z"})";
constexpr const char* kCertificateText =
    "\n"
    "Certificate ID : TC-17\n"
    "Certificate URL: https://host.example/c/TC-17\n"
    "Issued at      : 2026-03-01T10:00:00Z\n";

std::vector<std::string> with(std::vector<std::string> arguments, const std::string& more) {
  arguments.push_back(more);
  return arguments;
}

/// Runs health on the mock with --upload against a server that answers like this.
Finished upload_answered_by(const HttpAnswer& answer) {
  const HttpServer server(answer);
  return run(health(with(kShortMock, "--upload"), server.url()));
}

TEST(Health, mock_is_collected_and_shown) {
  const Finished done = run(health({"--mock", "--hz", "10000"}));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.error, "");
  EXPECT_THAT(done.output, StartsWith("Collecting 500 frames for health analysis...\n"
                                      "\n"
                                      "Health check — MOCK-0001  fw mock-0.1.0\n"
                                      "Frames analyzed: 500\n"
                                      "\n"
                                      "DOF   Score     Noise(mrad)   Backlash(mrad)  Dropouts  \n"));
  EXPECT_THAT(done.output, EndsWith(std::string("%\n") + kQuestion));
  const std::vector<HealthRow> rows = health_rows(done.output);
  ASSERT_EQ(rows.size(), 20U);
  for (std::size_t d = 0; d < rows.size(); ++d) {
    EXPECT_EQ(rows[d].dof, static_cast<int>(d));
    EXPECT_GT(rows[d].noise, 0.5);
    EXPECT_GT(rows[d].backlash, 3.0);
  }
}

TEST(Health, five_frames_are_shown_and_refused) {
  const Finished done = run(health({"--mock", "--frames", "5"}));
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(frames_analyzed(done.output), 5);
  EXPECT_EQ(health_rows(done.output).size(), 20U);
  EXPECT_THAT(done.output, EndsWith("%\n"));
  EXPECT_THAT(done.output, Not(HasSubstr("Upload")));
  EXPECT_EQ(done.error, "Error: only 5 frames collected — need at least 10 for a valid report.\n");
}

TEST(Health, ten_frames_are_enough) {
  const Finished done = run(health({"--mock", "--frames", "10"}));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(frames_analyzed(done.output), 10);
  EXPECT_THAT(done.output, EndsWith(kQuestion));
}

TEST(Health, bad_options_are_errors_before_anything_is_printed) {
  const Finished frames = run(health({"--mock", "--frames", "many"}));
  EXPECT_EQ(frames.status, (ExitStatus{1, 0}));
  EXPECT_EQ(frames.output, "");
  EXPECT_THAT(frames.error, StartsWith("Error: "));
  EXPECT_THAT(frames.error, HasSubstr("stoi"));
  const Finished hz = run(health({"--mock", "--hz", "fast"}));
  EXPECT_EQ(hz.status, (ExitStatus{1, 0}));
  EXPECT_EQ(hz.output, "");
  EXPECT_THAT(hz.error, StartsWith("Error: "));
  EXPECT_THAT(hz.error, HasSubstr("stof"));
}

TEST(Health, question_is_visible_before_the_answer_is_given) {
  const HttpServer server(http_answer(200, kCertificateBody));
  Process tool(health(kShortMock, server.url()));
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  EXPECT_THAT(tool.output(), EndsWith(kQuestion));
  EXPECT_TRUE(server.requests().empty());
  tool.write_input("y\n");
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_THAT(tool.output(), EndsWith(kQuestion + std::string("Uploading to ") + server.url() + " ...\n" +
                                      kCertificateText));
  EXPECT_EQ(tool.error(), "");
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST(Health, answer_may_come_in_pieces) {
  const HttpServer server(http_answer(200, kCertificateBody));
  Process tool(health(kShortMock, server.url()));
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  // It may go to sleep for the answer only after the question is visible: once for that, once for the rest.
  const std::uint64_t waits = voluntary_waits(tool.pid());
  tool.write_input("n");
  EXPECT_TRUE(eventually([&] { return voluntary_waits(tool.pid()) > waits; }));
  tool.write_input("o, y");
  tool.close_input();
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_TRUE(server.requests().empty());
}

TEST(Health, refused_upload_sends_nothing) {
  const HttpServer server(http_answer(200, kCertificateBody));
  for (const char* answer : {"n\n", "\n", " y\n"}) {
    Process tool(health(kShortMock, server.url()));
    tool.write_input(answer);
    EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
    EXPECT_THAT(tool.output(), EndsWith(kQuestion));
    EXPECT_EQ(tool.error(), "");
  }
  EXPECT_TRUE(server.requests().empty());
}

TEST(Health, end_of_input_refuses) {
  const HttpServer server(http_answer(200, kCertificateBody));
  const Finished done = run(health(kShortMock, server.url()));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_THAT(done.output, EndsWith(kQuestion));
  EXPECT_TRUE(server.requests().empty());
}

TEST(Health, closed_standard_input_refuses) {
  const HttpServer server(http_answer(200, kCertificateBody));
  ProcessOptions options = health(kShortMock, server.url());
  options.in_child = [] { ::close(STDIN_FILENO); };
  const Finished done = run(options);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_THAT(done.output, EndsWith(kQuestion));
  EXPECT_TRUE(server.requests().empty());
}

TEST(Health, signal_while_the_answer_is_awaited_refuses) {
  const HttpServer server(http_answer(200, kCertificateBody));
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const char* typed : {"", "y"}) {
      Process tool(health(kShortMock, server.url()));
      tool.write_input(typed);
      ASSERT_TRUE(tool.wait_for_output(kQuestion));
      tool.send_signal(signal);
      ASSERT_EQ(tool.wait(), (ExitStatus{0, 0}));
      EXPECT_THAT(tool.output(), EndsWith(kQuestion));
      EXPECT_EQ(tool.error(), "");
    }
  }
  EXPECT_TRUE(server.requests().empty());
}

TEST(Health, question_outlives_a_pause_of_the_job) {
  const HttpServer server(http_answer(200, kCertificateBody));
  Process tool(health(kShortMock, server.url()));
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  tool.send_signal(SIGSTOP);
  const std::string state = "/proc/" + std::to_string(tool.pid()) + "/status";
  EXPECT_TRUE(eventually([&] { return read_file(state).find("\nState:\tT") != std::string::npos; }));
  tool.send_signal(SIGCONT);
  tool.send_signal(SIGWINCH);
  tool.write_input("y\n");
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_THAT(tool.output(), EndsWith(kCertificateText));
}

TEST(Health, interrupt_ends_the_collection_and_the_question_is_asked) {
  const HttpServer server(http_answer(200, kCertificateBody));
  Process tool(health({"--mock", "--hz", "500", "--frames", "1000000"}, server.url()));
  ASSERT_TRUE(tool.wait_for_output("Collecting 1000000 frames for health analysis...\n"));
  const std::uint64_t waits = voluntary_waits(tool.pid());
  ASSERT_TRUE(eventually([&] { return voluntary_waits(tool.pid()) >= waits + 40; }));
  tool.send_signal(SIGINT);
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  EXPECT_GE(frames_analyzed(tool.output()), 12);
  tool.write_input("yes\n");
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_THAT(tool.output(), EndsWith(kCertificateText));
}

TEST(Health, upload_option_sends_the_report_without_asking) {
  const HttpServer server(http_answer(200, kCertificateBody));
  const Finished done = run(health(with(kShortMock, "--upload"), server.url("/my/own/path?x=1")));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_THAT(done.output, Not(HasSubstr("[y/N]")));
  EXPECT_THAT(done.output,
              EndsWith("%\nUploading to " + server.url("/my/own/path?x=1") + " ...\n" + kCertificateText));
  ASSERT_EQ(server.requests().size(), 1U);
  const HttpRequest request = server.requests()[0];
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/my/own/path?x=1");
  std::vector<std::string> names;
  for (const auto& [name, value] : request.headers) names.push_back(name);
  EXPECT_THAT(names, testing::IsSupersetOf({"Content-Type", "Accept"}));
  EXPECT_THAT(names, Not(testing::Contains("X-API-Key")));
}

TEST(Health, uploaded_document_says_what_the_table_says) {
  const HttpServer server(http_answer(200, kCertificateBody));
  const Finished done = run(health(with(kShortMock, "--upload"), server.url()));
  ASSERT_EQ(server.requests().size(), 1U);
  const TempDirectory directory;
  write_file(directory.file("report.json"), server.requests()[0].body);
  const Finished reader = run({"python3", "-c",
                               "import json, sys\n"
                               "r = json.load(open(sys.argv[1]))\n"
                               "print(r['sdk_version'], r['os'], r['device_serial'], r['device_firmware'])\n"
                               "print(r['device_side'], r['device_n_dofs'], r['frames_analyzed'])\n"
                               "for j in r['joints']:\n"
                               "  print('%s %d %d' % (j['name'], j['dof'], j['dropouts']))\n",
                               directory.file("report.json")});
  std::string expected = "0.3.0 Linux MOCK-0001 mock-0.1.0\nR 20 20\n";
  for (const HealthRow& row : health_rows(done.output)) {
    expected += "Joint " + std::to_string(row.dof + 1) + " " + std::to_string(row.dof) + " " +
                std::to_string(row.dropouts) + "\n";
  }
  EXPECT_EQ(reader.error, "");
  EXPECT_EQ(reader.output, expected);
}

TEST(Health, certificate_may_lack_identifier_and_time) {
  const Finished done = upload_answered_by(http_answer(200, R"({"certificate_url":"https://host.example"})"));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_THAT(done.output, EndsWith("\nCertificate ID : \n"
                                    "Certificate URL: https://host.example\n"
                                    "Issued at      : \n"));
}

TEST(Health, failed_upload_is_one_message_and_the_table_stays) {
  const HttpServer server(http_answer(500, R"({"error": "boom"})"));
  const Finished done = run(health(with(kShortMock, "--upload"), server.url()));
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(health_rows(done.output).size(), 20U);
  EXPECT_THAT(done.output, EndsWith("%\nUploading to " + server.url() + " ...\n"));
  EXPECT_EQ(done.error, "Upload failed: HTTP 500: boom\n");
}

TEST(Health, every_refusal_of_the_service_is_told) {
  const auto error_for = [](int status, const std::string& body) {
    const Finished done = upload_answered_by(http_answer(status, body));
    EXPECT_EQ(done.status, (ExitStatus{1, 0}));
    return done.error;
  };
  EXPECT_EQ(error_for(401, "{}"),
            "Upload failed: Invalid API key (HTTP 401).\n"
            "Set your key: export TARSIL_API_KEY=<your_key>\n"
            "Contact Vorlix to obtain your key.\n");
  EXPECT_EQ(error_for(403, R"({"detail": "forbidden"})"),
            "Upload failed: Access denied (HTTP 403). forbidden\n");
  EXPECT_EQ(
      error_for(429, "{}"),
      "Upload failed: Rate limit exceeded (HTTP 429). Wait before retrying (limit: 120 requests/hour).\n");
  EXPECT_EQ(error_for(201, kCertificateBody),
            std::string("Upload failed: HTTP 201: ") + kCertificateBody + "\n");
  EXPECT_EQ(error_for(200, R"({"ok": false})"), "Upload failed: Server error: {\"ok\": false}\n");
  EXPECT_EQ(error_for(200, "{}"), "Upload failed: Server response missing 'certificate_url': {}\n");
}

TEST(Health, answer_of_the_service_does_not_drive_the_terminal) {
  const HttpServer server(http_answer(500, "\x1b]52;c;c2VjcmV0\x07\nsecond line\r\n"));
  Terminal terminal;
  ProcessOptions options = health(with(kShortMock, "--upload"), server.url());
  options.error_path = terminal.path();
  EXPECT_EQ(run(options).status, (ExitStatus{1, 0}));
  const std::string shown = "Upload failed: HTTP 500: \\x1b]52;c;c2VjcmV0\\x07\nsecond line\r\n\n";
  EXPECT_TRUE(terminal.wait_for_end(shown));
  EXPECT_EQ(terminal.shown(), shown);
}

TEST(Health, network_failures_are_told) {
  const ClosedPort nobody;
  const Finished refused = run(health(with(kShortMock, "--upload"), nobody.url()));
  EXPECT_EQ(refused.status, (ExitStatus{1, 0}));
  EXPECT_EQ(refused.error, "Upload failed: " + network_error(CURLE_COULDNT_CONNECT) + "\n");
  const Finished cut = upload_answered_by({{"HTTP/1.1 200 OK\r\nContent-Length: 900\r\n\r\n{\"ok\""}});
  EXPECT_EQ(cut.status, (ExitStatus{1, 0}));
  EXPECT_EQ(cut.error, "Upload failed: " + network_error(CURLE_PARTIAL_FILE) + "\n");
  const Finished local = run(health(with(kShortMock, "--upload"), "file:///etc/hostname"));
  EXPECT_EQ(local.status, (ExitStatus{1, 0}));
  EXPECT_EQ(local.error, "Upload failed: " + network_error(CURLE_UNSUPPORTED_PROTOCOL) + "\n");
}

TEST(Health, answer_that_memory_cannot_hold_is_told) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer's own memory does not fit below such a limit";
#endif
  const HttpServer server(
      {.pieces = {"HTTP/1.1 200 OK\r\n\r\n", std::string(1'000'000, ' ')}, .endless = true});
  ProcessOptions options = health(with(kShortMock, "--upload"), server.url());
  options.in_child = [] {
    constexpr rlim_t kBytes = 256'000'000;
    const rlimit limit{kBytes, kBytes};
    ::setrlimit(RLIMIT_AS, &limit);
  };
  const Finished done = run(options);
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(done.error, "Upload failed: " + network_error(CURLE_WRITE_ERROR) + "\n");
}

TEST(Health, empty_address_is_an_address) {
  const Finished done = run(health(with(kShortMock, "--upload"), ""));
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_THAT(done.output, EndsWith("%\nUploading to  ...\n"));
  EXPECT_EQ(done.error, "Upload failed: " + network_error(CURLE_URL_MALFORMAT) + "\n");
}

TEST(Health, redirection_is_not_followed) {
  const HttpServer elsewhere(http_answer(200, kCertificateBody));
  const Finished done = upload_answered_by(
      {{"HTTP/1.1 302 Found\r\nLocation: " + elsewhere.url() + "\r\nContent-Length: 5\r\n\r\nmoved"}});
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(done.error, "Upload failed: HTTP 302: moved\n");
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST(Health, report_goes_to_the_makers_service_unless_told_otherwise) {
  // A proxy that nobody runs stands between the tool and the service, so that nothing leaves the machine.
  const ClosedPort nobody;
  ProcessOptions options = health(with(kShortMock, "--upload"));
  options.environment = {{"https_proxy", nobody.url()}, {"no_proxy", ""}, {"NO_PROXY", ""}};
  options.command.insert(options.command.begin(), {"env", "-u", "TARSIL_SERVER_URL"});
  const Finished done = run(options);
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_THAT(done.output,
              EndsWith("%\nUploading to https://certificates.tarsil.example/v3/tarsil/health ...\n"));
  EXPECT_EQ(done.error, "Upload failed: " + network_error(CURLE_COULDNT_CONNECT) + "\n");
}

TEST(Health, untrusted_service_gets_nothing) {
  const TlsIdentity stranger("IP:127.0.0.1");
  TlsServer server(stranger);
  const Finished done =
      run(health(with(kShortMock, "--upload"), "https://127.0.0.1:" + server.port() + "/v3/tarsil/health"));
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_THAT(done.error, StartsWith("Upload failed: Network error: "));
  EXPECT_FALSE(server.has_line("POST"));
}

TEST(Health, interrupt_during_the_upload_has_no_effect) {
  HttpAnswer answer = http_answer(200, kCertificateBody);
  answer.held = true;
  HttpServer server(answer);
  Process tool(health(with(kShortMock, "--upload"), server.url()));
  ASSERT_TRUE(eventually([&] { return !server.requests().empty(); }));
  tool.send_signal(SIGINT);
  tool.send_signal(SIGTERM);
  server.release();
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
  EXPECT_THAT(tool.output(), EndsWith(kCertificateText));
  EXPECT_EQ(tool.error(), "");
}

TEST(Health, full_disk_behind_standard_output_is_an_error) {
  ProcessOptions options = health(kShortMock);
  options.output_path = "/dev/full";
  const Finished done = run(options);
  EXPECT_EQ(done.status, (ExitStatus{1, 0}));
  EXPECT_EQ(done.error, "Error: cannot write to standard output: No space left on device\n");
}

TEST(Health, nothing_is_uploaded_when_nobody_reads_the_output_any_more) {
  const HttpServer server(http_answer(200, kCertificateBody));
  Process tool(health(kShortMock, server.url()));
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  tool.close_output();
  tool.write_input("y\n");
  EXPECT_EQ(tool.wait(), (ExitStatus{-1, SIGPIPE}));
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace

}  // namespace tarsil::test
