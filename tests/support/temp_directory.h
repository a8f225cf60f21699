// A directory of a test's own.
#pragma once

#include <filesystem>
#include <string>

namespace tarsil::test {

/// A fresh directory, removed with everything in it when the object goes.
class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// Path of an entry in it.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// The bytes of a file; throws std::runtime_error if it cannot be read.
[[nodiscard]] std::string read_file(const std::filesystem::path& path);

/// Writes a file anew; throws std::runtime_error if it cannot be written.
void write_file(const std::filesystem::path& path, const std::string& bytes);

}  // namespace tarsil::test
