// A country with a decimal comma, for tests that recordings do not care where they are made.
#pragma once

#include <clocale>
#include <locale>
#include <string>

#include "tests/support/temp_directory.h"

namespace tarsil::test {

/// Compiles the locale "comma" of C's, which differs from the classic one in its numbers alone, into a
/// directory for LOCPATH to name. Does without where there is no compiler for it.
void compile_comma_locale(const TempDirectory& directory);

/// Sets numbers with a decimal comma and grouped digits as the global locale, of C++ always and of C where
/// such a locale is installed or can be compiled. Gives the former ones back when it goes.
class CommaLocale {
 public:
  CommaLocale();
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale();

  /// Whether C's functions use the comma, too.
  [[nodiscard]] bool is_set_in_c() const { return std::string(std::localeconv()->decimal_point) == ","; }

 private:
  TempDirectory directory_;
  std::string c_before_;
  std::locale before_;
};

}  // namespace tarsil::test
