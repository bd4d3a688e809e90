// SPDX-License-Identifier: Apache-2.0
//
// Making a package. The same plan and the same files give the same bytes.
#ifndef ZOZALE_PACKAGE_CREATE_H
#define ZOZALE_PACKAGE_CREATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/finding.h"
#include "common/sha512.h"
#include "plan.h"

namespace zozale {

struct PackedFile {
  std::string name;
  uint64_t len = 0;      // bytes of the file
  uint64_t padding = 0;  // bytes of 0xFF that were put behind them
};

struct CreatedPackage {
  uint64_t size = 0;             // bytes of the package
  uint64_t content_padding = 0;  // bytes of 0xFF at its end that no entry names
  std::vector<PackedFile> partitions;
  std::vector<PackedFile> extras;
};

struct CreateResult {
  // Empty when the package was refused; an error then says why, and nothing was written.
  std::optional<CreatedPackage> package;
  Findings findings;
};

// Makes the package and puts it at `out`, whole or not at all. Throws Error when a file cannot be
// read or written.
CreateResult create_package(const PackagePlan& plan, const std::string& out);

// Fewest bytes of 0xFF, 0 to `room`, that make the digest of what `hash` has seen and them free of
// zero bytes; none when there is no such number.
std::optional<uint64_t> padding_without_zero_byte(Sha512 hash, uint64_t room);

}  // namespace zozale

#endif
