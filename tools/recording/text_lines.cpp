// Large reads into one buffer; what is left of a line moves to its front when the end is reached. A line that
// does not fit is passed over piece by piece.
#include "tools/recording/text_lines.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "tarsil/core/file_io.h"
#include "tools/recording/interrupt.h"

namespace tarsil::recording_tool {

namespace {

[[noreturn]] void refuse(const std::string& path, int error) {
  throw std::runtime_error("cannot read " + path + ": " + std::generic_category().message(error));
}

}  // namespace

TextLines::TextLines(const std::string& path)
    : path_(path), buffer_(kLongestLine + 1), descriptor_(detail::open_file(path.c_str(), O_RDONLY)) {
  if (descriptor_ < 0) refuse(path, errno);
  if (::fstat(descriptor_, &status_) != 0) {
    const int error = errno;
    ::close(descriptor_);
    refuse(path, error);
  }
}

TextLines::~TextLines() {
  ::close(descriptor_);
}

std::uint64_t TextLines::size() const {
  return S_ISREG(status_.st_mode) ? static_cast<std::uint64_t>(status_.st_size) : 0;
}

void TextLines::rewind() {
  if (::lseek(descriptor_, 0, SEEK_SET) != 0) {
    throw std::runtime_error("cannot read " + path_ + " more than once: it has to be a file");
  }
  buffer_place_ = lines_ = 0;
  begin_ = scanned_ = end_ = 0;
}

bool TextLines::next(TextLine& line) {
  line = {};
  line.number = ++lines_;
  line.place = place();
  while (true) {
    const char* const from = buffer_.data() + scanned_;
    if (const void* const feed = std::memchr(from, '\n', end_ - scanned_); feed != nullptr) {
      const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.data());
      take(line, at - begin_, true);
      return true;
    }
    scanned_ = end_;
    if (begin_ == 0 && end_ == kLongestLine) {
      // No room for more of it: what was read gives way.
      line.too_long = true;
      buffer_place_ += end_;
      scanned_ = end_ = 0;
    }
    if (fill()) continue;
    if (begin_ == end_ && !line.too_long) return false;
    take(line, end_ - begin_, false);
    return true;
  }
}

/// Hands out the next `length` bytes and moves behind them.
void TextLines::take(TextLine& line, std::size_t length, bool ends) {
  buffer_[begin_ + length] = '\0';  // for the line feed, or in the room that is left for it
  line.text = std::string_view(buffer_.data() + begin_, length);
  line.ends = ends;
  begin_ += length + (ends ? 1 : 0);
  scanned_ = begin_;
}

/// Reads more behind what there is; false at the end of the file.
bool TextLines::fill() {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    buffer_place_ += begin_;
    end_ -= begin_;
    scanned_ -= begin_;
    begin_ = 0;
  }
  wait_for_input(descriptor_);
  const ssize_t count = detail::read_some(descriptor_, buffer_.data() + end_, kLongestLine - end_);
  if (count < 0) refuse(path_, errno);
  end_ += static_cast<std::size_t>(count);
  return count > 0;
}

}  // namespace tarsil::recording_tool
