// SPDX-License-Identifier: Apache-2.0
//
// The partition table file, "/etc_ro/systemPartitionInfo.conf" on a device, read as the device
// reads it: what passes here passes there, and the other way round.
#ifndef ZOZALE_TOOLS_COMMON_PARTITION_TABLE_H
#define ZOZALE_TOOLS_COMMON_PARTITION_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/finding.h"

namespace zozale {

// Most entries of either list.
constexpr uint32_t kMaxTableEntries = 7;

struct TableEntry {
  std::string name;  // system A's MTD name
  int32_t system_type = 0;
  int32_t partition_type = 0;  // device kind; only 0, raw MTD, can be written
};

struct PartitionTable {
  int32_t plat = 0;
  std::vector<TableEntry> platform;
  std::vector<TableEntry> oem;
};

struct TableReading {
  // Empty exactly when a device refuses the file; an error then says where and why.
  std::optional<PartitionTable> table;
  // Errors beside a table are what a device reads without complaint and does harm with. Fields are
  // "line 7" or "platform[0].name".
  Findings findings;
};

TableReading parse_partition_table(std::string_view text);

// Throws Error when the file cannot be read.
TableReading read_partition_table(const std::string& path);

}  // namespace zozale

#endif
