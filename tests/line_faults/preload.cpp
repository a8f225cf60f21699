// Where the libraries are is known to the build only.
#include "tests/line_faults/preload.h"

#include <cstdlib>
#include <utility>

namespace tarsil::test {

namespace {

ProcessOptions preloaded(ProcessOptions program, const char* library) {
  program.environment["LD_PRELOAD"] = library;
  // A sanitizer wants to be the first library of all, but does with being the second.
  const char* options = std::getenv("ASAN_OPTIONS");
  program.environment["ASAN_OPTIONS"] =
      (options == nullptr ? "" : std::string(options) + ":") + "verify_asan_link_order=0";
  return program;
}

}  // namespace

ProcessOptions with_shifted_clock(ProcessOptions program, const std::string& offset_file) {
  program.environment["TARSIL_TEST_CLOCK"] = offset_file;
  return preloaded(std::move(program), TARSIL_SHIFTED_CLOCK);
}

ProcessOptions with_vanishing_port(ProcessOptions program, const std::string& port) {
  program.environment["TARSIL_TEST_VANISHES"] = port;
  return preloaded(std::move(program), TARSIL_VANISHING_PORT);
}

ProcessOptions with_users_locale(ProcessOptions program) {
  return preloaded(std::move(program), TARSIL_USERS_LOCALE);
}

}  // namespace tarsil::test
