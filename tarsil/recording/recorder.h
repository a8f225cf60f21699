// Writes a session to a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/frame.h"
#include "tarsil/core/marker.h"

namespace tarsil {

/// Writes one recording. Used by one thread; neither copied nor moved.
///
/// In tsl and csv every frame and marker is in the file when the call returns, written with one system call
/// each, so that a crash costs at most the line in hand. In json everything is held in memory and written by
/// the destructor.
class Recorder {
 public:
  /// The formats of a recording.
  enum class Format {
    tsl,   ///< one JSON object a line; the one that Replayer reads
    csv,   ///< one row a frame, for spreadsheets
    json,  ///< one document
  };
  /// What a recording says about itself, by names of the caller's choice; Replayer understands "serial",
  /// "side", "n_dofs", "n_pads" and "n_imu".
  using Metadata = std::map<std::string, std::string>;

  /// Opens the file; one of that name is replaced. A path without extension gets the format's own.
  /// Throws std::runtime_error ("Recorder: cannot open: " and the path) if that fails.
  Recorder(std::filesystem::path path, Format format, Metadata metadata = {});
  /// The same in the format that the path's extension names; the path is taken as it is.
  explicit Recorder(const std::filesystem::path& path, Metadata metadata = {});
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  /// Finishes and closes the file. A json document that cannot be composed for lack of memory ends the
  /// process; one that does not fit on the disk is cut short without a word.
  ~Recorder();

  /// Adds a frame. Throws std::runtime_error if it could not be written (tsl and csv); what was written
  /// before stays.
  void write_frame(const Frame& frame);
  /// Adds a marker at the wall-clock time of now. A failure to write it shows with the next frame.
  void add_marker(std::string name, std::map<std::string, std::string> data = {});

  /// Seconds from the first frame to the last one; 0 with fewer than two.
  [[nodiscard]] double duration() const;
  /// Frames accepted so far; in tsl and csv these are in the file.
  [[nodiscard]] std::uint64_t frames_written() const { return frames_written_; }

 private:
  void open(const std::filesystem::path& path);
  void write(std::string_view text);

  Format format_;
  int descriptor_ = -1;
  bool failed_ = false;
  std::uint64_t frames_written_ = 0;
  double first_t_ = 0.0;
  double last_t_ = 0.0;
  std::string line_;  // the one in hand; its memory is used again and again
  std::vector<Frame> frames_;
  std::vector<Marker> markers_;
  Metadata metadata_;
};

/// The format that a path's extension names: ".csv", ".CSV", ".json" and ".JSON", and tsl for anything else.
[[nodiscard]] Recorder::Format recording_format_for(const std::filesystem::path& path);

/// The extension of a format's files, with its dot.
[[nodiscard]] std::string_view default_extension(Recorder::Format format);

}  // namespace tarsil
