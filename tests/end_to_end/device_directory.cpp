// Pseudo-terminals keep their paths: /dev/pts shows up in the new directory as well.
#include "tests/end_to_end/device_directory.h"

#include <unistd.h>

#include <filesystem>

#include "tests/end_to_end/device_namespace.h"
#include "tests/end_to_end/tool.h"

namespace tarsil::test {

namespace {

/// Not a status of the tool.
constexpr int kNoNamespace = 125;

}  // namespace

DeviceDirectory::DeviceDirectory() {
  std::filesystem::create_directory(entry("pts"));
}

void DeviceDirectory::link(const std::string& name, const std::string& target) const {
  std::filesystem::create_symlink(target, entry(name));
}

ProcessOptions DeviceDirectory::tool(const std::vector<std::string>& arguments) const {
  ProcessOptions options = test::tool(arguments);
  options.in_child = [directory = directory_.path().string(), pts = entry("pts")] {
    if (!enter_device_directory(directory.c_str(), pts.c_str())) _exit(kNoNamespace);
  };
  return options;
}

}  // namespace tarsil::test
