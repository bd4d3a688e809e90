// SPDX-License-Identifier: Apache-2.0
//
// The partition table file, any bytes in its place: the library's reader and the tools' reader,
// which must agree on each.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "common/partition_name.h"
#include "common/partition_table.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "upi_public.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

using fuzz::FuzzDevice;

void require_same_list(const std::vector<zozale::TableEntry>& tools,
                       const platform_partition_info_t* library, int32_t count) {
  REQUIRE(static_cast<size_t>(count) == tools.size());
  REQUIRE(tools.size() <= zozale::kMaxTableEntries);
  for (size_t i = 0; i < tools.size(); ++i) {
    REQUIRE(!tools[i].name.empty() && tools[i].name.size() <= zozale::kMaxFieldName);
    REQUIRE(std::string_view(library[i].name) == std::string_view(tools[i].name.c_str()));
    REQUIRE(library[i].system_type == tools[i].system_type);
    REQUIRE(library[i].partition_type == tools[i].partition_type);
  }
}

// What the library makes of a number beyond 32 bits is its libc's matter; the tools refuse it.
bool has_long_number(std::string_view text) {
  size_t digits = 0;
  for (const char c : text) {
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (digits > 9) {
      return true;
    }
  }
  return false;
}

void require_same(const zozale::TableReading& reading, bool taken,
                  const system_upgrade_partition_info_t& table) {
  REQUIRE(reading.table.has_value() == taken);
  REQUIRE(taken || zozale::has_errors(reading.findings));
  if (taken) {
    const system_partition_info_head_t& head = table.system_partition_info_head;
    REQUIRE(head.plat == reading.table->plat);
    require_same_list(reading.table->platform, table.platform_partition_info,
                      head.plat_partition_num);
    require_same_list(reading.table->oem, table.oem_partition_info, head.oem_partition_num);
  }
}

void read_both(std::string_view text) {
  auto* table = static_cast<system_upgrade_partition_info_t*>(
      std::calloc(1, sizeof(system_upgrade_partition_info_t)));
  const int result = upi_init_system_partition_info(table);
  const zozale::TableReading reading = zozale::parse_partition_table(text);
  if (reading.table || !has_long_number(text)) {
    require_same(reading, result == 0, *table);
  }
  upi_deinit_system_partition_info(table);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzDevice& device = FuzzDevice::get();
  static const std::string package = fuzz::good_package();
  device.reset();
  device.put("/etc_ro/systemPartitionInfo.conf", data, size);
  device.put(fuzz::kPackagePath, package);
  read_both({reinterpret_cast<const char*>(data), size});
  vemk_dual_get_upgrade_type();
  vemk_dual_sync_system();
  device.close_package();
  return 0;
}
