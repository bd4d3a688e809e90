// SPDX-License-Identifier: Apache-2.0
#include "tests/support/captured.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace support {
namespace {

// Standard output turned into a file for a while.
class StdoutToFile {
 public:
  StdoutToFile() : file_(std::tmpfile()), before_(flushed_copy()) {
    if (file_ == nullptr || before_ < 0 || dup2(fileno(file_), STDOUT_FILENO) < 0) {
      throw std::runtime_error("standard output cannot be captured");
    }
  }
  ~StdoutToFile() {
    give_back();
    static_cast<void>(std::fclose(file_));
  }
  StdoutToFile(const StdoutToFile&) = delete;
  StdoutToFile& operator=(const StdoutToFile&) = delete;

  std::string text() {
    give_back();
    std::string out;
    std::rewind(file_);
    char part[65536];
    while (const std::size_t count = std::fread(part, 1, sizeof part, file_)) {
      out.append(part, count);
    }
    return out;
  }

 private:
  static int flushed_copy() {
    std::cout.flush();
    static_cast<void>(std::fflush(stdout));
    return dup(STDOUT_FILENO);
  }
  void give_back() {
    if (before_ < 0) {
      return;
    }
    std::cout.flush();
    static_cast<void>(std::fflush(stdout));
    dup2(before_, STDOUT_FILENO);
    close(before_);
    before_ = -1;
  }
  FILE* file_;
  int before_;
};

bool digits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Takes `text` up to and with `end` away from the front; false when there is no such end.
bool take_until(std::string_view& text, std::string_view end, std::string_view& out) {
  const std::size_t at = text.find(end);
  if (at == std::string_view::npos) {
    return false;
  }
  out = text.substr(0, at);
  text.remove_prefix(at + end.size());
  return true;
}

// Reads "[sec:usec][fota_upi] [function-line]: " off the front.
bool take_prefix(std::string_view& text, std::string& function) {
  std::string_view rest = text;
  std::string_view seconds;
  std::string_view micros;
  std::string_view name;
  if (rest.substr(0, 1) != "[" || !take_until(rest, ":", seconds) ||
      !take_until(rest, "][fota_upi] [", micros) || !take_until(rest, "]: ", name)) {
    return false;
  }
  const std::size_t dash = name.rfind('-');
  if (!digits(seconds.substr(1)) || !digits(micros) || micros.size() != 6 ||
      dash == std::string_view::npos || !digits(name.substr(dash + 1))) {
    return false;
  }
  function = name.substr(0, dash);
  text = rest;
  return true;
}

bool ends_with(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Diagnostics that begin at a line's start, after `indent`, and end with `trailer`.
std::vector<LogLine> parse(std::string_view text, std::string_view indent,
                           std::string_view trailer) {
  std::vector<LogLine> lines;
  bool first = true;
  while (!text.empty()) {
    std::string_view rest = text;
    if (!first && rest.substr(0, indent.size()) == indent) {
      rest.remove_prefix(indent.size());
    }
    LogLine line;
    if (take_prefix(rest, line.function)) {
      lines.push_back(line);
      text = rest;
    }
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    if (!lines.empty()) {
      lines.back().message += text.substr(0, end);
    }
    text.remove_prefix(end);
    first = false;
  }
  for (LogLine& line : lines) {
    if (ends_with(line.message, trailer)) {
      line.message.erase(line.message.size() - trailer.size());
    }
  }
  return lines;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << '{' << line.function << ": \"" << line.message << "\"}";
}

std::string printed(const std::function<void()>& body) {
  StdoutToFile captured;
  body();
  return captured.text();
}

std::vector<LogLine> parse_console(std::string_view text) {
  return parse(text, "", "\n");
}

// A blank is left over from the entry before.
std::vector<LogLine> parse_log_file(std::string_view text) {
  std::vector<LogLine> lines = parse(text, " ", "\n \n");
  if (!lines.empty() && ends_with(lines.back().message, "\n \n ")) {
    lines.back().message.erase(lines.back().message.size() - 4);
  }
  return lines;
}

std::vector<LogLine> logged(const std::function<void()>& body) {
  return parse_console(printed(body));
}

std::vector<std::string> messages(const std::vector<LogLine>& lines) {
  std::vector<std::string> out;
  out.reserve(lines.size());
  for (const LogLine& line : lines) {
    out.push_back(line.message);
  }
  return out;
}

std::size_t count_line(const std::vector<LogLine>& lines, const LogLine& line) {
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

bool has_line(const std::vector<LogLine>& lines, const LogLine& line) {
  return count_line(lines, line) > 0;
}

std::vector<LogLine> log_file(const sim::Device& device, std::string_view path) {
  return device.has_file(path) ? parse_log_file(device.read_file(path)) : std::vector<LogLine>();
}

}  // namespace support
