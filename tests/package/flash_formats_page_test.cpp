// SPDX-License-Identifier: Apache-2.0
//
// The tables of docs/flash-formats.md against the records and values of the library.
#include <sstream>

#include "format_page.h"
#include "support.h"
#include "upi_fotaflag_partition.h"
#include "upi_public.h"

namespace package_test {
namespace {

Records flash_records() {
  using Flag = T_FOTA_FLAG_INFO;
  using Listed = platform_partition_info_t;
  return {{"T_FOTA_FLAG_INFO",
           {FIELD(Flag, boot_flag.magic), FIELD(Flag, boot_flag.boot_to),
            FIELD(Flag, boot_flag.fota_status), FIELD(Flag, boot_flag.system.status),
            FIELD(Flag, boot_flag.system.try_cnt), FIELD(Flag, boot_flag.system2.status),
            FIELD(Flag, boot_flag.system2.try_cnt), FIELD(Flag, boot_env.magic),
            FIELD(Flag, boot_env.dualsys_type), FIELD(Flag, boot_env.system_boot_env),
            FIELD(Flag, boot_env.system2_boot_env)}},
          {"platform_partition_info_t",
           {FIELD(Listed, name), FIELD(Listed, system_type), FIELD(Listed, partition_type)}}};
}

std::string value_row(const char* field, const char* name, int value) {
  std::ostringstream row;
  row << "| `" << field << "` | `" << name << "` | 0x" << std::uppercase << std::hex << value
      << " |";
  return row.str();
}

TEST(FlashFormatsPage, ListsEveryFieldOfEveryRecord) {
  EXPECT_EQ(records_of_page(FLASH_FORMATS_PAGE), flash_records());
}

TEST(FlashFormatsPage, LeavesNoByteOut) {
  const Records records = records_of_page(FLASH_FORMATS_PAGE);
  expect_no_gap("T_FOTA_FLAG_INFO", records.at("T_FOTA_FLAG_INFO"), sizeof(T_FOTA_FLAG_INFO));
  expect_no_gap("platform_partition_info_t", records.at("platform_partition_info_t"),
                sizeof(platform_partition_info_t));
}

TEST(FlashFormatsPage, StatesTheValues) {
  const std::string page = read_bytes(FLASH_FORMATS_PAGE);
  const auto stated = [&page](const std::string& text) { EXPECT_THAT(page, HasSubstr(text)); };
  stated(value_row("boot_to", "DUAL_SYSTEM", DUAL_SYSTEM));
  stated(value_row("boot_to", "DUAL_SYSTEM2", DUAL_SYSTEM2));
  stated(value_row("status", "DUALSYSTEM_STATUS_BOOTABLE", DUALSYSTEM_STATUS_BOOTABLE));
  stated(value_row("status", "DUALSYSTEM_STATUS_SUCCESSFUL", DUALSYSTEM_STATUS_SUCCESSFUL));
  stated(value_row("status", "DUALSYSTEM_STATUS_UNBOOTABLE", DUALSYSTEM_STATUS_UNBOOTABLE));
  stated(value_row("dualsys_type", "DUALSYSTEM_RECOVERY", DUALSYSTEM_RECOVERY));
  stated(value_row("dualsys_type", "DUALSYSTEM_AA", DUALSYSTEM_AA));
  stated(value_row("dualsys_type", "DUALSYSTEM_AB", DUALSYSTEM_AB));
  std::ostringstream magic;
  magic << "| uint32 | 0x" << std::uppercase << std::hex << FOTA_FLAG_MAGIC
        << ", the bytes `GALF` |";
  stated(magic.str());
  stated("0 to " + std::to_string(kMaxSystemPartitions) + ", and as many entries");
}

}  // namespace
}  // namespace package_test
