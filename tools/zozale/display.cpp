// SPDX-License-Identifier: Apache-2.0
#include "zozale/display.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "common/text.h"
#include "zozale/terms.h"

namespace zozale::tool {
namespace {

constexpr size_t kBarWidth = 24;
constexpr size_t kUsualWidth = 80;
constexpr size_t kWidest = 120;

std::string two_digits(int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string clock_time(int64_t seconds) {
  const int64_t minutes = seconds / 60;
  const std::string tail = ":" + two_digits(seconds % 60);
  return minutes < 60 ? std::to_string(minutes) + tail
                      : std::to_string(minutes / 60) + ":" + two_digits(minutes % 60) + tail;
}

std::string percent_column(int percent) {
  const std::string digits = std::to_string(percent);
  return std::string(3 - digits.size(), ' ') + digits + " %";
}

std::string step_of(const MeterReading& reading) {
  return reading.stage + (reading.partition.empty() ? "" : " " + printable(reading.partition));
}

}  // namespace

std::string describe(const MeterReading& reading) {
  std::string text = step_of(reading);
  if (reading.bytes_total > 0) {
    text += ", " + short_size(reading.bytes_done) + " of " + short_size(reading.bytes_total);
  }
  if (reading.bad_blocks_skipped > 0) {
    text += ", " + counted(reading.bad_blocks_skipped, "bad block") + " skipped";
  }
  if (reading.seconds_left.value_or(0) > 0) {
    text += ", " + clock_time(*reading.seconds_left) + " left";
  }
  return text;
}

std::string bar(const MeterReading& reading, size_t width) {
  const size_t filled = kBarWidth * static_cast<size_t>(reading.percent) / 100;
  const std::string text = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') +
                           "] " + percent_column(reading.percent) + "  " + describe(reading);
  return text.substr(0, width);
}

Display::Display(Style style)
    : style_(style), terminal_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {}

void Display::end() {
  if (!shown_.empty()) {
    print("\n");
    shown_.clear();
  }
}

Display::Style Display::style_for(bool json, bool verbose) {
  if (json) {
    return Style::kSilent;
  }
  return isatty(STDOUT_FILENO) == 1 && !verbose ? Style::kBar : Style::kLines;
}

void Display::show(const MeterReading& reading) {
  if (style_ == Style::kBar) {
    show_bar(reading);
  } else if (style_ == Style::kLines) {
    show_line(reading);
  }
}

void Display::show_bar(const MeterReading& reading) {
  std::string text = bar(reading, width());
  if (text == shown_) {
    return;
  }
  const size_t stale = shown_.size() > text.size() ? shown_.size() - text.size() : 0;
  print("\r" + text + std::string(stale, ' '));
  shown_ = std::move(text);
}

// A line for each step, and one for each tenth of the whole.
void Display::show_line(const MeterReading& reading) {
  const std::string step = step_of(reading);
  const int tenth = reading.percent / 10;
  const bool step_is_done = reading.bytes_total > 0 && reading.bytes_done == reading.bytes_total;
  if (step == step_ && (tenth == tenth_ || step_is_done)) {
    return;
  }
  step_ = step;
  tenth_ = tenth;
  print(percent_column(reading.percent) + "  " + describe(reading) + "\n");
}

// A reader that went away is no reason to stop.
void Display::print(const std::string& text) const {
  const char* rest = text.data();
  size_t open = text.size();
  while (open > 0) {
    const ssize_t count = write(terminal_.get(), rest, open);
    if (count <= 0) {
      return;
    }
    rest += count;
    open -= static_cast<size_t>(count);
  }
}

size_t Display::width() const {
  winsize size = {};
  const bool told = ioctl(terminal_.get(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  const size_t columns = told ? size.ws_col : kUsualWidth;
  // The last column stays free: a terminal may wrap when it is written.
  return std::min(columns, kWidest) - 1;
}

}  // namespace zozale::tool
