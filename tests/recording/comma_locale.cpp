// The C library looks for compiled locales where LOCPATH says.
#include "tests/recording/comma_locale.h"

#include <cstdlib>

#include "tests/support/process.h"

namespace tarsil::test {

namespace {

class CommaNumbers : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

/// As localedef reads it.
constexpr const char* kSource = R"(LC_CTYPE
copy "POSIX"
END LC_CTYPE
LC_NUMERIC
decimal_point ","
thousands_sep "."
grouping 3
END LC_NUMERIC
)";

void set_in_c(const TempDirectory& directory) {
  compile_comma_locale(directory);
  setenv("LOCPATH", directory.path().c_str(), 1);
  const bool set = std::setlocale(LC_ALL, "comma") != nullptr;
  unsetenv("LOCPATH");
  if (set) return;
  for (const char* name :
       {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8", "pl_PL.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) return;
  }
}

}  // namespace

void compile_comma_locale(const TempDirectory& directory) {
  write_file(directory.file("source"), kSource);
  // Its complaints about what the source lacks are none of ours: what counts is whether the result loads.
  static_cast<void>(run(
      {"localedef", "-c", "-i", directory.file("source"), "-f", "ANSI_X3.4-1968", directory.file("comma")}));
}

CommaLocale::CommaLocale() : c_before_(std::setlocale(LC_ALL, nullptr)) {
  set_in_c(directory_);
  before_ = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
}

CommaLocale::~CommaLocale() {
  std::locale::global(before_);
  std::setlocale(LC_ALL, c_before_.c_str());
}

}  // namespace tarsil::test
