// SPDX-License-Identifier: Apache-2.0
//
// "/proc/mtd", any text in its place: the library's look-ups, the device tool's reader beside
// them, and the whole operations, which then write wherever the text leads them.
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "upi_mtd.h"
#include "upi_public.h"
#include "vemk_fota_ab_upgrade.h"
#include "zozale/mtd.h"

namespace {

using fuzz::FuzzDevice;

constexpr std::array<const char*, 7> kNames = {
    "flags", "kernel", "kernel2", "rootfs2", "oemdata2", "", "a-name-of-more-than-31-characters"};

std::string find(const char* name) {
  std::array<char, kMtdPathSize> path{};
  return mtd_find(name, path.data(), DEVICE_MTD, kMtdPathSize) == 0 ? path.data() : "";
}

void look_up(const zozale::tool::MtdTable& table, const char* name) {
  const std::string node = find(name);
  const zozale::tool::MtdEntry* entry = table.find(name);
  REQUIRE(node == (entry == nullptr ? "" : entry->node()));
  std::string mutable_name = name;
  is_partition_exist(kSystemA, mutable_name.data());
  is_partition_exist(kSystemB, mutable_name.data());
  partition_mtd_info_t info = {};
  for (const int type : {DEVICE_MTD, DEVICE_ZFTL, DEVICE_MTD_BLOCK}) {
    if (get_partition_mtd_info(name, type, &info) == 0) {
      REQUIRE(type == DEVICE_MTD && !node.empty());
      close(info.parti_file_desc);
    }
  }
}

// A path of any length takes what fits of it.
void look_up_cut(uint8_t room) {
  std::array<char, 256> path{};
  mtd_find("kernel", path.data(), DEVICE_MTD_BLOCK, room);
}

void operate() {
  vemk_dual_get_boot_to_system();
  vemk_dual_verify();
  REQUIRE(FuzzDevice::get().sim().flash_operations() == 0);
  vemk_dual_upgrade(nullptr);
  vemk_dual_sync_system();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzDevice& device = FuzzDevice::get();
  static const std::string package = fuzz::good_package();
  device.reset();
  device.put(fuzz::kPackagePath, package);
  device.put("/proc/mtd", data, size);
  const zozale::tool::MtdTable table = zozale::tool::MtdTable::read();
  for (const char* name : kNames) {
    look_up(table, name);
  }
  look_up_cut(size > 0 ? data[0] : 0);
  operate();
  device.close_package();
  return 0;
}
