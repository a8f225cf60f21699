// Ports are told by their names; gloves by the first byte of the identity frame that they announce.
#include "tarsil/serial/ports.h"

#include <dirent.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <thread>

#include "tarsil/core/clock.h"
#include "tarsil/core/errors.h"
#include "tarsil/serial/port_scan.h"
#include "tarsil/serial/serial_port.h"
#include "tarsil/serial/wire.h"

namespace tarsil {

namespace detail {

namespace {

constexpr std::array<std::string_view, 2> kPortNames{"ttyUSB", "ttyACM"};

/// The line speed while listening, whatever the glove is used with later.
constexpr std::int32_t kProbeBaud = 2000000;
constexpr std::chrono::nanoseconds kProbeTime{999'999'999};

/// The names in a directory. The standard library's iterator does the same, but ends the process where memory
/// runs out, which here is an error like any other.
class DirectoryReader {
 public:
  explicit DirectoryReader(const std::filesystem::path& path) : path_(path), entries_(opendir(path.c_str())) {
    if (entries_ == nullptr) fail("directory iterator cannot open directory");
  }
  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;
  ~DirectoryReader() { closedir(entries_); }

  /// The next name, valid until the next call; null behind the last.
  const char* next() {
    errno = 0;
    const dirent* const entry = readdir(entries_);
    if (entry != nullptr) return entry->d_name;
    if (errno != 0) fail("directory iterator cannot advance");
    return nullptr;
  }

 private:
  [[noreturn]] void fail(const char* what) const {
    throw std::filesystem::filesystem_error(what, path_, {errno, std::generic_category()});
  }

  const std::filesystem::path& path_;
  DIR* entries_;
};

bool is_port_name(std::string_view name) {
  return std::any_of(kPortNames.begin(), kPortNames.end(),
                     [name](std::string_view prefix) { return name.starts_with(prefix); });
}

/// Whether the first byte of an identity frame arrives on `path` while listening.
bool glove_announces_itself_on(const std::string& path) {
  const auto begin = SteadyClock::now();
  auto port = SerialPort::open(path, kProbeBaud);
  if (!port) return false;
  for (auto now = begin; now - begin <= kProbeTime; now = SteadyClock::now()) {
    std::array<std::uint8_t, 1> byte{};
    const auto count = port->read(byte);
    if (count && *count == 1) {
      if (byte[0] == wire::kIdentityMarker[0]) return true;
      continue;
    }
    // A port that has hung up comes back at once.
    std::this_thread::sleep_until(now + SerialPort::kReadTimeout);
  }
  return false;
}

}  // namespace

std::vector<std::string> list_ports_in(const std::filesystem::path& directory) {
  std::vector<std::string> ports;
  DirectoryReader entries(directory);
  while (const char* const name = entries.next()) {
    if (is_port_name(name)) ports.push_back((directory / name).native());
  }
  std::sort(ports.begin(), ports.end());
  return ports;
}

std::string auto_detect_port_in(const std::filesystem::path& directory) {
  auto ports = list_ports_in(directory);
  if (ports.empty()) {
    throw DeviceNotFoundError(
        "No serial port found. Make sure the Tarsil glove is connected via USB.\n"
        "If auto-detection fails, pass the port explicitly:\n"
        "  SerialSource({.port = \"/dev/ttyUSB0\"})   // Linux\n"
        "  SerialSource({.port = \"COM3\"})             // Windows");
  }
  const auto found = std::find_if(ports.begin(), ports.end(), glove_announces_itself_on);
  if (found != ports.end()) return *found;
  // A single candidate is trusted without an answer: a glove that was announced before, or streams already,
  // stays silent until it is reset.
  if (ports.size() == 1) return ports.front();
  throw DeviceNotFoundError(
      "No Tarsil glove detected on any serial port. Make sure it is connected and powered, or pass the port "
      "explicitly, e.g. SerialSource({.port = \"/dev/ttyACM0\"}) / SerialSource({.port = \"COM3\"}).");
}

}  // namespace detail

std::vector<std::string> list_ports() {
  return detail::list_ports_in(detail::kDeviceDirectory);
}

std::string auto_detect_port() {
  return detail::auto_detect_port_in(detail::kDeviceDirectory);
}

}  // namespace tarsil
