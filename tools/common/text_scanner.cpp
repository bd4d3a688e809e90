// SPDX-License-Identifier: Apache-2.0
#include "common/text_scanner.h"

#include <algorithm>
#include <limits>

namespace zozale {
namespace {

// isspace() in the C locale, whatever the locale of the host is.
bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

int64_t times_ten_plus(int64_t value, int64_t digit) {
  int64_t result = 0;
  if (__builtin_mul_overflow(value, 10, &result) ||
      __builtin_add_overflow(result, digit, &result)) {
    return digit < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
  }
  return result;
}

}  // namespace

TextScanner::Match TextScanner::literal(std::string_view expected) {
  for (const char c : expected) {
    if (at_end()) {
      return Match::kEnded;
    }
    if (text_[position_] != c) {
      return Match::kDiffered;
    }
    ++position_;
  }
  return Match::kMatched;
}

void TextScanner::space() {
  while (!at_end() && is_space(text_[position_])) {
    ++position_;
  }
}

std::optional<std::string> TextScanner::word(size_t limit) {
  space();
  const size_t start = position_;
  while (!at_end() && position_ - start < limit && !is_space(text_[position_])) {
    ++position_;
  }
  if (position_ == start) {
    return std::nullopt;
  }
  return std::string(text_.substr(start, position_ - start));
}

std::optional<int64_t> TextScanner::integer() {
  space();
  const bool negative = !at_end() && text_[position_] == '-';
  if (negative || (!at_end() && text_[position_] == '+')) {
    ++position_;
  }
  const size_t start = position_;
  int64_t value = 0;
  for (; !at_end() && is_digit(text_[position_]); ++position_) {
    const int64_t digit = text_[position_] - '0';
    value = times_ten_plus(value, negative ? -digit : digit);
  }
  return position_ == start ? std::nullopt : std::optional<int64_t>(value);
}

size_t TextScanner::line_number() const {
  const auto read = text_.substr(0, position_);
  return 1 + static_cast<size_t>(std::count(read.begin(), read.end(), '\n'));
}

std::string_view TextScanner::line() const {
  const size_t feed = text_.substr(0, position_).rfind('\n');
  const size_t start = feed == std::string_view::npos ? 0 : feed + 1;
  return text_.substr(start, text_.find_first_of("\r\n", start) - start);
}

}  // namespace zozale
