// What `stream` has put on standard output, taken apart.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarsil::test {

/// A row of `stream --raw`.
struct Row {
  double t = 0;
  /// Everything behind the time.
  std::string values;

  friend bool operator==(const Row&, const Row&) = default;
};

/// The whole rows of an output so far; fails the test if it does not begin with the two heading lines.
[[nodiscard]] std::vector<Row> rows_in(const std::string& output);

/// A table of `stream`.
struct Table {
  std::int64_t frame = 0;
  double t = 0;
  bool stale = false;
  /// The five finger lines.
  std::string fingers;
};

/// The whole tables behind the line that says what is being connected to, which has to be `connect_line`;
/// fails the test unless cursor movements, heading and column names are as they have to be.
[[nodiscard]] std::vector<Table> tables_in(const std::string& output, const std::string& connect_line);

}  // namespace tarsil::test
