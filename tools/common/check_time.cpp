// SPDX-License-Identifier: Apache-2.0
#include "common/check_time.h"

#include "common/certificate.h"

namespace zozale {

std::optional<time_t> seconds_of(const tm& utc) {
  tm parts = utc;
  const time_t seconds = timegm(&parts);
  // timegm() takes February 30 for March 2, and -1 for what it cannot count.
  const bool exact = parts.tm_sec == utc.tm_sec && parts.tm_min == utc.tm_min &&
                     parts.tm_hour == utc.tm_hour && parts.tm_mday == utc.tm_mday &&
                     parts.tm_mon == utc.tm_mon && parts.tm_year == utc.tm_year;
  return seconds >= 0 && exact ? std::optional<time_t>(seconds) : std::nullopt;
}

std::optional<CheckTime> parse_check_time(const std::string& text) {
  if (text == "clock") {
    return CheckTime{};
  }
  if (text == "signing") {
    return CheckTime{CheckTime::Kind::kSigning, 0};
  }
  for (const char* form : {"%Y-%m-%d", "%Y-%m-%dT%H:%M:%SZ"}) {
    tm parts = {};
    const char* end = strptime(text.c_str(), form, &parts);
    if (end != nullptr && *end == '\0') {
      const auto seconds = seconds_of(parts);
      return seconds ? std::optional<CheckTime>({CheckTime::Kind::kGiven, *seconds}) : std::nullopt;
    }
  }
  return std::nullopt;
}

std::string utc_text(time_t time) {
  tm parts = {};
  gmtime_r(&time, &parts);
  return utc_text(parts);
}

}  // namespace zozale
