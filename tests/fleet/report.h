// SPDX-License-Identifier: Apache-2.0
//
// What a fleet went through.
#ifndef TESTS_FLEET_REPORT_H
#define TESTS_FLEET_REPORT_H

#include <array>
#include <cstdint>
#include <string>

namespace fleet {

struct Report {
  std::uint64_t devices = 0;
  std::uint64_t lost = 0;  // did not come back, or broke a promise
  std::uint64_t updates = 0;
  // Updates by the try that finished them: the first, the second ..., the last one or a later one.
  static constexpr std::size_t kTries = 6;
  std::array<std::uint64_t, kTries> finished_at{};
  std::uint64_t most_tries = 0;
  std::uint64_t switches = 0;
  std::uint64_t fall_backs = 0;  // from releases that do not come up
  std::uint64_t syncs = 0;
  std::uint64_t calls = 0;           // of the library
  std::uint64_t cuts = 0;            // while the library ran
  std::uint64_t boot_cuts = 0;       // while the boot loader wrote
  std::uint64_t faults = 0;          // that struck a call
  std::uint64_t mended_records = 0;  // of which no copy was left
  std::uint64_t bad_blocks = 0;      // from the factory
  std::uint64_t died_blocks = 0;     // in use

  void count_update(std::uint64_t tries);
  Report& operator+=(const Report& that);
};

// A number by its key in the JSON line; throws std::runtime_error that names what there is.
std::uint64_t value_of(const Report& report, const std::string& key);
// For people, several lines.
std::string table(const Report& report);
// For programs, one line: schema "zozale.fleet", version 1.
std::string json_line(const Report& report, std::uint64_t seed);

}  // namespace fleet

#endif
