// SPDX-License-Identifier: Apache-2.0
//
// The tools' reader of the partition table file, on any bytes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "common/partition_name.h"
#include "common/partition_table.h"

namespace {

void require(bool holds) {
  if (!holds) {
    abort();
  }
}

void require_limits(const std::vector<zozale::TableEntry>& entries) {
  require(entries.size() <= zozale::kMaxTableEntries);
  for (const zozale::TableEntry& entry : entries) {
    require(!entry.name.empty() && entry.name.size() <= zozale::kMaxFieldName);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const zozale::TableReading reading =
      zozale::parse_partition_table({reinterpret_cast<const char*>(data), size});
  if (!reading.table) {
    require(zozale::has_errors(reading.findings));
    return 0;
  }
  require_limits(reading.table->platform);
  require_limits(reading.table->oem);
  return 0;
}
