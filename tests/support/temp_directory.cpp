// mkdtemp gives a name that nobody else has.
#include "tests/support/temp_directory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace tarsil::test {

TempDirectory::TempDirectory() {
  std::string name = std::filesystem::temp_directory_path() / "tarsil-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a directory like " + name);
  path_ = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace tarsil::test
