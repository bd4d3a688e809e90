// SPDX-License-Identifier: Apache-2.0
//
// The upgrade package: its records on file, and the one that is loaded.
//
// The records are the file's bytes: 32-bit little-endian integers, text fields padded with NUL
// that need no terminator. This header may be used without the library for their sake.
#ifndef UPI_UPGRADE_PACKAGE_H
#define UPI_UPGRADE_PACKAGE_H

#include <cstddef>
#include <cstdint>

#include "upi_export.h"

struct upgrade_package_head_info_t {
  char magic_word[4];               // "FOTA", without a terminator
  int32_t upgrade_package_version;  // shown, returned by get_upgrade_package_version()
  int32_t plat;                     // platform number, shown only
  int32_t upgrade_package_type;     // shown only
  int32_t upgrade_type;             // 0 every system partition, 1 platform ones, 2 OEM ones
  int32_t partition_num;            // entries of the partition table, 1 to 49; below 1: none
  int32_t extra_num;                // entries of the extra-file table, 1 to 49; below 1: none
  int32_t hash_type;                // shown only: every digest is SHA-512
  int32_t block_size;               // shown only
  char version_src[64];             // software version that the package upgrades from
  char version_dst[64];             // software version that the package upgrades to
  uint8_t hash[64];                 // SHA-512 of every byte from offset 256 to the file's end
  char reserve[28];
};

struct partition_head_info_t {
  char name[32];           // as in the partition table file: system A's MTD name
  int32_t len;             // image length in bytes
  int32_t offset;          // absolute file offset of the image
  int32_t partition_type;  // device kind; only DEVICE_MTD (0) can be updated
  int32_t zipped;          // shown only: images are always written as stored
  char reserve[16];
  uint8_t hash[64];  // SHA-512 of the image
};

struct extra_head_info_t {
  char name[32];
  int32_t len;     // length in bytes
  int32_t offset;  // absolute file offset
  char reserve_1[8];
  uint8_t hash[64];  // SHA-512 of the extra file; the device does not check it
  char reserve_2[8];
};

static_assert(sizeof(upgrade_package_head_info_t) == 256);
static_assert(offsetof(upgrade_package_head_info_t, upgrade_type) == 16);
static_assert(offsetof(upgrade_package_head_info_t, block_size) == 32);
static_assert(offsetof(upgrade_package_head_info_t, version_src) == 36);
static_assert(offsetof(upgrade_package_head_info_t, version_dst) == 100);
static_assert(offsetof(upgrade_package_head_info_t, hash) == 164);
static_assert(offsetof(upgrade_package_head_info_t, reserve) == 228);
static_assert(sizeof(partition_head_info_t) == 128);
static_assert(offsetof(partition_head_info_t, len) == 32);
static_assert(offsetof(partition_head_info_t, zipped) == 44);
static_assert(offsetof(partition_head_info_t, hash) == 64);
static_assert(sizeof(extra_head_info_t) == 120);
static_assert(offsetof(extra_head_info_t, offset) == 36);
static_assert(offsetof(extra_head_info_t, hash) == 48);

struct platform_partition_info_t;

// The loaded package; the loader owns every member.
struct upgrade_package_info_t {
  upgrade_package_head_info_t* head;
  partition_head_info_t* partition_info;  // partition_num entries, or null when there are none
  extra_head_info_t* extra_info;          // extra_num entries, or null when there are none
  int upgrade_package_file_desc;          // open for reading, positioned anywhere
  uint32_t upgrade_package_file_size;     // bytes
};

// Most entries that either table of a package may have.
constexpr int32_t kMaxPackageEntries = 49;

#define UPGRADE_PACKAGE_PATH "/cache/ovu_fota_ab/upgrade.package"

extern "C" {

// The loaded package, null when none is. One at a time in a process.
extern UPI_EXPORT upgrade_package_info_t* g_upgrade_package_info;
// Descriptor of the last package that was opened; not reset when it is released.
extern UPI_EXPORT int g_upgrade_package_fd;

// Opens a package, reads its head and tables and checks its partition names against the partition
// table file. Entry offsets and lengths are not compared with the file's size.
// Returns 0 with the package loaded and its file open, or -1 with none loaded. After a failure
// past the head's magic, other than the partition names', the descriptor is left open: hosts know
// the number from g_upgrade_package_fd.
UPI_EXPORT int init_upgrade_package_info(const char* upagrade_package_file_path);

// Releases the loaded package and closes its file. Does nothing when none is loaded.
UPI_EXPORT void deinit_upgrade_package_info(void);

// The loaded package, or null.
UPI_EXPORT upgrade_package_info_t* get_upgrade_package_info(void);

// Members of the loaded package. These check nothing: call them only while one is loaded.
UPI_EXPORT unsigned char* get_upgrade_package_hash(void);
UPI_EXPORT int get_upgrade_package_version(void);
UPI_EXPORT int get_upgrade_type(void);
UPI_EXPORT int get_partition_num(void);
UPI_EXPORT partition_head_info_t* get_partition_head_info(void);
UPI_EXPORT int get_extra_num(void);
UPI_EXPORT extra_head_info_t* get_extra_head_info(void);
UPI_EXPORT int get_upgrade_package_file_fd(void);

// Sum of all image lengths in bytes, modulo 2^32; 0 when the package has no partition.
UPI_EXPORT int get_total_partition_length(void);

// First entry of the given name (the whole name counts), or null: none of that name, none at all,
// no package loaded, or a null name.
UPI_EXPORT partition_head_info_t* get_partition_head_info_by_name(const char* partition_name);
UPI_EXPORT extra_head_info_t* get_extra_head_info_by_name(const char* extra_name);

// Stages of the loading.

// 0 when the open file is long enough and begins with the magic, else -1.
UPI_EXPORT int is_upgrade_package_file_valid(int fd);
// 0 when the entries' names fit the head's upgrade_type and the partition table file, else -1. A
// table of more than 7 platform or OEM entries is reported and passes.
UPI_EXPORT int is_upgrade_type_valid(upgrade_package_info_t* package_info);

// 0 when one of the `count` entries of a list has this entry's name, else -1.
UPI_EXPORT int is_partition_exist_system(const partition_head_info_t* partition_info,
                                         const platform_partition_info_t* list, unsigned int count);

// Write the loaded package to the log.
UPI_EXPORT void show_upgrade_package_info(void);
UPI_EXPORT void show_upgrade_package_head_info(void);
UPI_EXPORT void show_partition_info(void);
UPI_EXPORT void show_extra_info(void);

}  // extern "C"

namespace upi {

// Longest string, in bytes, that may be read from the name of an entry of the loaded package: an
// unterminated name runs on into the bytes behind it, but never past the table's end.
int partition_name_limit(const partition_head_info_t* entry);

}  // namespace upi

#endif
