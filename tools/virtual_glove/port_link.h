// A name that stays while the pseudo-terminal behind it changes.
#pragma once

#include <string>

namespace tarsil::virtual_glove {

/// A symbolic link that is kept up to date and removed in the end. An empty path stands for no link at all.
class PortLink {
 public:
  explicit PortLink(std::string path);
  ~PortLink();
  PortLink(const PortLink&) = delete;
  PortLink& operator=(const PortLink&) = delete;

  const std::string& path() const { return path_; }

  /// Makes the link point to `target`; nobody ever sees it missing or half made. An older symbolic link is
  /// replaced. Throws std::runtime_error if something that is not a symbolic link has the name, or the link
  /// cannot be made.
  void point_to(const std::string& target);

  /// Removes the link, unless it points elsewhere by now and so belongs to someone else.
  void remove() noexcept;

 private:
  std::string path_;
  std::string target_;
};

}  // namespace tarsil::virtual_glove
