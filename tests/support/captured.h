// SPDX-License-Identifier: Apache-2.0
//
// What a call prints, and the diagnostics in it.
#ifndef TESTS_SUPPORT_CAPTURED_H
#define TESTS_SUPPORT_CAPTURED_H

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/device.h"

namespace support {

// One diagnostic: "[sec:usec][fota_upi] [function-line]: message". The time and the line number
// are checked to be there and dropped. The message is exact, to the byte, without the line feed
// that ends the diagnostic; line feeds inside it are kept.
struct LogLine {
  std::string function;
  std::string message;
  bool operator==(const LogLine& that) const {
    return function == that.function && message == that.message;
  }
  bool operator!=(const LogLine& that) const { return !(*this == that); }
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// Everything that `body` writes to standard output, by stdio or by descriptor, from any library.
std::string printed(const std::function<void()>& body);

// The diagnostics in a console text. Text without a diagnostic's prefix before the first
// diagnostic is left out; later it counts as part of the message before it.
std::vector<LogLine> parse_console(std::string_view text);
// The same for the content of a log file, where "%s \n " frames each diagnostic.
std::vector<LogLine> parse_log_file(std::string_view text);

// The diagnostics that `body` prints.
std::vector<LogLine> logged(const std::function<void()>& body);
// The messages alone, for when the function does not matter.
std::vector<std::string> messages(const std::vector<LogLine>& lines);
// How many diagnostics equal `line`; whether one does.
std::size_t count_line(const std::vector<LogLine>& lines, const LogLine& line);
bool has_line(const std::vector<LogLine>& lines, const LogLine& line);

// The diagnostics in the device's log file; empty when there is none.
std::vector<LogLine> log_file(const sim::Device& device,
                              std::string_view path = "/cache/ovu_fota_ab/upi_ab.log");

}  // namespace support

#endif
