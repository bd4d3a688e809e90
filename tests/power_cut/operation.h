// SPDX-License-Identifier: Apache-2.0
//
// The library's operations that write to flash, as a power cut sees them: what the device is like
// before, which boot flag records they write one after the other, and how they end.
#ifndef TESTS_POWER_CUT_OPERATION_H
#define TESTS_POWER_CUT_OPERATION_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/boot_loader.h"
#include "sim/layout.h"

namespace cuts {

// The status that an operation keeps in the configuration store.
struct StoredStatus {
  std::string name;
  int working = 0;
  int done = 0;
};

// Releases are numbers: what the systems of a device hold and what a package brings.
constexpr std::uint32_t kOtherRelease = 0;    // of the system that does not run
constexpr std::uint32_t kRunningRelease = 1;  // of the one that does
constexpr std::uint32_t kPackageRelease = 2;

struct Operation {
  std::string name;  // the exported function's, without what all have in common, and on what
  // From the system that runs when the operation is called first. The one at the start comes first;
  // not valid: the flags partition is erased.
  std::vector<sim::BootRecord> (*records)(sim::System running);
  int (*call)(sim::System running);
  bool other_is_complete = true;   // at the start; else half of it was written
  bool overwrites_record = false;  // without a look at what is there
  // The release that the other system holds at the end, when the operation rewrites it.
  std::optional<std::uint32_t> installs = std::nullopt;
  std::optional<StoredStatus> status = std::nullopt;
};

const std::vector<Operation>& operations();
// Throws std::runtime_error that names what there is.
const Operation& operation_named(const std::string& name);

// What decides the next start and what a host reads: all but the attempts and the texts.
bool same_decision(const sim::BootRecord& one, const sim::BootRecord& other);

}  // namespace cuts

#endif
