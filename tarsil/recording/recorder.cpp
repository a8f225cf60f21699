// The file side of recording: one write a line, and a failure that stays one.
#include "tarsil/recording/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "tarsil/core/clock.h"
#include "tarsil/core/file_io.h"
#include "tarsil/recording/format.h"

namespace tarsil {

namespace {

std::filesystem::path with_extension(std::filesystem::path path, Recorder::Format format) {
  if (!path.has_extension()) path += default_extension(format);
  return path;
}

}  // namespace

Recorder::Format recording_format_for(const std::filesystem::path& path) {
  const std::string extension = path.extension();
  if (extension == ".csv" || extension == ".CSV") return Recorder::Format::csv;
  if (extension == ".json" || extension == ".JSON") return Recorder::Format::json;
  return Recorder::Format::tsl;
}

std::string_view default_extension(Recorder::Format format) {
  switch (format) {
    case Recorder::Format::csv:
      return ".csv";
    case Recorder::Format::json:
      return ".json";
    default:
      return ".tsl";
  }
}

Recorder::Recorder(std::filesystem::path path, Format format, Metadata metadata)
    : format_(format), metadata_(std::move(metadata)) {
  open(with_extension(std::move(path), format));
}

Recorder::Recorder(const std::filesystem::path& path, Metadata metadata)
    : format_(recording_format_for(path)), metadata_(std::move(metadata)) {
  open(path);
}

void Recorder::open(const std::filesystem::path& path) {
  if (format_ == Format::tsl) {
    detail::append_tsl_header(line_, path.filename().native(), detail::wall_clock_seconds(), metadata_);
  }
  descriptor_ = detail::open_file(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (descriptor_ < 0) throw std::runtime_error("Recorder: cannot open: " + path.native());
  write(line_);
}

Recorder::~Recorder() {
  if (format_ == Format::json) {
    line_.clear();
    detail::append_json_document(line_, detail::wall_clock_seconds(), metadata_, frames_, markers_);
    write(line_);
  }
  ::close(descriptor_);
}

/// Writes what has been composed. After a failure nothing more is written: a gap would pass for a whole
/// recording.
void Recorder::write(std::string_view text) {
  failed_ = failed_ || detail::write_all(descriptor_, text) != 0;
}

void Recorder::write_frame(const Frame& frame) {
  if (frames_written_ == 0) first_t_ = frame.t;
  last_t_ = frame.t;
  line_.clear();
  switch (format_) {
    case Format::tsl:
      detail::append_tsl_frame(line_, frame);
      break;
    case Format::csv: {
      // Both are put together before either is written: if that fails, the next frame begins anew.
      std::string heading;
      if (frames_written_ == 0) detail::append_csv_heading(heading, frame);
      detail::append_csv_row(line_, frame);
      write(heading);
      break;
    }
    case Format::json:
      frames_.push_back(frame);
      break;
  }
  if (format_ != Format::json) {
    write(line_);
    if (failed_) {
      throw std::runtime_error("Recorder: write failed (disk full or I/O error) — recording is incomplete");
    }
  }
  ++frames_written_;
}

void Recorder::add_marker(std::string name, std::map<std::string, std::string> data) {
  Marker marker{detail::wall_clock_seconds(), std::move(name), std::move(data)};
  line_.clear();
  switch (format_) {
    case Format::tsl:
      detail::append_tsl_marker(line_, marker);
      break;
    case Format::csv:
      detail::append_csv_marker(line_, marker);
      break;
    case Format::json:
      markers_.push_back(std::move(marker));
      break;
  }
  if (format_ != Format::json) write(line_);
}

double Recorder::duration() const {
  return frames_written_ < 2 ? 0.0 : last_t_ - first_t_;
}

}  // namespace tarsil
