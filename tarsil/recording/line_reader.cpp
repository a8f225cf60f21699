// Large reads into one buffer; what is left of a line moves to its front when the end is reached.
#include "tarsil/recording/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tarsil/core/file_io.h"

namespace tarsil::detail {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

}  // namespace

LineReader::LineReader(const std::filesystem::path& path)
    : buffer_(kBufferSize), descriptor_(open_file(path.c_str(), O_RDONLY)) {
  struct stat status {};
  if (is_open() && ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) {
    file_size_ = static_cast<std::uint64_t>(status.st_size);
  }
}

LineReader::~LineReader() {
  if (is_open()) ::close(descriptor_);
}

std::optional<std::string_view> LineReader::next() {
  while (true) {
    char* const from = buffer_.data() + scanned_;
    if (auto* feed = static_cast<char*>(std::memchr(from, '\n', end_ - scanned_)); feed != nullptr) {
      *feed = '\0';
      const std::string_view line(buffer_.data() + begin_,
                                  static_cast<std::size_t>(feed - buffer_.data()) - begin_);
      begin_ = scanned_ = begin_ + line.size() + 1;
      return line;
    }
    scanned_ = end_;
    if (!fill()) break;
  }
  if (begin_ == end_) return std::nullopt;
  const std::string_view line(buffer_.data() + begin_, end_ - begin_);
  buffer_[end_] = '\0';
  begin_ = scanned_ = end_;
  return line;
}

std::optional<double> LineReader::progress() const {
  if (file_size_ == 0) return std::nullopt;
  // A file may have grown since it was opened.
  return std::min(1.0, static_cast<double>(buffer_place_ + begin_) / static_cast<double>(file_size_));
}

/// Reads more behind what there is, with room for a zero byte kept; false at the end of the file.
bool LineReader::fill() {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    buffer_place_ += begin_;
    end_ -= begin_;
    scanned_ -= begin_;
    begin_ = 0;
  }
  if (end_ + 1 >= buffer_.size()) buffer_.resize(2 * buffer_.size());
  const ssize_t count = read_some(descriptor_, buffer_.data() + end_, buffer_.size() - 1 - end_);
  if (count < 0) end_ = scanned_ = 0;  // half a line may look like a whole one with other values
  if (count <= 0) return false;
  end_ += static_cast<std::size_t>(count);
  return true;
}

}  // namespace tarsil::detail
