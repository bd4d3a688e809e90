// SPDX-License-Identifier: Apache-2.0
//
// What an installation or a synchronisation will do to each partition, worked out beforehand from
// flash that is only read: no log, no store.
#ifndef ZOZALE_TOOL_PLAN_H
#define ZOZALE_TOOL_PLAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/partition_table.h"
#include "zozale-package/package_view.h"
#include "zozale/mtd.h"
#include "zozale/position.h"
#include "zozale/report.h"
#include "zozale/terms.h"

namespace zozale::tool {

// Whether to read what the target's partitions hold and compare it: this takes time.
enum class Compare { kNo, kYes };

struct PlanItem {
  std::string name;     // in the partition table
  std::string mtd;      // the target's MTD partition
  FileIdentity node;    // its node
  FileIdentity source;  // synchronisation only: the source's node
  uint64_t bytes = 0;
  uint32_t blocks = 0;  // of the target's partition, bad ones too
  uint32_t good_blocks = 0;
  uint32_t needed_blocks = 0;
  std::vector<uint32_t> bad_blocks;
  std::optional<bool> up_to_date;  // with Compare::kYes
  // Synchronisation only: the source's first block with data that it does not copy.
  std::optional<uint32_t> hidden_block = std::nullopt;

  bool fits() const { return needed_blocks <= good_blocks; }
  uint32_t blocks_to_erase() const { return up_to_date.value_or(false) ? 0 : good_blocks; }
  uint32_t blocks_to_write() const { return up_to_date.value_or(false) ? 0 : needed_blocks; }
};

struct Plan {
  System target = System::kB;
  std::vector<PlanItem> items;

  uint64_t bytes() const;
  bool all_up_to_date() const;
};

// Both throw Failure(kExitDeviceUnfit) when a partition is missing or of a kind that cannot be
// written, Error when flash cannot be read.
Plan plan_install(const PackageView& package, System target, const MtdTable& flash,
                  Compare compare);
Plan plan_sync(const PartitionTable& table, System target, const MtdTable& flash, Compare compare);

// Failure(kExitDeviceUnfit) naming every partition with too few good blocks.
void require_room(const Plan& plan);

// What a synchronisation does not copy, and what it only erases: a sentence each.
std::vector<std::string> sync_warnings(const Plan& plan);

// Failure(kExitDeviceUnfit) when the plan would write to the boot flag record's partition, or to
// one of the running system, as a table with an entry that is another one's twin makes it.
void require_harmless(const Plan& plan, const PartitionTable& table);

// The plan as such, for a dry run: one line a partition, or "partitions" and "nothing_to_do".
void tell_plan(Report& report, const Plan& plan);
// What became of the plan's partitions, as "partitions" and "nothing_to_do". `written` says of each
// that was come to whether it was written.
void record_outcome(Report& report, const Plan& plan, const std::vector<bool>& written);

}  // namespace zozale::tool

#endif
