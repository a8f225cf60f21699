// Arbitrary files through the loader of recordings: whole, beside a loader that goes by the rules of lines
// alone, and cut off as a crash would leave them. Input: where to cut (2 bytes, modulo the size); then the
// file.
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "tarsil/core/errors.h"
#include "tarsil/recording/frame_line.h"
#include "tarsil/recording/line_rules.h"
#include "tarsil/recording/replayer.h"
#include "tests/recording/samples.h"

namespace tarsil::fuzz {

namespace {

/// What loading a file came to.
struct Loaded {
  std::string error = {};
  DeviceInfo info = {};
  std::vector<Frame> frames = {};
  std::vector<Marker> markers = {};
};

constexpr std::string_view kNoFrames = "Replayer: no frames found in: ";

/// A file that stands in memory alone.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("recording", MFD_CLOEXEC)) {
    require(descriptor_ >= 0, "there is memory for a file");
  }

  void replace(Bytes content) const {
    require(ftruncate(descriptor_, 0) == 0, "the file can be emptied");
    const ssize_t written = pwrite(descriptor_, content.data(), content.size(), 0);
    require(written == static_cast<ssize_t>(content.size()), "the file can be written");
  }

  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

Loaded load(Bytes content) {
  static const MemoryFile kFile;
  kFile.replace(content);
  Loaded loaded;
  try {
    Replayer replayer(kFile.path(), {.speed = 0.0F, .loop = false});
    loaded.info = replayer.device_info();
    loaded.markers = replayer.markers();
    require(replayer.frame_count() == replayer.frames().size(), "frames are counted");
    while (replayer.is_open()) loaded.frames.push_back(replayer.read_frame());
    require(loaded.frames.size() == replayer.frame_count(), "every frame is played once");
  } catch (const std::invalid_argument& error) {
    loaded.error = error.what();
  } catch (const std::out_of_range& error) {
    loaded.error = error.what();
  } catch (const std::runtime_error& error) {
    loaded.error = error.what();
    require(loaded.error == std::string(kNoFrames) + kFile.path(),
            "the only other error is a file without frames");
    loaded.error = kNoFrames;
  }
  return loaded;
}

/// Where the scanner takes a line, it has to give what the rules give.
void check_scanner(const std::string& line) {
  detail::FrameLineScanner scanner;
  Frame frame;
  if (!scanner.scan(line, frame)) return;
  require(detail::string_field(line, "type") == "frame", "the scanner takes frame lines only");
  require(test::same_bits(frame, detail::frame_by_rules(line)), "the scanner gives what the rules give");
}

void take_header(const std::string& line, DeviceInfo& info) {
  info.firmware = detail::string_field(line, "sdk");
  for (const auto& [key, value] : detail::map_field(line, "metadata")) {
    if (key == "serial") info.serial = value;
    if (key == "side") info.side = value == "left" ? 0 : 1;
    if (key == "n_dofs") info.n_dofs = std::stoi(value);
    if (key == "n_pads") info.n_pads = std::stoi(value);
    if (key == "n_imu") info.n_imu = std::stoi(value);
  }
}

void take_frame(Frame frame, Loaded& loaded) {
  DeviceInfo& info = loaded.info;
  if (info.n_dofs == 0) info.n_dofs = static_cast<std::int32_t>(frame.q.size());
  if (info.n_pads == 0) info.n_pads = static_cast<std::int32_t>(frame.touch.size());
  if (info.n_imu == 0) info.n_imu = static_cast<std::int32_t>(frame.imu.size());
  loaded.frames.push_back(std::move(frame));
}

/// The loader once more, by the rules alone.
Loaded plain_load(Bytes content) {
  Loaded loaded;
  bool header = false;
  try {
    for (const std::string& line :
         test::lines_of({reinterpret_cast<const char*>(content.data()), content.size()})) {
      check_scanner(line);
      const std::string type = detail::string_field(line, "type");
      if (type == "header" && !header) {
        take_header(line, loaded.info);
        header = true;
      }
      if (type == "frame") take_frame(detail::frame_by_rules(line), loaded);
      if (type == "marker") loaded.markers.push_back(detail::marker_by_rules(line));
    }
    if (loaded.frames.empty()) loaded.error = kNoFrames;
  } catch (const std::logic_error& error) {
    loaded.error = error.what();
  }
  return loaded;
}

bool same_info(const DeviceInfo& a, const DeviceInfo& b) {
  return a.serial == b.serial && a.side == b.side && a.firmware == b.firmware && a.n_dofs == b.n_dofs &&
         a.n_pads == b.n_pads && a.n_imu == b.n_imu;
}

bool same_marker(const Marker& a, const Marker& b) {
  return test::same_bits(test::bare_frame(0, a.t), test::bare_frame(0, b.t)) && a.name == b.name &&
         a.data == b.data;
}

void check_whole(const Loaded& loaded, const Loaded& expected) {
  require(loaded.error == expected.error, "a file loads when the plain loader can load it");
  if (!loaded.error.empty()) return;
  require(same_info(loaded.info, expected.info), "the header says what the plain loader reads in it");
  require(loaded.frames.size() == expected.frames.size(),
          "there are as many frames as the plain loader finds");
  for (std::size_t i = 0; i < loaded.frames.size(); ++i) {
    require(test::same_bits(loaded.frames[i], expected.frames[i]), "frames are those of the plain loader");
  }
  require(loaded.markers.size() == expected.markers.size(),
          "there are as many markers as the plain loader finds");
  for (std::size_t i = 0; i < loaded.markers.size(); ++i) {
    require(same_marker(loaded.markers[i], expected.markers[i]), "markers are those of the plain loader");
  }
}

/// Only the last line of a cut file can be another one than in the whole file.
void check_cut(const Loaded& cut, const Loaded& whole) {
  if (cut.error == kNoFrames) return;
  if (!cut.error.empty()) {
    require(cut.error == whole.error, "a header that cannot be read stays one");
    return;
  }
  if (!whole.error.empty() && whole.error != kNoFrames) return;  // the bad header came behind the cut
  require(cut.frames.size() <= whole.frames.size(), "a cut file has no more frames than the whole one");
  for (std::size_t i = 0; i + 1 < cut.frames.size(); ++i) {
    require(test::same_bits(cut.frames[i], whole.frames[i]), "a cut changes no frame but the last");
  }
}

}  // namespace

}  // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarsil::fuzz;
  Input input(data, size);
  const std::size_t position = input.number<std::uint16_t>();
  const Bytes content = input.rest();
  const Loaded whole = load(content);
  check_whole(whole, plain_load(content));
  check_cut(load(content.first(position % (content.size() + 1))), whole);
  return 0;
}
