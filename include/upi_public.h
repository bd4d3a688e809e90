// SPDX-License-Identifier: Apache-2.0
//
// What every module uses: work files, the status store, which system runs, the table of
// partitions that make up a system, and the handling of digests.
#ifndef UPI_PUBLIC_H
#define UPI_PUBLIC_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

#include "upi_export.h"
#include "vemk_fota_ab_upgrade.h"

// Selects a digest; only SHA-512 exists, so only 0 does anything.
enum E_HASH_TYPE : int { HASH_SHA512 = 0, HASH_SHA526 = 1 };

// Bytes of a SHA-512 digest.
constexpr size_t kDigestSize = 64;

// Numbers of the two systems, as targets of the flash functions; -1 stands for unknown.
enum : int { kSystemA = 1, kSystemB = 2 };

#define SYSTEM_PARTITION_TABLE_PATH "/etc_ro/systemPartitionInfo.conf"

// Most platform, and most OEM, partitions that a system may have.
constexpr unsigned kMaxSystemPartitions = 7;

struct system_partition_info_head_t {
  char magic[4];               // "SUPI", without a terminator
  int32_t plat;                // platform number; its lowest byte must be 0
  int32_t plat_partition_num;  // 0 to 7
  int32_t oem_partition_num;   // 0 to 7
};

struct platform_partition_info_t {
  char name[32];           // system A's MTD name; system B's has the digit 2 appended
  int32_t system_type;     // logged only
  int32_t partition_type;  // a device_type_t value
};

using oem_partition_info_t = platform_partition_info_t;

struct system_upgrade_partition_info_t {
  system_partition_info_head_t system_partition_info_head;
  platform_partition_info_t* platform_partition_info;  // plat_partition_num entries, or null
  oem_partition_info_t* oem_partition_info;            // oem_partition_num entries, or null
};

static_assert(sizeof(system_partition_info_head_t) == 16);
static_assert(sizeof(platform_partition_info_t) == 40);

extern "C" {

// --- The platform's configuration store, defined by the host process ---

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
int sc_cfg_get(const char* name, char* value, int value_size);

// --- Work files ---

// "/cache/ovu_fota_ab/" and "/cache/ovu_fota_ab/upgrade_temp/".
UPI_EXPORT const char* get_log_root_path(void);
UPI_EXPORT const char* get_temp_path(void);

// Makes a folder and its missing ancestors, mode 0777. Returns 0 when it was made or was there.
// Returns -1 on failure, and also when the ancestors were missing and the path ends in a slash:
// then making the ancestors makes the folder too, and making it once more fails.
UPI_EXPORT int upi_create_folder(const char* folderpath);

// Makes the ancestors of a path of at most 255 characters, and with a trailing slash the path
// itself. Returns 0, or -1.
UPI_EXPORT int RecursiveFolderCreater(const char* folderpath, mode_t mode);

// Unlinks one file entry. Returns 0 when it is gone or never was, else -1.
UPI_EXPORT int upi_delete_folder(const char* folderpath);

// Returns 0 when the path can be read, else -1.
UPI_EXPORT int upi_check_file_existence(const char* filepath);

// Size in bytes of an open file, or -1.
UPI_EXPORT long get_file_length_from_fd(int fd);

// Reads `count` bytes, unless the file ends first. Returns the bytes read, or -1 on an error.
UPI_EXPORT int upi_readn(int fd, void* buf, unsigned int count);

// --- Status store ---

// Stores a number as decimal text and saves the store at once. Returns 0.
UPI_EXPORT int upi_set_nv_int(char* nv_name, int value);
// Reads a number; an absent or empty entry reads as 0.
UPI_EXPORT int upi_get_nv_int(char* nv_name);

UPI_EXPORT void upi_set_upgrade_status(int status);
UPI_EXPORT void upi_set_upgrade_total_size(int total_size);
UPI_EXPORT void upi_set_upgrade_updated_size(int updated_size);
UPI_EXPORT void upi_set_sync_status(int sync_status);
UPI_EXPORT int upi_get_upgrade_status(void);
UPI_EXPORT int upi_get_upgrade_total_size(void);
UPI_EXPORT int upi_get_upgrade_updated_size(void);
UPI_EXPORT int upi_get_sync_status(void);

// --- Running system and targets ---

// The running system by the kernel command line: 1 is A, 2 is B, -1 unknown.
UPI_EXPORT int upi_get_current_system(void);
// The system that does not run: 1, 2, or -1 when the running one is unknown.
UPI_EXPORT int upi_get_target_upgrade_system(void);
// The same as a number and as a DUAL_SYSTEM* code. Returns 0; or -1, leaving both outputs alone.
UPI_EXPORT int upi_get_target_sync_system(int* target_system_index, int* target_system);

// --- System partition table ---

// Reads the partition table file into a zeroed record. Returns 0 or -1; in both cases the record
// is to be released with upi_deinit_system_partition_info().
UPI_EXPORT int upi_init_system_partition_info(
    system_upgrade_partition_info_t* system_partition_info);
// Frees both lists and the record itself, which must come from malloc(). Null is allowed.
UPI_EXPORT void upi_deinit_system_partition_info(
    system_upgrade_partition_info_t* system_partition_info);
// Writes the table to the log.
UPI_EXPORT void show_system_partition_info(system_upgrade_partition_info_t* system_partition_info);

// --- Digests ---

// Copies a digest up to its first zero byte and fills the rest of the 64 bytes with zeros.
// Copies nothing for a `type` other than 0. Returns 0.
UPI_EXPORT int hash_copy(char* dst, char* src, int type);
// Compares two digests up to the first position where both are zero. Returns 0 when equal there,
// else the sign of the first difference; -1 for a `type` other than 0.
UPI_EXPORT int hash_compare(char* str1, char* str2, int type);
// Logs a digest in hexadecimal behind a title. Logs only a complaint for a `type` other than 0.
UPI_EXPORT void show_hash_hex(int type, const char* title, char* hash);

}  // extern "C"

namespace upi {

// A digest as the two functions above take it.
inline char* digest_text(uint8_t* digest) {
  return reinterpret_cast<char*>(digest);
}

// The record of a partition table, zeroed, or null when memory ran out.
system_upgrade_partition_info_t* new_system_partition_info();

}  // namespace upi

#endif
