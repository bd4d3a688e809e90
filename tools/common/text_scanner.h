// SPDX-License-Identifier: Apache-2.0
//
// Formatted scanning with the rules of fscanf(), which is what a device reads text files with.
#ifndef ZOZALE_TOOLS_COMMON_TEXT_SCANNER_H
#define ZOZALE_TOOLS_COMMON_TEXT_SCANNER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zozale {

class TextScanner {
 public:
  enum class Match { kMatched, kDiffered, kEnded };

  explicit TextScanner(std::string_view text) : text_(text) {}

  // Matches `expected` character by character. Stops at the first that differs; what matched
  // before it stays read.
  Match literal(std::string_view expected);

  // Passes over any run of white space, none included.
  void space();

  // "%<limit>s": at most `limit` characters up to white space, after any white space.
  std::optional<std::string> word(size_t limit);

  // "%d", after any white space. A number beyond 64 bits reads as the nearest that fits them.
  std::optional<int64_t> integer();

  bool at_end() const { return position_ == text_.size(); }
  // The line at the current position: its number, counted from 1, and its text.
  size_t line_number() const;
  std::string_view line() const;

 private:
  std::string_view text_;
  size_t position_ = 0;
};

}  // namespace zozale

#endif
