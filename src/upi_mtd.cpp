// SPDX-License-Identifier: Apache-2.0
#include "upi_mtd.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "upi_img_interface.h"
#include "upi_log.h"
#include "upi_owner.h"
#include "upi_public.h"

static_assert(kMtdOpenFlags == (O_RDWR | O_DSYNC));

namespace {

constexpr char kMtdTablePath[] = "/proc/mtd";

// One line of the kernel's table.
struct MtdEntry {
  int number;
  unsigned size;        // bytes
  unsigned erase_size;  // bytes
  char name[64];
};

// Reads on to the first entry of this name. Headings and fragments of over-long lines do not parse
// and are passed over. Returns false at the end of the table.
bool find_mtd_entry(FILE* table, const char* name, MtdEntry* entry) {
  char line[128];
  while (fgets(line, sizeof(line), table) != nullptr) {
    *entry = {};
    const int values = sscanf(line, "mtd%d: %x %x \"%63[^\"]", &entry->number, &entry->size,
                              &entry->erase_size, entry->name);
    if (values == 4 && strncmp(entry->name, name, sizeof(entry->name)) == 0) {
      return true;
    }
  }
  return false;
}

// Stem of a kind of node's path, or null for a kind that has none.
const char* node_stem(device_type_t device_type) {
  switch (device_type) {
    case DEVICE_MTD:
      return "/dev/mtd";
    case DEVICE_ZFTL:
      return "/dev/zftl";
    case DEVICE_MTD_BLOCK:
      return "/dev/mtdblock";
    default:
      return nullptr;
  }
}

// Writes the path of the entry's node, cut to `path_size` bytes.
int put_node_path(const MtdEntry& entry, char* path, device_type_t device_type,
                  unsigned int path_size) {
  memset(path, 0, path_size);
  const char* stem = node_stem(device_type);
  if (stem == nullptr) {
    UPI_LOG_AS("mtd_find", "unknown device type %d", device_type);
    return -1;
  }
  snprintf(path, path_size, "%s%d", stem, entry.number);
  UPI_LOG_AS("mtd_find", "o_mtd_path=[%s]", path);
  return 0;
}

bool is_node_kind(int partition_type) {
  return partition_type >= DEVICE_MTD && partition_type <= DEVICE_MTD_BLOCK;
}

void log_geometry(const char* speaker, const partition_mtd_info_t& info) {
  UPI_LOG_LINES_AS(speaker,
                   "Mtd info:\n"
                   "Mtd Blocksize:%d:\n"
                   "Mtd oobsize:%d:\n"
                   "Mtd pageperblock:%d:\n"
                   "Mtd pagesize:%d:\n"
                   "Mtd totalsize:%d:\n"
                   "mtd partition file description:%d\n",
                   static_cast<int>(info.mtd_blocksize), static_cast<int>(info.mtd_oobsize),
                   static_cast<int>(info.mtd_pageperblock), static_cast<int>(info.mtd_pagesize),
                   static_cast<int>(info.mtd_totalsize), info.parti_file_desc);
}

// Reads the geometry through the descriptor in `mtd_info`; logs it, or the failure.
bool read_geometry(const char* speaker, partition_mtd_info_t* mtd_info) {
  mtd_info_user reply = {};
  if (ioctl(mtd_info->parti_file_desc, MEMGETINFO, &reply) != 0) {
    UPI_LOG_ERRNO_AS(speaker, "Get flash info error:");
    return false;
  }
  upi::fill_geometry(mtd_info, reply);
  log_geometry(speaker, *mtd_info);
  return true;
}

// On whose behalf a partition is opened: the two word their failures differently, and only an
// update's may be of a kind that has no geometry.
enum class Asker { kMtd, kUpdate };

void say_not_found(const char* speaker, Asker asker, const char* partition_name) {
  if (asker == Asker::kUpdate) {
    UPI_LOG_AS(speaker, "partition name is not find");
  } else {
    UPI_LOG_AS(speaker, "Partition [%s] not found!", partition_name);
  }
}

void close_unread(const char* speaker, Asker asker, int fd) {
  if (close(fd) == 0) {
    return;
  }
  if (asker == Asker::kUpdate) {
    UPI_LOG_ERRNO_AS(speaker, "Close file error, error:");
  } else {
    UPI_LOG_AS(speaker, "Close file error, error:%s", strerror(errno));
  }
}

int open_partition(const char* speaker, Asker asker, const char* partition_name, int partition_type,
                   partition_mtd_info_t* mtd_info) {
  if (partition_name == nullptr) {
    UPI_LOG_AS(speaker, "partition name =null");
    return -1;
  }
  if (!is_node_kind(partition_type)) {
    UPI_LOG_AS(speaker, "partition_type =%d", partition_type);
    return -1;
  }
  char path[kMtdPathSize];
  const auto kind = static_cast<device_type_t>(partition_type);
  if (mtd_find(partition_name, path, kind, sizeof(path)) != 0) {
    say_not_found(speaker, asker, partition_name);
    return -1;
  }
  const int fd = open(path, kMtdOpenFlags);
  if (fd < 0) {
    UPI_LOG_ERRNO_AS(speaker, "Open flash error:");
    return -1;
  }
  mtd_info->parti_file_desc = fd;
  if (kind == DEVICE_MTD ? read_geometry(speaker, mtd_info) : asker == Asker::kUpdate) {
    return 0;
  }
  if (kind != DEVICE_MTD) {
    UPI_LOG_AS(speaker, "Partition [%s] type:%d, could not update!", partition_name, kind);
  }
  close_unread(speaker, asker, fd);
  return -1;
}

void erase_one_block(const char* speaker, int fd, uint64_t start, uint32_t size) {
  auto offset = static_cast<__kernel_loff_t>(start);
  if (ioctl(fd, MEMGETBADBLOCK, &offset) != 0) {
    UPI_LOG_AS(speaker, "Mtd, not erasing bad block at 0x%llx",
               static_cast<unsigned long long>(start));
    return;
  }
  erase_info_user64 range = {start, size};
  if (ioctl(fd, MEMERASE64, &range) < 0) {
    UPI_LOG_ERRNO_AS(
        speaker, "Mtd, erasing failure at 0x%llx, error:", static_cast<unsigned long long>(start));
  }
}

int erase_open_partition(const char* speaker, int fd, const char* shown_name) {
  mtd_info_user reply = {};
  if (ioctl(fd, MEMGETINFO, &reply) != 0) {
    UPI_LOG_ERRNO_AS(speaker, "Get partition [%s] info error:", shown_name);
    return -1;
  }
  if (reply.erasesize == 0) {
    return 0;
  }
  for (uint64_t start = 0; start < reply.size; start += reply.erasesize) {
    erase_one_block(speaker, fd, start, reply.erasesize);
  }
  return 0;
}

int write_block(partition_mtd_info_t* mtd_info, int address, unsigned char* block) {
  const int result = VEMK_WriteBlock(mtd_info, address, block);
  if (result < 0) {
    UPI_LOG_AS("write_mtd_partition_data", "Write data to mtd fail!");
  }
  return result;
}

// Writes the last piece of the data, smaller than a block, as a block filled up with 0xFF.
int write_tail(partition_mtd_info_t* mtd_info, int address, const unsigned char* data,
               uint32_t size) {
  upi::Buffer block(mtd_info->mtd_blocksize);
  if (!block) {
    UPI_LOG_AS("write_mtd_partition_data", "Malloc for the lash block fail!");
    return -1;
  }
  block.fill(0xFF);
  memcpy(block.get(), data, size);
  return write_block(mtd_info, address, block.get());
}

}  // namespace

