// The link's life: made, moved, removed, and never at the cost of someone else's file.
#include "tools/virtual_glove/port_link.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "tests/support/temp_directory.h"

namespace tarsil::virtual_glove {
namespace {

namespace fs = std::filesystem;

std::ptrdiff_t entries_in(const fs::path& directory) {
  return std::distance(fs::directory_iterator(directory), fs::directory_iterator());
}

TEST(PortLink, points_to_its_target_and_follows_it) {
  const test::TempDirectory directory;
  PortLink link(directory.file("glove"));
  EXPECT_FALSE(fs::is_symlink(directory.file("glove")));
  link.point_to("/dev/one");
  EXPECT_EQ(fs::read_symlink(directory.file("glove")), "/dev/one");
  link.point_to("/dev/two");
  EXPECT_EQ(fs::read_symlink(directory.file("glove")), "/dev/two");
  EXPECT_EQ(entries_in(directory.path()), 1);
}

TEST(PortLink, is_removed_in_the_end) {
  const test::TempDirectory directory;
  {
    PortLink link(directory.file("glove"));
    link.point_to("/dev/one");
  }
  EXPECT_EQ(entries_in(directory.path()), 0);
}

TEST(PortLink, replaces_an_older_link) {
  const test::TempDirectory directory;
  fs::create_symlink("/dev/old", directory.file("glove"));
  PortLink link(directory.file("glove"));
  link.point_to("/dev/one");
  EXPECT_EQ(fs::read_symlink(directory.file("glove")), "/dev/one");
}

TEST(PortLink, refuses_to_replace_a_file) {
  const test::TempDirectory directory;
  const std::string path = directory.file("glove");
  test::write_file(path, "precious");
  PortLink link(path);
  try {
    link.point_to("/dev/one");
    FAIL() << "the file was replaced";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), "cannot place the link " + path + ": it exists and is not a symbolic link");
  }
  link.remove();
  EXPECT_EQ(test::read_file(path), "precious");
}

TEST(PortLink, leaves_a_link_alone_that_leads_elsewhere_by_now) {
  const test::TempDirectory directory;
  PortLink link(directory.file("glove"));
  link.point_to("/dev/one");
  fs::remove(directory.file("glove"));
  fs::create_symlink("/dev/other", directory.file("glove"));
  link.remove();
  EXPECT_EQ(fs::read_symlink(directory.file("glove")), "/dev/other");
}

TEST(PortLink, says_why_it_cannot_be_made) {
  const test::TempDirectory directory;
  PortLink link(directory.file("missing/glove"));
  EXPECT_THROW(link.point_to("/dev/one"), std::runtime_error);
}

TEST(PortLink, empty_path_means_no_link) {
  PortLink link("");
  link.point_to("/dev/one");
  link.remove();
  EXPECT_EQ(link.path(), "");
}

}  // namespace
}  // namespace tarsil::virtual_glove
