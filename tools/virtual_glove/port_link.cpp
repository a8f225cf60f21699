// The link is made under a temporary name and renamed, which is atomic.
#include "tools/virtual_glove/port_link.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tarsil::virtual_glove {

namespace fs = std::filesystem;

PortLink::PortLink(std::string path) : path_(std::move(path)) {}

PortLink::~PortLink() {
  remove();
}

void PortLink::point_to(const std::string& target) {
  if (path_.empty()) return;
  const std::string refusal = "cannot place the link " + path_ + ": ";
  std::error_code error;
  const fs::file_status status = fs::symlink_status(path_, error);
  if (fs::exists(status) && !fs::is_symlink(status)) {
    throw std::runtime_error(refusal + "it exists and is not a symbolic link");
  }
  const std::string temporary = path_ + "." + std::to_string(::getpid()) + ".new";
  fs::remove(temporary, error);
  fs::create_symlink(target, temporary, error);
  if (!error) fs::rename(temporary, path_, error);
  if (error) {
    const std::string reason = error.message();
    fs::remove(temporary, error);
    throw std::runtime_error(refusal + reason);
  }
  target_ = target;
}

void PortLink::remove() noexcept {
  if (target_.empty()) return;
  std::error_code error;
  if (fs::read_symlink(path_, error) == target_) fs::remove(path_, error);
  target_.clear();
}

}  // namespace tarsil::virtual_glove
