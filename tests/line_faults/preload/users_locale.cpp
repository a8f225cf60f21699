// Loaded into the tool by a test: makes the user's locale the C library's, as a program does that has one.
// The tool does not, but a library that it is linked with might.
#include <clocale>

namespace {

[[gnu::constructor]] void set_users_locale() {
  std::setlocale(LC_ALL, "");
}

}  // namespace
