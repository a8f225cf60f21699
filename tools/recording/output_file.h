// A file that appears when it is whole, or not at all.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace tarsil::recording_tool {

/// Written beside its final place under a name of its own, and put there at the end. What is no plain file
/// there, a device or a pipe, is written as it is.
class OutputFile {
 public:
  /// Begins a file that is to stand at `path`. Throws std::runtime_error with a finished message if there is
  /// one and it is not to be replaced, if it is the file `source`, under whatever name, or if it cannot be
  /// written.
  OutputFile(const std::string& path, bool replace, const struct stat& source);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  /// Removes what has not been finished.
  ~OutputFile();

  /// Appends; throws std::runtime_error if it cannot be written, and Interrupted.
  void write(std::string_view text);
  /// Puts the file in its place. Throws like the others.
  void finish();

 private:
  void flush();
  void open_beside(bool exists, const struct stat& before);
  [[noreturn]] void fail(int error) const;

  std::string path_;
  std::string target_;     // where the links of path_ lead
  std::string temporary_;  // empty if there is none
  std::string buffer_;
  bool replace_;
  int descriptor_ = -1;
};

}  // namespace tarsil::recording_tool