namespace upi {

void form_mtd_name(char (&mtd_name)[kMtdNameSize], size_t limit, const char* name, bool system_b) {
  memset(mtd_name, 0, sizeof(mtd_name));
  const size_t most = limit - 1;
  const size_t length = strnlen(name, most);
  memcpy(mtd_name, name, length);
  if (system_b && length < most) {
    mtd_name[length] = '2';
  }
}

uint32_t divide(uint32_t whole, uint32_t part) {
  if (part == 0 || part > whole) {
    return 0;
  }
  uint32_t times = 0;
  for (int shift = __builtin_clz(part) - __builtin_clz(whole); shift >= 0; --shift) {
    times *= 2;
    if (whole >> shift >= part) {
      whole -= part << shift;
      ++times;
    }
  }
  return times;
}

void fill_geometry(partition_mtd_info_t* mtd_info, const mtd_info_user& reply) {
  mtd_info->mtd_totalsize = reply.size;
  mtd_info->mtd_pageperblock = divide(reply.erasesize, reply.writesize);
  mtd_info->mtd_blocksize = reply.erasesize;
  mtd_info->mtd_pagesize = reply.writesize;
  mtd_info->mtd_oobsize = reply.oobsize;
}

bool lift_write_protection(const char* speaker, int fd) {
  if (ioctl(fd, kLiftWriteProtection, 0) != 0) {
    UPI_LOG_ERRNO_AS(speaker, "Failed to enable mtd writeable!  error:");
    return false;
  }
  return true;
}

bool restore_write_protection(const char* speaker, int fd) {
  if (ioctl(fd, kRestoreWriteProtection, 0) != 0) {
    UPI_LOG_ERRNO_AS(speaker, "Failed to disable mtd writeable!  error:");
    return false;
  }
  return true;
}

bool erase_good_blocks(const char* speaker, const char* mtd_name, const char* shown_name,
                       int* result) {
  char path[kMtdPathSize];
  if (mtd_find(mtd_name, path, DEVICE_MTD, sizeof(path)) < 0) {
    UPI_LOG_AS(speaker, "Mtd_find %s failed", shown_name);
    return false;
  }
  const int fd = open(path, kMtdOpenFlags);
  if (fd < 0) {
    UPI_LOG_ERRNO_AS(speaker, "Open partition [%s] error, error:", shown_name);
    return false;
  }
  *result = erase_open_partition(speaker, fd, shown_name);
  if (close(fd) != 0) {
    UPI_LOG_ERRNO_AS(speaker, "Close partition [%s] fd fail, error:", shown_name);
  }
  return true;
}

}  // namespace upi

