// SPDX-License-Identifier: Apache-2.0
#include "zozale/log_line.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "common/text.h"

namespace zozale::tool {
namespace {

constexpr std::string_view kMark = "][fota_upi] [";
constexpr std::string_view kEndOfPlace = "]: ";
constexpr size_t kTrailLength = 8;

bool begins_with(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

// Lines that hold a word of failure and are a matter of course all the same.
bool is_usual(const LogLine& line) {
  static constexpr std::array<std::string_view, 2> kFunctions = {
      "upi_check_file_existence",  // the temporary folder that is made next
      "partition_hash_cmp",        // a difference is why there is something to synchronise
  };
  static constexpr std::array<std::string_view, 5> kMessages = {
      "<<<<",        "----", "Mtd, not erasing bad block", "Partition file description:",
      "Set syste [",  // a system's code, behind the reason that came before
  };
  return std::find(kFunctions.begin(), kFunctions.end(), line.function) != kFunctions.end() ||
         std::any_of(kMessages.begin(), kMessages.end(),
                     [&line](auto beginning) { return begins_with(line.message, beginning); });
}

}  // namespace

std::optional<LogLine> parse_log_line(std::string_view line) {
  const size_t mark = line.find(kMark);
  if (mark == std::string_view::npos || line.front() != '[') {
    return std::nullopt;
  }
  const std::string_view rest = line.substr(mark + kMark.size());
  const size_t end = rest.find(kEndOfPlace);
  const size_t dash = rest.substr(0, end).rfind('-');
  if (end == std::string_view::npos || dash == std::string_view::npos) {
    return std::nullopt;
  }
  return LogLine{rest.substr(0, dash), rest.substr(end + kEndOfPlace.size())};
}

std::optional<std::string_view> between(std::string_view message, std::string_view before,
                                        std::string_view after) {
  if (message.size() < before.size() + after.size() || !begins_with(message, before) ||
      message.substr(message.size() - after.size()) != after) {
    return std::nullopt;
  }
  return message.substr(before.size(), message.size() - before.size() - after.size());
}

std::optional<int64_t> number_after(std::string_view message, std::string_view before) {
  if (!begins_with(message, before)) {
    return std::nullopt;
  }
  const std::string_view digits = message.substr(before.size());
  int64_t value = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return result.ec == std::errc() ? std::optional<int64_t>(value) : std::nullopt;
}

bool tells_failure(const LogLine& line) {
  static constexpr std::array<std::string_view, 16> kWords = {
      "fail",      "error",        "invalid",    "there is no ",       "not found", "not find",
      "too short", "out of parti", "different",  "do not exist",       "unkown",    "is null",
      "unreach",   "too long",     "< need len", "in upgrade package!"};
  if (is_usual(line)) {
    return false;
  }
  const std::string message = lower(line.message);
  return message.find("there is no extra file") == std::string::npos &&
         std::any_of(kWords.begin(), kWords.end(),
                     [&message](auto word) { return contains(message, word); });
}

void FailureTrail::add(const LogLine& line) {
  if (!tells_failure(line)) {
    return;
  }
  lines_.push_back(printable(std::string(line.function) + ": " + std::string(line.message)));
  if (lines_.size() > kTrailLength) {
    lines_.pop_front();
  }
}

bool FailureTrail::mentions(std::string_view text) const {
  return std::any_of(lines_.begin(), lines_.end(),
                     [text](const std::string& line) { return contains(line, text); });
}

}  // namespace zozale::tool
