// SPDX-License-Identifier: Apache-2.0
//
// MTD partitions: finding one by name, opening it, erasing it, reading and writing any length.
//
// Logical addresses count good erase blocks only, in bytes from the start of the partition.
#ifndef UPI_MTD_H
#define UPI_MTD_H

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <cstddef>
#include <cstdint>

#include "upi_export.h"

// Node through which a partition is reached.
enum device_type_t : int {
  DEVICE_MTD = 0,        // "/dev/mtd%d", the only kind that can be updated
  DEVICE_ZFTL = 1,       // "/dev/zftl%d"
  DEVICE_MTD_BLOCK = 2,  // "/dev/mtdblock%d"
  DEVICE_UNKNOWN = 3,
};

// Geometry and open descriptor of one raw MTD partition.
struct partition_mtd_info_t {
  uint32_t mtd_totalsize;     // bytes
  uint32_t mtd_pageperblock;  // pages per erase block
  uint32_t mtd_blocksize;     // bytes of an erase block
  uint32_t mtd_pagesize;      // bytes of a page
  uint32_t mtd_oobsize;       // spare bytes per page
  int32_t parti_file_desc;    // closed by whoever called the function that opened it
};

// Where an image lies in the package.
struct partition_upgrade_package_info_t {
  int32_t upgrage_package_file_desc;
  uint32_t upgrade_data_offset;  // bytes from the start of the package
  uint32_t upgrade_file_size;    // bytes
};

// Work record of one partition during an upgrade.
struct device_data_t {
  char partition_name[32];
  int32_t partition_type;  // a device_type_t value
  int64_t len;             // image length in bytes
  int32_t offset;          // of the image in the package, bytes
  int32_t zipped;
  char hash[64];                  // SHA-512 of the image
  int32_t index;                  // position in the package's table
  int32_t partition_total_count;  // partitions in the package
  partition_upgrade_package_info_t pkg_info;
  partition_mtd_info_t mtd_info;
};

// Open flags of every raw node: O_RDWR | O_DSYNC.
constexpr int kMtdOpenFlags = 0x1002;

// Bytes of the buffer that mtd_find() gets for a node's path.
constexpr unsigned kMtdPathSize = 256;

// Bytes of a buffer for an MTD name.
constexpr size_t kMtdNameSize = 32;

// The platform flash driver's requests on an open MTD descriptor, argument 0.
constexpr unsigned long kLiftWriteProtection = 0x80044D18;
constexpr unsigned long kRestoreWriteProtection = 0x80044D19;

static_assert(kLiftWriteProtection == _IOR('M', 24, int32_t));
static_assert(kRestoreWriteProtection == _IOR('M', 25, int32_t));
static_assert(MEMGETINFO == 0x80204D01);
static_assert(MEMERASE == 0x40084D02);
static_assert(MEMGETBADBLOCK == 0x40084D0B);
static_assert(MEMERASE64 == 0x40104D14);

extern "C" {

// Finds the partition whose name in "/proc/mtd" equals `i_parti_name`; the first of several wins.
// Writes its node's path to `o_mtd_path`, cut to `o_mtd_path_len` bytes with the terminator.
// Returns 0, or -1: not listed, "/proc/mtd" unreadable, no such kind of node, or a length of 0.
UPI_EXPORT int mtd_find(const char* i_parti_name, char* o_mtd_path, device_type_t device_type,
                        unsigned int o_mtd_path_len);

// Returns 0 when system `target` has the partition with this table name, else -1.
UPI_EXPORT int is_partition_exist(int target, char* i_parti_name);

// Opens the raw node of the MTD partition `partition_name` and reads its geometry. Returns 0 with
// the descriptor left open in `mtd_info`, or -1. After -1 the descriptor in `mtd_info` is not the
// caller's: it keeps what it held, or the number of one that is closed again.
UPI_EXPORT int get_partition_mtd_info(const char* partition_name, int partition_type,
                                      partition_mtd_info_t* mtd_info);

// The same with the kind taken from `device_data`, into device_data->mtd_info; a node of another
// kind than DEVICE_MTD is opened too, without its geometry. `target` is not used.
UPI_EXPORT int get_partition_update_info(int target, const char* partition_name,
                                         device_data_t* device_data);

// Reads `len` bytes at logical `offset`, block by block. Returns `len`, 0 for a length below 1,
// or -1.
UPI_EXPORT int read_mtd_partition_data(partition_mtd_info_t* mtd_info, int offset, int len,
                                       char* read_data);

// Writes `len` bytes at logical `offset` in whole erase blocks, each erased first; a partial last
// one is filled up with 0xFF. Returns 0 (also for a length below 1), or -1.
UPI_EXPORT int write_mtd_partition_data(partition_mtd_info_t* mtd_info, int offset, int len,
                                        unsigned char* write_data);

// Erases every good block of system `target`'s partition with this table name. Returns 0 when the
// geometry could be read, whatever became of single blocks, else -1.
UPI_EXPORT int mtd_erase_partition(int target, const char* partition_name);

}  // extern "C"

namespace upi {

// `limit` for form_mtd_name(), of all names but those of a synchronisation.
constexpr size_t kMtdNameLimit = kMtdNameSize - 1;

// Forms a system's MTD name from a table name: B's has the digit 2 appended. The result is cut to
// `limit` bytes with its terminator. A `name` of `limit` bytes or more needs no terminator.
void form_mtd_name(char (&mtd_name)[kMtdNameSize], size_t limit, const char* name, bool system_b);

// Fills the geometry of `mtd_info` from the kernel's reply; its descriptor is left alone.
void fill_geometry(partition_mtd_info_t* mtd_info, const mtd_info_user& reply);

// Issue the platform driver's request on an open descriptor; log a failure as `speaker`. Return
// whether it succeeded.
bool lift_write_protection(const char* speaker, int fd);
bool restore_write_protection(const char* speaker, int fd);

// Erases every good block of the MTD partition `mtd_name`, speaking as `speaker` and calling the
// partition `shown_name`. Returns false when its node could not be opened; otherwise `*result` is
// 0 when the geometry could be read, else -1.
bool erase_good_blocks(const char* speaker, const char* mtd_name, const char* shown_name,
                       int* result);

// How many times `part` goes into `whole`; 0 times when `part` is 0. Compilers for processors that
// cannot divide bring 600 bytes for it.
uint32_t divide(uint32_t whole, uint32_t part);

inline uint32_t smaller(uint32_t a, uint32_t b) {
  return a < b ? a : b;
}

}  // namespace upi

#endif
