// SPDX-License-Identifier: Apache-2.0
//
// Both copies of the boot flag record as they lie on flash, and which of them counts for whom.
// Reads flash only: no log, no store.
#ifndef ZOZALE_TOOL_FLAGS_H
#define ZOZALE_TOOL_FLAGS_H

#include <cstdint>
#include <optional>
#include <string>

#include "upi_fotaflag_partition.h"
#include "zozale/mtd.h"

namespace zozale::tool {

struct FlagCopy {
  uint32_t block = 0;  // of the "flags" partition
  T_FOTA_FLAG_INFO record = {};

  bool boot_magic_fits() const { return record.boot_flag.magic == FOTA_FLAG_MAGIC; }
  // What a reader, the boot loader too, takes for a record.
  bool valid() const { return boot_magic_fits() && record.boot_env.magic == FOTA_FLAG_MAGIC; }
};

struct Flags {
  uint32_t blocks = 0;
  uint32_t good_blocks = 0;
  std::optional<FlagCopy> main;    // from the first good block
  std::optional<FlagCopy> backup;  // from the second

  // The copy that readers take; null when there is no valid one.
  const FlagCopy* read() const;
  // The copy that the library's setters change and write to both places: they do not look at the
  // boot environment's magic.
  const FlagCopy* rewritten() const;
  // Whether both copies are valid and say the same.
  bool agree() const;
};

// Throws Failure(kExitDeviceUnfit) when the device has no "flags" partition, Error when it cannot
// be read.
Flags read_flags(const MtdTable& table);

// Failure(kExitDeviceUnfit) unless there is a valid record and a setter would keep it one.
void require_usable(const Flags& flags);

}  // namespace zozale::tool

#endif
