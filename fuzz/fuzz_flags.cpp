// SPDX-License-Identifier: Apache-2.0
//
// The "flags" partition: which blocks are bad, what stands at the start of each block, and a
// driver that may tell a geometry that cannot be.
//
// Input: two bytes of bad blocks, the first eight first, a byte that chooses what is done and how
// the geometry lies, then 292 bytes for each block in turn.
#include <algorithm>
#include <cstdint>

#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "sim/boot_loader.h"
#include "upi_fotaflag_partition.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

using fuzz::FuzzDevice;

constexpr size_t kHeader = 3;
constexpr unsigned kLieShift = 3;

void put_records(sim::Partition flags, const uint8_t* data, size_t size) {
  flags.wipe();
  for (uint32_t block = 0; block < flags.blocks() && size > 0; ++block) {
    const size_t part = std::min<size_t>(size, sim::kRecordSize);
    flags.poke(uint64_t{block} * flags.block_size(), sim::Bytes(data, data + part));
    data += part;
    size -= part;
  }
}

// What the boot loader reads must be what the library tells.
void require_same(const sim::BootRecord& record) {
  z_upgrade_system_info_t info = {};
  REQUIRE(vemk_dual_get_system_status(&info) == 0);
  REQUIRE(static_cast<uint32_t>(info.boot_to) == record.boot_to());
  REQUIRE(static_cast<uint32_t>(info.fota_status) == record.fota_status());
  REQUIRE(info.system_1.status == record.status(sim::System::a));
  REQUIRE(info.system_2.status == record.status(sim::System::b));
  REQUIRE(info.system_1.try_cnt == record.attempts(sim::System::a));
  REQUIRE(info.system_2.try_cnt == record.attempts(sim::System::b));
  REQUIRE(static_cast<uint32_t>(vemk_dual_get_boot_to_system()) == record.boot_to());
  REQUIRE(static_cast<uint32_t>(vemk_dual_get_fota_status_for_nv()) == record.fota_status());
}

void require_agreement() {
  const sim::RecordCopies copies = sim::read_records(FuzzDevice::get().sim());
  if (const sim::RecordCopy* chosen = copies.chosen()) {
    require_same(chosen->record);
    return;
  }
  z_upgrade_system_info_t info = {};
  REQUIRE(vemk_dual_get_system_status(&info) == -1);
  REQUIRE(vemk_dual_get_boot_to_system() == -1);
}

void read_all() {
  T_BOOT_FOTA_FLAG flag = {};
  z_upgrade_system_info_t info = {};
  vemk_dual_get_boot_to_system();
  vemk_dual_get_fota_status_for_nv();
  vemk_dual_get_system_status(&info);
  REQUIRE(upi_get_boot_flag(&flag) == -1 || flag.magic == FOTA_FLAG_MAGIC);
}

int change(unsigned action) {
  switch (action) {
    case 0:
      return vemk_dual_set_boot_to_system(DUAL_SYSTEM, 0);
    case 1:
      return vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 1);
    case 2:
      return vemk_dual_set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_SUCCESSFUL);
    case 3:
      return vemk_dual_set_system_status(DUAL_SYSTEM2, DUALSYSTEM_STATUS_UNBOOTABLE);
    case 4:
      return vemk_dual_set_fota_status_for_nv(0);
    case 5:
      return vemk_dual_set_fota_status_for_nv(1);
    case 6:
      return vemk_init_flag_partition();
    default:
      return 0;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kHeader) {
    return 0;
  }
  FuzzDevice& device = FuzzDevice::get();
  device.reset();
  sim::Partition flags = device.partition("flags");
  fuzz::set_bad_blocks(flags, data[0] + 256U * data[1]);
  put_records(flags, data + kHeader, size - kHeader);
  const unsigned choice = data[2];
  const bool lies = fuzz::lie_about(flags, (choice >> kLieShift) & 7U);
  if (!lies) {
    require_agreement();
  }
  read_all();
  REQUIRE(device.sim().flash_operations() == 0);
  const int result = change(choice & 7U);
  REQUIRE(result == 0 || result == -1);
  if (!lies) {
    require_agreement();
  }
  read_all();
  device.close_package();
  return 0;
}
