// SPDX-License-Identifier: Apache-2.0
//
// The time at which the certificates of a signature have to be valid.
#ifndef ZOZALE_TOOLS_COMMON_CHECK_TIME_H
#define ZOZALE_TOOLS_COMMON_CHECK_TIME_H

#include <ctime>
#include <optional>
#include <string>

namespace zozale {

struct CheckTime {
  enum class Kind {
    kClock,    // now, by the clock of the machine
    kGiven,    // `time`
    kSigning,  // the time that the signature states
    kNone,     // no time counts
  };

  Kind kind = Kind::kClock;
  time_t time = 0;
};

// "clock", "signing", or a time in UTC, "2026-11-21" or "2026-11-21T12:00:00Z"; nothing for any
// other text and for times that the machine cannot count.
std::optional<CheckTime> parse_check_time(const std::string& text);

// "2026-11-21T12:00:00Z".
std::string utc_text(time_t time);

// Seconds since 1970; nothing for a time that the machine cannot count.
std::optional<time_t> seconds_of(const tm& utc);

}  // namespace zozale

#endif