int mtd_find(const char* i_parti_name, char* o_mtd_path, device_type_t device_type,
             unsigned int o_mtd_path_len) {
  if (o_mtd_path_len == 0) {
    UPI_LOG("Input para invalid, o_mtd_path_len is NULL!");
    return -1;
  }
  FILE* table = fopen(kMtdTablePath, "r");
  if (table == nullptr) {
    UPI_LOG_ERRNO("open file /proc/mtd error:");
    return -1;
  }
  UPI_LOG("partition name:%s, type:%d", i_parti_name, device_type);
  MtdEntry entry;
  int result = -1;
  if (find_mtd_entry(table, i_parti_name, &entry)) {
    result = put_node_path(entry, o_mtd_path, device_type, o_mtd_path_len);
  } else {
    UPI_LOG_ERRNO("Get info from mtd error:");
  }
  fclose(table);
  return result;
}

int is_partition_exist(int target, char* i_parti_name) {
  UPI_LOG_BEGIN();
  FILE* table = fopen(kMtdTablePath, "r");
  if (table == nullptr) {
    UPI_LOG_ERRNO("Fopen file error:");
    return -1;
  }
  char mtd_name[kMtdNameSize];
  upi::form_mtd_name(mtd_name, upi::kMtdNameLimit, i_parti_name, target == kSystemB);
  MtdEntry entry;
  const bool found = find_mtd_entry(table, mtd_name, &entry);
  if (found) {
    UPI_LOG("Mtd :[%s] exist, size:%d", mtd_name, static_cast<int>(entry.size));
  } else {
    UPI_LOG_ERRNO("Get info from mtd error:");
  }
  fclose(table);
  if (!found) {
    return -1;
  }
  UPI_LOG_END();
  return 0;
}

int get_partition_mtd_info(const char* partition_name, int partition_type,
                           partition_mtd_info_t* mtd_info) {
  return open_partition(UPI_FUNCTION, Asker::kMtd, partition_name, partition_type, mtd_info);
}

int get_partition_update_info(int /*target*/, const char* partition_name,
                              device_data_t* device_data) {
  return open_partition(UPI_FUNCTION, Asker::kUpdate, partition_name, device_data->partition_type,
                        &device_data->mtd_info);
}

int read_mtd_partition_data(partition_mtd_info_t* mtd_info, int offset, int len, char* read_data) {
  UPI_LOG_BEGIN();
  UPI_LOG("Read mtd partition data, total read len:%d, offset:%d", len, offset);
  auto* data = reinterpret_cast<unsigned char*>(read_data);
  const uint32_t total = len > 0 ? static_cast<uint32_t>(len) : 0;
  uint32_t done = 0;
  while (done < total) {
    const uint32_t chunk = upi::smaller(total - done, mtd_info->mtd_blocksize);
    const auto address = static_cast<int>(static_cast<uint32_t>(offset) + done);
    if (chunk == 0 || VEMK_ReadImage(mtd_info, data + done, address, static_cast<int>(chunk)) < 0) {
      return -1;
    }
    done += chunk;
  }
  UPI_LOG_END();
  return static_cast<int>(done);
}

int write_mtd_partition_data(partition_mtd_info_t* mtd_info, int offset, int len,
                             unsigned char* write_data) {
  UPI_LOG_BEGIN();
  UPI_LOG("Mtd fd:%d", mtd_info->parti_file_desc);
  const uint32_t total = len > 0 ? static_cast<uint32_t>(len) : 0;
  uint32_t done = 0;
  while (done < total) {
    const uint32_t chunk = upi::smaller(total - done, mtd_info->mtd_blocksize);
    const auto address = static_cast<int>(static_cast<uint32_t>(offset) + done);
    const int result = chunk > 0 && chunk == mtd_info->mtd_blocksize
                           ? write_block(mtd_info, address, write_data + done)
                           : write_tail(mtd_info, address, write_data + done, chunk);
    if (result < 0) {
      return -1;
    }
    done += chunk;
  }
  UPI_LOG_END();
  return 0;
}

int mtd_erase_partition(int target, const char* partition_name) {
  UPI_LOG_BEGIN();
  if (partition_name == nullptr) {
    return -1;
  }
  char mtd_name[kMtdNameSize];
  upi::form_mtd_name(mtd_name, upi::kMtdNameLimit, partition_name, target == kSystemB);
  UPI_LOG("partition name:%s, real name:%s", partition_name, mtd_name);
  int result = -1;
  if (!upi::erase_good_blocks(UPI_FUNCTION, mtd_name, partition_name, &result)) {
    return -1;
  }
  UPI_LOG_END();
  return result;
}
