// A file, line by line, without a second copy of it in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace tarsil::detail {

/// Reads a file from front to back and splits it at line feeds. The memory it takes follows the longest line.
class LineReader {
 public:
  /// Opens `path`; see is_open().
  explicit LineReader(const std::filesystem::path& path);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

  /// Whether the file could be opened.
  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }

  /// The next line, without its line feed and followed by a zero byte in memory; valid until the next call.
  /// The last line needs no line feed. Nothing at the end of the file, which a failure to read is taken for:
  /// the whole lines before it count.
  [[nodiscard]] std::optional<std::string_view> next();

  /// Which share of the file the lines so far are, from 0 to 1; nothing if the size is not known, as of a
  /// pipe.
  [[nodiscard]] std::optional<double> progress() const;

 private:
  bool fill();

  std::vector<char> buffer_;  // before the file is open: without the memory for it, none stays open
  int descriptor_;
  std::uint64_t file_size_ = 0;     // 0 if not known
  std::uint64_t buffer_place_ = 0;  // of the buffer's first byte in the file
  std::size_t begin_ = 0;           // of the next line
  std::size_t scanned_ = 0;         // no line feed before this
  std::size_t end_ = 0;             // of what has been read
};

}  // namespace tarsil::detail
