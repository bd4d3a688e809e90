// SPDX-License-Identifier: Apache-2.0
//
// Diagnostics that a test expects, written down briefly.
#ifndef TESTS_UNIT_EXPECTED_LINES_H
#define TESTS_UNIT_EXPECTED_LINES_H

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/captured.h"

namespace unit {

using Lines = std::vector<support::LogLine>;

// What one function says, in order.
inline Lines said_by(const std::string& function, std::initializer_list<std::string> messages) {
  Lines lines;
  for (const std::string& message : messages) {
    lines.push_back({function, message});
  }
  return lines;
}

inline Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Only the lines of these functions.
inline Lines only(const Lines& lines, std::initializer_list<std::string> functions) {
  Lines kept;
  for (const support::LogLine& line : lines) {
    if (std::count(functions.begin(), functions.end(), line.function) != 0) {
      kept.push_back(line);
    }
  }
  return kept;
}

// Without the lines of these functions.
inline Lines without(const Lines& lines, std::initializer_list<std::string> functions) {
  Lines kept;
  for (const support::LogLine& line : lines) {
    if (std::count(functions.begin(), functions.end(), line.function) == 0) {
      kept.push_back(line);
    }
  }
  return kept;
}

// An errno as most diagnostics show it: "5[Input/output error]".
inline std::string shown_error(int error) {
  return std::to_string(error) + "[" + std::strerror(error) + "]";
}

}  // namespace unit

#endif
