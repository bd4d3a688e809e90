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
#define UPI_LOG(...) ::upi::log_line(__func__, __LINE__, __VA_ARGS__)

// UPI_LOG for a body that several functions share: it speaks under its caller's name.
#define UPI_LOG_AS(speaker, ...) ::upi::log_line((speaker), __LINE__, __VA_ARGS__)

namespace upi {

void log_line(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

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

#endif
