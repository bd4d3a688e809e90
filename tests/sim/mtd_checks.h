// SPDX-License-Identifier: Apache-2.0
//
// What an MTD character device answers, as one list of checks that runs on any of them: on the
// simulated device and on a real kernel. It uses nothing but system calls on a path.
//
// Each check prints one line: "name result errno hash". `result` is the call's, `errno` the name
// of the error or "-", `hash` that of the bytes that were read or "-".
#ifndef TESTS_SIM_MTD_CHECKS_H
#define TESTS_SIM_MTD_CHECKS_H

#include <cstdio>
#include <optional>
#include <string>

namespace mtd_checks {

struct PageAt {
  int block = 0;
  int page = 0;
};

struct Device {
  std::string node;  // "/dev/mtd3"; its content is lost
  // The platform's two requests are known, and the partition is protected at first.
  bool protects = true;
  // Places with a defect, when there are any.
  std::optional<int> worn_block = std::nullopt;          // an erase fails
  std::optional<PageAt> failing_page = std::nullopt;     // programming it fails
  std::optional<PageAt> unreadable_page = std::nullopt;  // cannot be corrected
};

// The partition needs three good blocks in a row (without the places with a defect) and, for the
// checks of bad blocks to be run, a bad block. Returns false, with a line that says why, when the
// device cannot be checked.
bool run(const Device& device, FILE* out);

}  // namespace mtd_checks

#endif
