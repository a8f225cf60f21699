// tarsil health
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/cli/commands.h"
#include "tarsil/cli/input.h"
#include "tarsil/cli/open_device.h"
#include "tarsil/cli/options.h"
#include "tarsil/cli/output.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/health/analysis.h"
#include "tarsil/health/certificate.h"
#include "tarsil/health/report.h"

namespace tarsil::cli {

namespace {

constexpr std::int32_t kQueueDepth = 4096;
constexpr std::int32_t kMinFrames = 10;  // for a valid report
/// More than a day at 100 Hz. All frames are held in memory, so there has to be an end.
constexpr std::int32_t kMaxFrames = 10'000'000;

/// The build sets the host; the environment variable replaces the whole.
constexpr const char* kDefaultUrl = "https://" TARSIL_CERTIFICATE_HOST "/v3/tarsil/health";
constexpr const char* kUrlVariable = "TARSIL_SERVER_URL";

std::int32_t frame_limit(const Options& options) {
  const std::int32_t limit = std::stoi(option_or(options, "frames", "500"));
  if (limit < 0 || limit > kMaxFrames) {
    throw std::invalid_argument("--frames must be between 0 and " + std::to_string(kMaxFrames) + ", got " +
                                std::to_string(limit));
  }
  return limit;
}

/// Collects until the limit, a request to stop, or the end of the source. A limit of 0 is reached with the
/// first frame.
std::vector<Frame> collect(IDataSource& source, std::int32_t limit) {
  std::vector<Frame> frames;
  frames.reserve(static_cast<std::size_t>(limit));
  while (source.is_open()) {
    Frame frame = source.read_frame();
    if (stop_requested()) break;
    frames.push_back(std::move(frame));
    if (frames.size() >= static_cast<std::size_t>(limit)) break;
  }
  return frames;
}

/// Asks on the terminal. No answer is a "no", and so is Ctrl+C.
bool upload_is_wanted() {
  const std::optional<std::string> answer = ask("\nUpload for health certificate? [y/N] ");
  return answer && (answer->starts_with('y') || answer->starts_with('Y'));
}

int upload(const HealthReport& report, const DeviceInfo& info) {
  const char* const variable = std::getenv(kUrlVariable);
  const std::string url = variable != nullptr ? variable : kDefaultUrl;
  write_output("Uploading to " + url + " ...\n");
  Certificate certificate;
  try {
    certificate = upload_health_report(url, health_report_to_json(report, info), "");
  } catch (const std::exception& error) {
    write_error("Upload failed: " + std::string(error.what()) + "\n");
    return 1;
  }
  write_output("\nCertificate ID : " + certificate.certificate_id + "\nCertificate URL: " +
               certificate.certificate_url + "\nIssued at      : " + certificate.issued_at + "\n");
  return 0;
}

}  // namespace

int health_command(int count, const char* const* arguments) {
  const Options options = parse_options(count, arguments);
  const std::int32_t limit = frame_limit(options);
  const Device device = open_device(options, true, kQueueDepth);
  write_output("Collecting " + std::to_string(limit) + " frames for health analysis...\n");
  const std::vector<Frame> frames = collect(*device.source(), limit);
  if (frames.empty()) {
    write_error(
        "Error: no frames received from device.\n"
        "Check that the glove is powered on and the port is correct.\n");
    return 1;
  }
  // Asked for now: a glove that appeared late has told who it is by this time.
  const DeviceInfo info = device.source()->device_info();
  const HealthReport report = analyze_health(frames, info);
  write_output(format_health_report(report));
  // After the table on purpose: the user sees what little was measured.
  if (report.frames_analyzed < kMinFrames) {
    write_error("Error: only " + std::to_string(report.frames_analyzed) +
                " frames collected — need at least 10 for a valid report.\n");
    return 1;
  }
  if (!options.contains("upload") && !upload_is_wanted()) return 0;
  return upload(report, info);
}

}  // namespace tarsil::cli
