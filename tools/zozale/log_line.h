// SPDX-License-Identifier: Apache-2.0
//
// The library's console lines: what they say, and which of them tell why something failed.
#ifndef ZOZALE_TOOL_LOG_LINE_H
#define ZOZALE_TOOL_LOG_LINE_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zozale::tool {

// "[seconds:microseconds][fota_upi] [function-line]: message"; a view into the line.
struct LogLine {
  std::string_view function;
  std::string_view message;

  bool is(std::string_view a_function, std::string_view a_message) const {
    return function == a_function && message == a_message;
  }
};

// Nothing for a text that is no such line, such as the second line of a message of two.
std::optional<LogLine> parse_log_line(std::string_view line);

// The text between `before` and `after`, when `message` is made of the three.
std::optional<std::string_view> between(std::string_view message, std::string_view before,
                                        std::string_view after);
// The decimal number behind `before`, with which `message` begins.
std::optional<int64_t> number_after(std::string_view message, std::string_view before);

// True for a line that tells why something failed: not for banners, bad blocks and what is usual.
bool tells_failure(const LogLine& line);

// Keeps the last lines that tell of a failure, as "function: message".
class FailureTrail {
 public:
  void add(const LogLine& line);
  void clear() { lines_.clear(); }
  std::vector<std::string> lines() const { return {lines_.begin(), lines_.end()}; }
  bool mentions(std::string_view text) const;

 private:
  std::deque<std::string> lines_;
};

}  // namespace zozale::tool

#endif
