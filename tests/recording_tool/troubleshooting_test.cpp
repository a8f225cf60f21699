// docs/troubleshooting.md quotes what the programs print. Here each of these texts is brought about.
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarsil/cli/commands.h"
#include "tarsil/serial/port_scan.h"
#include "tarsil/serial/serial_source.h"
#include "tests/end_to_end/tool.h"
#include "tests/end_to_end_health/scripted_source.h"
#include "tests/recording/samples.h"
#include "tests/recording_tool/sample_recording.h"
#include "tests/support/temp_directory.h"
#include "tests/support/terminal.h"
#include "tools/virtual_glove/virtual_glove.h"

namespace tarsil::test {
namespace {

namespace fs = std::filesystem;

/// The texts in the page's boxes.
std::vector<std::string> quoted_texts() {
  std::vector<std::string> texts;
  bool inside = false;
  for (const std::string& line : lines_of(read_file(TARSIL_DOCS "/troubleshooting.md"))) {
    if (inside && line != "```") texts.push_back(line);
    if (line.starts_with("```")) inside = line == "```text";
  }
  return texts;
}

/// How the tool reports what `action` throws.
std::string reported(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return "Error: " + std::string(error.what()) + "\n";
  }
  return "no error\n";
}

class TroubleshootingPage : public testing::Test {
 protected:
  /// Runs a program in the test's directory and notes what it prints.
  void note(ProcessOptions options) {
    options.directory = directory_.path();
    const Finished finished = run(std::move(options));
    printed_ += finished.output + finished.error;
  }

  void note_missing_gloves() {
    printed_ += cli::format_device_list({});
    const TempDirectory devices;
    printed_ += reported([&] { static_cast<void>(detail::auto_detect_port_in(devices.path())); });
    for (const char* const name : {"ttyACM0", "ttyACM1"}) fs::create_symlink("/dev/null", devices.file(name));
    printed_ += reported([&] { static_cast<void>(detail::auto_detect_port_in(devices.path())); });
    const Terminal silent;
    std::string text = reported([&] { SerialSource source({.port = silent.path(), .timeout_ms = 10}); });
    const std::size_t at = text.find(silent.path());
    if (at != std::string::npos) text.replace(at, silent.path().size(), "/dev/ttyACM0");
    printed_ += text;
    note(tool({"record", "none.tsl", "--port", "missing"}));
  }

  /// What the commands make of the empty frames that a source repeats while it waits for its glove.
  void note_waiting() {
    const std::vector<std::vector<std::string>> commands{
        {"stream"}, {"doctor"}, {"health", "--frames", "10"}};
    for (const std::int32_t joints : {0, 20}) {
      SourceScript waiting;
      waiting.frame = [](int) {
        Frame frame;
        frame.stale = true;
        return frame;
      };
      waiting.info = [joints](int) {
        DeviceInfo info;
        info.n_dofs = joints;
        return info;
      };
      for (const auto& command : commands) {
        const Finished finished = run_with_source(waiting, command).finished;
        printed_ += finished.output + finished.error;
      }
    }
  }

  void note_lost_glove() {
    virtual_glove::VirtualGlove glove;
    SerialSource source({.port = glove.port()});
    glove.unplug();
    printed_ += reported([&] {
      while (true) static_cast<void>(source.read_frame());
    });
  }

  void note_recordings() {
    const virtual_glove::VirtualGlove glove(
        {.hz = 2000, .faults = {{.kind = virtual_glove::FaultKind::lost_cycles, .rate = 0.2}}});
    note(tool({"record", "gaps.tsl", "--frames", "200", "--port", glove.port()}));
    write_file(directory_.file("stale.tsl"), header_line() + frame_line(0) + frame_line(1, true));
    note(recording_tool({"info", "stale.tsl"}));
    note(tool({"replay", "stale.tsl", "--speed", "0,5"}));
    note(tool({"stream", "--mock", "--hz", "0,5", "--count", "1"}));
    const std::string whole = small_recording(3);
    write_file(directory_.file("cut.tsl"), whole.substr(0, whole.size() - 30));
    note(recording_tool({"check", "cut.tsl"}));
    note(recording_tool({"recover", "cut.tsl", "whole.tsl"}));
    note(tool({"replay", "missing.tsl"}));
    write_file(directory_.file("take.csv"), "seq,t,stale\n");
    note(tool({"replay", "take.csv"}));
    fs::create_symlink("/dev/full", directory_.file("full.tsl"));
    note(tool({"record", "full.tsl", "--mock", "--frames", "1"}));
  }

  void note_uploads() {
    ProcessOptions health = tool({"health", "--mock", "--hz", "1000", "--frames", "20", "--upload"});
    health.environment = {{"TARSIL_SERVER_URL", "http://127.0.0.1:1/"}, {"no_proxy", "127.0.0.1"}};
    note(health);
    // What a connection to a stranger's server fails with is tested with the upload, and a name that does not
    // exist takes a network to look it up; here it is their texts that count.
    for (const CURLcode error : {CURLE_PEER_FAILED_VERIFICATION, CURLE_COULDNT_RESOLVE_HOST}) {
      printed_ += "Upload failed: Network error: ";
      printed_ += curl_easy_strerror(error);
      printed_ += "\n";
    }
  }

  TempDirectory directory_;
  std::string printed_;
};

TEST_F(TroubleshootingPage, quotes_what_is_printed) {
  note_missing_gloves();
  note_waiting();
  note_lost_glove();
  note_recordings();
  note_uploads();
  const std::vector<std::string> texts = quoted_texts();
  EXPECT_GE(texts.size(), 22U);
  for (const std::string& text : texts) {
    EXPECT_NE(printed_.find(text), std::string::npos) << text << "\nis not in\n" << printed_;
  }
}

TEST_F(TroubleshootingPage, leads_to_sections_that_are_there) {
  std::string headings;
  std::vector<std::string> links;
  for (const std::string& line : lines_of(read_file(TARSIL_DOCS "/troubleshooting.md"))) {
    if (line.starts_with("## ")) headings += line + "\n";
    if (line.starts_with("- [")) links.push_back(line.substr(3, line.find(']') - 3));
  }
  EXPECT_EQ(links.size(), 13U);
  for (const std::string& link : links)
    EXPECT_NE(headings.find("## " + link + "\n"), std::string::npos) << link;
}

}  // namespace
}  // namespace tarsil::test
