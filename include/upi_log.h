// SPDX-License-Identifier: Apache-2.0
//
// The diagnostic log: every line goes to standard output and to the log file, which rotates at
// 1 MiB and keeps one backup, named with "_bak" appended.
#ifndef UPI_LOG_H
#define UPI_LOG_H

#include "upi_export.h"
#include "vemk_fota_ab_upgrade.h"

#define UPI_LOG_PATH "/cache/ovu_fota_ab/upi_ab.log"

// Logs one line: "[seconds:microseconds][fota_upi] [function-line]: " and the message, which is a
// printf format with its arguments and without the line feed. errno is left as it was.
#define UPI_LOG(...) UPI_LOG_AS(UPI_FUNCTION, __VA_ARGS__)

// UPI_LOG for a body that several functions share: it speaks under its caller's name.
#define UPI_LOG_AS(speaker, ...) ::upi::log_line((speaker), __LINE__, __VA_ARGS__)

// UPI_LOG of a message that ends in errno and its text, as "%d[%s]": they are put behind it.
#define UPI_LOG_ERRNO(...) UPI_LOG_ERRNO_AS(UPI_FUNCTION, __VA_ARGS__)
#define UPI_LOG_ERRNO_AS(speaker, ...) ::upi::log_errno((speaker), __LINE__, __VA_ARGS__)

// Logs several lines at once. Each ends in a line feed, all of them take less than 512 bytes: for
// numbers, of which neither can be in doubt.
#define UPI_LOG_LINES(...) UPI_LOG_LINES_AS(UPI_FUNCTION, __VA_ARGS__)
#define UPI_LOG_LINES_AS(speaker, ...) ::upi::log_lines((speaker), __LINE__, __VA_ARGS__)

// The lines that frame an operation: "FUNCTION func begin!" and "FUNCTION func end!".
#define UPI_LOG_BEGIN() ::upi::log_begin(UPI_FUNCTION, __LINE__)
#define UPI_LOG_END() ::upi::log_end(UPI_FUNCTION, __LINE__)

// __func__ as a literal: the linker keeps equal ones once, also those of UPI_LOG_AS.
#define UPI_FUNCTION __builtin_FUNCTION()

namespace upi {

void log_line(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void log_errno(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void log_lines(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void log_begin(const char* function, int line);
void log_end(const char* function, int line);

}  // namespace upi

extern "C" {

// Wall clock as "%ld:%06ld", seconds and microseconds, in a static buffer that the next call
// overwrites.
UPI_EXPORT char* upi_get_time_us(void);

// Wall clock in microseconds modulo 2^32 (about 71.6 minutes): good for differences only.
UPI_EXPORT unsigned int timestamp_now(void);

// Appends `info` and the trailer " \n " to the open log stream. The stream is opened on the first
// write, from `filename`, and stays open across calls; at 1 MiB the file is rotated. Errors are
// reported on standard output only.
UPI_EXPORT void upi_fwrite(char* filename, char* info);

}  // extern "C"

namespace upi {

// Whole seconds since timestamp_now() returned `start`.
inline unsigned seconds_since(unsigned start) {
  return (timestamp_now() - start) / 1000000;
}

}  // namespace upi

#endif
