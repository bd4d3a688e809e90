// SPDX-License-Identifier: Apache-2.0
//
// The boot flag record, shared with the boot loader through the "flags" partition.
//
// The record stands twice, at the start of two good erase blocks, the rest of each being 0xFF. A
// change rewrites the main copy first and then the backup, so that a power loss leaves one intact.
#ifndef UPI_FOTAFLAG_PARTITION_H
#define UPI_FOTAFLAG_PARTITION_H

#include <cstddef>
#include <cstdint>

#include "upi_mtd.h"
#include "vemk_fota_ab_upgrade.h"

// The bytes "GALF" on flash.
constexpr uint32_t FOTA_FLAG_MAGIC = 0x464C4147;

enum T_BOOT_DUALSYSTEM_TYPE : int {
  DUALSYSTEM_RECOVERY = 0x7575,
  DUALSYSTEM_AA = 0xAAAA,
  DUALSYSTEM_AB = 0xABAB,
};

struct T_DualSystem_Status {
  int32_t status;   // a T_DUALSYSTEM_STATUS value
  int32_t try_cnt;  // boot attempts; only the boot loader counts
};

struct T_BOOT_FOTA_FLAG {
  uint32_t magic;               // FOTA_FLAG_MAGIC
  T_BOOT_TARGET boot_to;        // system to boot next
  uint32_t fota_status;         // 1: a switch waits for the host's acknowledgement
  T_DualSystem_Status system;   // system A
  T_DualSystem_Status system2;  // system B
};

struct T_BOOT_ENV {
  uint32_t magic;  // FOTA_FLAG_MAGIC again
  T_BOOT_DUALSYSTEM_TYPE dualsys_type;
  char system_boot_env[128];
  char system2_boot_env[128];
};

struct T_FOTA_FLAG_INFO {
  T_BOOT_FOTA_FLAG boot_flag;
  T_BOOT_ENV boot_env;
};

static_assert(sizeof(T_FOTA_FLAG_INFO) == 292);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_flag.boot_to) == 4);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_flag.fota_status) == 8);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_flag.system) == 12);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_flag.system2) == 20);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_env) == 28);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_env.dualsys_type) == 32);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_env.system_boot_env) == 36);
static_assert(offsetof(T_FOTA_FLAG_INFO, boot_env.system2_boot_env) == 164);

extern "C" {

// --- Reading. Every call opens, reads and closes the partition; all return -1 on failure. ---

// Reads the copies in the first two good blocks into `main` and `backup`, and their block indexes.
// Returns 0 also when there are fewer than two good blocks; what was not found keeps what the
// caller put there.
UPI_EXPORT int upi_get_boot_flags_content(T_FOTA_FLAG_INFO* main, int* p_main_index,
                                          T_FOTA_FLAG_INFO* backup, int* p_backup_index);

// The valid copy's fields, the main one's if both are; the boot environment texts are not filled.
UPI_EXPORT int get_info_from_img_boot_flag(T_FOTA_FLAG_INFO* p_flag_info);
UPI_EXPORT int upi_get_system_info(T_FOTA_FLAG_INFO* p_system_info);

// The value in the record. A stored 0xFFFFFFFF cannot be told from a failure.
UPI_EXPORT int upi_get_system_boot_to(void);
UPI_EXPORT int upi_get_system_fota_status(void);

// The first part of the record. A null pointer fails without touching the flash.
UPI_EXPORT int upi_get_boot_flag(T_BOOT_FOTA_FLAG* p_boot_flag);

// --- Writing ---

// Lifts the write protection, erases block `index` and writes `content`, one whole block of `len`
// bytes, to it. Returns 0, 1 when the block is or became bad, -1 on any other failure. Write
// protection is restored on success only.
UPI_EXPORT int upi_write_fota_flag_img_content(partition_mtd_info_t* p_mtd_info, int index,
                                               unsigned char* content, int len);

// Writes both copies, main first. The indexes hold where the current copies stand, and then where
// the new ones do, -1 for one that failed. Returns 0, or -1 when neither could be written.
UPI_EXPORT int upi_set_boot_flags_content(T_FOTA_FLAG_INFO* info, int* p_main_index,
                                          int* p_backup_index);

// Chooses the next boot target; a change sets fota_status to 1. `boot_to_status`, if it is a
// system status, becomes that system's; any other value is ignored. Returns 0 or -1.
UPI_EXPORT int upi_set_system_boot_to(int boot_to, int boot_to_status);

// Sets fota_status, 0 or 1; writes nothing when both copies hold it already. Returns 0 or -1.
UPI_EXPORT int upi_set_system_fota_stauts(int status);

// Sets the status of one system, DUAL_SYSTEM or DUAL_SYSTEM2. Returns 0 or -1.
UPI_EXPORT int upi_set_system_status(int system, int status);

// Writes up to 8 copies of a fresh record, whatever stood there. Returns 0 when at least 2 were
// written, else -1.
UPI_EXPORT int init_fotaflag_partition(void);

// Placeholder kept for older hosts; returns 0.
UPI_EXPORT int check_fota_flag_partition(void);

// Runs the shell command "reboot".
UPI_EXPORT void upi_reboot(void);

}  // extern "C"

#endif
