// SPDX-License-Identifier: Apache-2.0
//
// A call into the library with everything that it did on the device.
#ifndef TESTS_UNIT_LIBRARY_RUN_H
#define TESTS_UNIT_LIBRARY_RUN_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sim/attach.h"
#include "tests/support/captured.h"

struct LibraryRun {
  int result = 0;
  std::vector<support::LogLine> log;
  std::vector<sim::Call> calls;                            // bad-block queries on demand
  std::vector<std::pair<std::string, std::string>> store;  // name and value, as they were set
  std::uint64_t saves = 0;                                 // of the store

  bool said(const std::string& function, const std::string& message) const;
  // These lines, in this order, others in between or not.
  bool said_in_order(const std::vector<support::LogLine>& lines) const;
  // A message that holds `part`, of any function.
  bool told_of(const std::string& part) const;
  // Messages of one function, in order.
  std::vector<std::string> messages_of(const std::string& function) const;
  // Calls of one kind; with a partition name or device path: those on it only.
  std::vector<sim::Call> made(sim::Op op, const std::string& where = {}) const;
  // Position in `calls` of the first call of a kind on a partition; calls.size() when there is
  // none.
  std::size_t first(sim::Op op, const std::string& partition) const;
};

// The clock stands still in the call, unless a FakeClock exists: nothing takes a second.
LibraryRun run_library(const std::function<int()>& call, const sim::RecordOptions& options = {});

#endif
