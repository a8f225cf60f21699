// The lines of a file with all that can be said about them: where they stand, and how they end.
//
// The library's own reader takes what it gets, as a playback should; a tool that judges files has to know
// more.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarsil::recording_tool {

struct TextLine {
  /// Without its line feed; a zero byte follows it in memory. Of a line that is too long, its end.
  std::string_view text;
  /// Counts from 1.
  std::uint64_t number = 0;
  /// Of the first byte in the file.
  std::uint64_t place = 0;
  /// Whether a line feed ends it. Only the last line may lack it.
  bool ends = true;
  bool too_long = false;
};

class TextLines {
 public:
  /// A hundred times the longest line of a glove: whatever is longer is no line, and not kept in memory.
  static constexpr std::size_t kLongestLine = std::size_t{1024} * 1024;

  /// Opens `path`. Throws std::runtime_error with a finished message if that fails.
  explicit TextLines(const std::string& path);
  TextLines(const TextLines&) = delete;
  TextLines& operator=(const TextLines&) = delete;
  ~TextLines();

  /// The next line, whose text is valid until the next call; false at the end of the file. Throws
  /// std::runtime_error if the file cannot be read, and Interrupted.
  [[nodiscard]] bool next(TextLine& line);

  /// Starts again at the front. Throws std::runtime_error if the file can be read only once, as a pipe.
  void rewind();

  /// The bytes up to the end of the last line.
  [[nodiscard]] std::uint64_t place() const { return buffer_place_ + begin_; }
  /// The size of the file when it was opened; 0 if it is not known.
  [[nodiscard]] std::uint64_t size() const;
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const struct stat& status() const { return status_; }

 private:
  bool fill();
  void take(TextLine& line, std::size_t length, bool ends);

  std::string path_;
  std::vector<char> buffer_;  // before the file is open: without the memory for it, none stays open
  int descriptor_;
  struct stat status_ {};
  std::uint64_t buffer_place_ = 0;  // of the buffer's first byte in the file
  std::uint64_t lines_ = 0;
  std::size_t begin_ = 0;    // of the next line
  std::size_t scanned_ = 0;  // no line feed before this
  std::size_t end_ = 0;      // of what has been read
};

}  // namespace tarsil::recording_tool
