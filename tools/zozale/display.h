// SPDX-License-Identifier: Apache-2.0
//
// Shows a person how far an operation is: a bar on a terminal, lines anywhere else.
#ifndef ZOZALE_TOOL_DISPLAY_H
#define ZOZALE_TOOL_DISPLAY_H

#include <memory>
#include <string>

#include "common/file.h"
#include "zozale/meter.h"

namespace zozale::tool {

// "writing rootfs2, 12.0 MiB of 31.5 MiB, 2 bad blocks skipped, 0:23 left"
std::string describe(const MeterReading& reading);
// The bar and the description, cut to `width` columns.
std::string bar(const MeterReading& reading, size_t width);

class Display {
 public:
  enum class Style { kSilent, kLines, kBar };

  // Keeps a duplicate of standard output as it is now: it works while a Capture has it.
  explicit Display(Style style);
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;
  Display(Display&&) = delete;
  Display& operator=(Display&&) = delete;
  ~Display() { end(); }

  void show(const MeterReading& reading);
  // Ends the bar's line, so that others can print.
  void end();

  // A bar when standard output is a terminal that is not shared with the library's own lines.
  static Style style_for(bool json, bool verbose);

 private:
  void show_bar(const MeterReading& reading);
  void show_line(const MeterReading& reading);
  void print(const std::string& text) const;
  size_t width() const;

  Style style_;
  Descriptor terminal_;
  std::string shown_;  // the bar that stands on the terminal
  std::string step_;   // the step that has had its line
  int tenth_ = 0;      // tenths of the whole that have had a line
};

}  // namespace zozale::tool

#endif
