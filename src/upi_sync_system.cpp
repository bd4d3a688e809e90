// SPDX-License-Identifier: Apache-2.0
#include "upi_sync_system.h"

#include <openssl/sha.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "upi_fotaflag_partition.h"
#include "upi_img_interface.h"
#include "upi_log.h"
#include "upi_owner.h"
#include "upi_public.h"
#include "upi_upgrade_package.h"

namespace {

constexpr size_t kShortTestSize = 1024;
constexpr char kSeparator[] = "--------------------------------------------------";
constexpr char kEraseFrame[] = "-------------------------";

// One partition's node, closed when it goes out of scope.
class OpenPartition {
 public:
  OpenPartition() { info_.parti_file_desc = -1; }
  ~OpenPartition() { close_node(); }
  OpenPartition(const OpenPartition&) = delete;
  OpenPartition& operator=(const OpenPartition&) = delete;

  bool open_node(const char* name, int partition_type) {
    if (get_partition_mtd_info(name, partition_type, &info_) < 0) {
      // It may hold the number of a descriptor that is closed already.
      info_.parti_file_desc = -1;
      return false;
    }
    return true;
  }
  void close_node() {
    if (info_.parti_file_desc >= 0) {
      close(info_.parti_file_desc);
      info_.parti_file_desc = -1;
    }
  }

  partition_mtd_info_t* info() { return &info_; }
  int fd() const { return info_.parti_file_desc; }
  uint32_t block_size() const { return info_.mtd_blocksize; }
  uint32_t blocks() const { return upi::divide(info_.mtd_totalsize, info_.mtd_blocksize); }

 private:
  partition_mtd_info_t info_ = {};
};

// Memory for a walk over a partition's content: one block, and what an erased one looks like.
class WalkBuffers {
 public:
  // `room` is how much may be read from data(), at least a block: who writes a block of another
  // partition from it takes that one's size.
  WalkBuffers(uint32_t block_size, uint32_t room)
      : data_(block_size == 0 ? 0 : room), erased_(data_ ? block_size : 0), size_(block_size) {
    if (erased_) {
      erased_.fill(0xFF);
    }
    memset(short_, 0xFF, sizeof(short_));
  }

  // Whether both were allocated; logs which was not.
  bool ready(const char* speaker) const {
    if (!data_) {
      UPI_LOG_AS(speaker, "Malloc read_data fail, size:%u", size_);
    } else if (!erased_) {
      UPI_LOG_AS(speaker, "Malloc delta_f fail, size:%u", size_);
    }
    return data_ && erased_;
  }

  unsigned char* data() const { return data_.get(); }
  size_t size() const { return size_; }
  void clear() { data_.fill(0); }

  // The short test rejects most blocks before the whole one is compared.
  bool holds_erased_block() const {
    const size_t head = size() < kShortTestSize ? size() : kShortTestSize;
    return memcmp(data(), short_, head) == 0 && memcmp(data(), erased_.get(), size()) == 0;
  }

 private:
  upi::Buffer data_;
  upi::Buffer erased_;
  uint32_t size_;
  unsigned char short_[kShortTestSize];
};

enum class Step { kBlock, kEnd, kFailed };

// Reads block `index` of a partition's content; kEnd past the last block of it.
Step read_content_block(const char* speaker, OpenPartition* partition, uint32_t index,
                        WalkBuffers* buffers) {
  const auto address = static_cast<int>(index * partition->block_size());
  switch (read_image(partition->info(), buffers->data(), address,
                     static_cast<int>(partition->block_size()))) {
    case 0:
      break;
    case upi::kOutOfImage:
      UPI_LOG_AS(speaker, "Out of Image");
      return Step::kEnd;
    default:
      UPI_LOG_AS(speaker, "Read image content fail");
      return Step::kFailed;
  }
  if (buffers->holds_erased_block()) {
    UPI_LOG_AS(speaker, "Read image content end");
    return Step::kEnd;
  }
  return Step::kBlock;
}

bool hash_content(OpenPartition* partition, WalkBuffers* buffers, SHA512_CTX* context) {
  const uint32_t blocks = partition->blocks();
  for (uint32_t i = 0; i < blocks; ++i) {
    switch (read_content_block("partition_hash", partition, i, buffers)) {
      case Step::kBlock:
        SHA512_Update(context, buffers->data(), buffers->size());
        break;
      case Step::kEnd:
        return true;
      case Step::kFailed:
        return false;
    }
  }
  return true;
}

}  // namespace

// --- Comparison ---

int read_image(partition_mtd_info_t* mtd_info, unsigned char* buffer, int start_address, int size) {
  return upi::read_logical(UPI_FUNCTION, mtd_info, buffer, start_address, size);
}

int partition_hash(char* partition, int partition_type, unsigned char* hash) {
  if (partition == nullptr || hash == nullptr) {
    UPI_LOG("partition or hash is NULL");
    return -1;
  }
  OpenPartition open;
  if (!open.open_node(partition, partition_type)) {
    UPI_LOG("Failed to get partition [%s] mtd info", partition);
    return -1;
  }
  SHA512_CTX context;
  SHA512_Init(&context);
  WalkBuffers buffers(open.block_size(), open.block_size());
  if (!buffers.ready(UPI_FUNCTION) || !hash_content(&open, &buffers, &context)) {
    return -1;
  }
  SHA512_Final(hash, &context);
  return 0;
}

namespace {

bool hash_or_log(char* partition, int partition_type, unsigned char* digest) {
  if (partition_hash(partition, partition_type, digest) < 0) {
    UPI_LOG_AS("partition_hash_cmp", "partition [%s] hash fail", partition);
    return false;
  }
  return true;
}

}  // namespace

int partition_hash_cmp(char* dst_partition, char* src_partition, int partition_type) {
  if (dst_partition == nullptr || src_partition == nullptr) {
    UPI_LOG("dst partition or src partition is NULL");
    return -1;
  }
  unsigned char dst_digest[kDigestSize] = {};
  unsigned char src_digest[kDigestSize] = {};
  if (!hash_or_log(dst_partition, partition_type, dst_digest) ||
      !hash_or_log(src_partition, partition_type, src_digest)) {
    return -1;
  }
  auto* dst_text = reinterpret_cast<char*>(dst_digest);
  auto* src_text = reinterpret_cast<char*>(src_digest);
  if (hash_compare(dst_text, src_text, HASH_SHA512) == 0) {
    UPI_LOG("dst_partition_hash [%s] and src_partition_hash [%s] is the same", dst_partition,
            src_partition);
    return 0;
  }
  show_hash_hex(HASH_SHA512, "dst_partition hash:", dst_text);
  show_hash_hex(HASH_SHA512, "src_partition hash:", src_text);
  UPI_LOG("dst_partition_hash [%s] and src_partition_hash [%s] is different", dst_partition,
          src_partition);
  return -1;
}

// --- One partition ---

static int erase_partition(char* partition_name) {
  UPI_LOG("%s", kEraseFrame);
  UPI_LOG_BEGIN();
  int result = -1;
  if (!upi::erase_good_blocks(UPI_FUNCTION, partition_name, partition_name, &result)) {
    return -1;
  }
  UPI_LOG_END();
  UPI_LOG("%s", kEraseFrame);
  return result;
}

namespace {

bool copy_content(OpenPartition* dst, OpenPartition* src, WalkBuffers* buffers) {
  const uint32_t blocks = src->blocks();
  for (uint32_t i = 0; i < blocks; ++i) {
    buffers->clear();
    switch (read_content_block("sync_partition", src, i, buffers)) {
      case Step::kBlock:
        break;
      case Step::kEnd:
        return true;
      case Step::kFailed:
        return false;
    }
    const auto address = static_cast<int>(i * src->block_size());
    if (VEMK_WriteBlock(dst->info(), address, buffers->data()) < 0) {
      UPI_LOG_AS("sync_partition", "Write data to mtd fail!");
      return false;
    }
  }
  return true;
}

// Gives its memory back before the copy is checked: the check needs as much again.
bool erase_and_copy(OpenPartition* dst, OpenPartition* src, char* dst_name) {
  const uint32_t dst_size = dst->block_size();
  WalkBuffers buffers(src->block_size(),
                      dst_size > src->block_size() ? dst_size : src->block_size());
  if (!buffers.ready("sync_partition")) {
    return false;
  }
  if (erase_partition(dst_name) != 0) {
    UPI_LOG_AS("sync_partition", "Failed to erase dst partition [%s]", dst_name);
    return false;
  }
  return copy_content(dst, src, &buffers);
}

bool open_pair(OpenPartition* dst, OpenPartition* src, const char* dst_name, const char* src_name,
               int partition_type) {
  if (!src->open_node(src_name, partition_type)) {
    UPI_LOG_AS("sync_partition", "Failed to get src partition [%s] mtd info", src_name);
    return false;
  }
  if (!dst->open_node(dst_name, partition_type)) {
    UPI_LOG_AS("sync_partition", "Failed to get dst partition [%s] mtd info", dst_name);
    return false;
  }
  if (ioctl(dst->fd(), kLiftWriteProtection, 0) != 0) {
    UPI_LOG_ERRNO_AS("sync_partition", "Failed to enable dst mtd writeable!  error:");
    return false;
  }
  return true;
}

}  // namespace

static int sync_partition(char* dst_partition, char* src_partition, int partition_type) {
  if (dst_partition == nullptr || src_partition == nullptr) {
    UPI_LOG("dst partition or src partition is NULL");
    return -1;
  }
  if (partition_hash_cmp(dst_partition, src_partition, partition_type) == 0) {
    UPI_LOG("dst partition [%s] is the same as src partition [%s], do not sync", dst_partition,
            src_partition);
    return 0;
  }
  OpenPartition src;
  OpenPartition dst;
  if (!open_pair(&dst, &src, dst_partition, src_partition, partition_type)) {
    return -1;
  }
  if (!erase_and_copy(&dst, &src, dst_partition)) {
    return -1;
  }
  if (partition_hash_cmp(dst_partition, src_partition, partition_type) != 0) {
    UPI_LOG("after sync, hash is different");
    return -1;
  }
  if (ioctl(dst.fd(), kRestoreWriteProtection, 0) != 0) {
    UPI_LOG_ERRNO("Failed to disable dst mtd writeable!  error:");
    return -1;
  }
  return 0;
}

// --- All partitions ---

static int pre_sync(char* dst_partition, char* src_partition, int target_system_index,
                    void* partition_info, int opt) {
  if (dst_partition == nullptr || src_partition == nullptr || partition_info == nullptr) {
    UPI_LOG("ptr para in is NULL");
    return -1;
  }
  if (opt != 0 && opt != 1) {
    UPI_LOG("opt is unkown");
    return -1;
  }
  char name[kMtdNameSize] = {};
  memcpy(name, static_cast<platform_partition_info_t*>(partition_info)->name, sizeof(name) - 1);
  auto& dst = *reinterpret_cast<char(*)[kMtdNameSize]>(dst_partition);
  auto& src = *reinterpret_cast<char(*)[kMtdNameSize]>(src_partition);
  if (target_system_index == kSystemA || target_system_index == kSystemB) {
    upi::form_mtd_name(dst, sizeof(dst), name, target_system_index == kSystemB);
    upi::form_mtd_name(src, sizeof(src), name, target_system_index == kSystemA);
  } else {
    memset(dst, 0, sizeof(dst));
    memset(src, 0, sizeof(src));
  }
  if (is_partition_exist(target_system_index, name) != 0) {
    UPI_LOG("There is no partition [%s] in system", dst_partition);
    return -1;
  }
  return 0;
}

namespace {

void log_start(int opt, const char* dst_partition) {
  // Only the platform loop's word is misspelt.
  UPI_LOG_AS("sync_system", "Sync %s Parition [%s] Start", opt == 0 ? "Targrt" : "Target",
             dst_partition);
}

bool sync_entry(int target_system_index, platform_partition_info_t* entry, int opt) {
  char dst_partition[kMtdNameSize] = {};
  char src_partition[kMtdNameSize] = {};
  if (pre_sync(dst_partition, src_partition, target_system_index, entry, opt) != 0) {
    UPI_LOG_AS("sync_system", "pre_sync fail");
    return false;
  }
  UPI_LOG_AS("sync_system", "%s", kSeparator);
  log_start(opt, dst_partition);
  const unsigned start = timestamp_now();
  if (sync_partition(dst_partition, src_partition, entry->partition_type) != 0) {
    UPI_LOG_AS("sync_system", "Sync Target Partition [%s] Fail", dst_partition);
    UPI_LOG_AS("sync_system", "%s", kSeparator);
    return false;
  }
  UPI_LOG_AS("sync_system", "-------------- Sync parition [%s] Takes %us --------------",
             dst_partition, upi::seconds_since(start));
  UPI_LOG_AS("sync_system", "Sync Target Partition [%s] Success", dst_partition);
  UPI_LOG_AS("sync_system", "%s", kSeparator);
  return true;
}

bool sync_list(int target_system_index, platform_partition_info_t* list, int32_t count, int opt) {
  for (int32_t i = 0; i < count; ++i) {
    if (!sync_entry(target_system_index, &list[i], opt)) {
      return false;
    }
  }
  return true;
}

}  // namespace

static int sync_system(int target_system_index,
                       system_upgrade_partition_info_t* system_upgrade_partition_info) {
  if (target_system_index != kSystemA && target_system_index != kSystemB) {
    UPI_LOG("target system is unkown");
    return -1;
  }
  const system_upgrade_partition_info_t& table = *system_upgrade_partition_info;
  const system_partition_info_head_t& head = table.system_partition_info_head;
  return sync_list(target_system_index, table.platform_partition_info, head.plat_partition_num,
                   0) &&
                 sync_list(target_system_index, table.oem_partition_info, head.oem_partition_num, 1)
             ? 0
             : -1;
}

// --- The whole synchronisation ---

static void upi_set_sync_status_nv(int sync_status) {
  upi_set_sync_status(sync_status);
}

namespace {

bool mark_target(int target_system, int status) {
  if (upi_set_system_status(target_system, status) < 0) {
    UPI_LOG_AS("upi_sync_system", "set target system %s fail",
               status == DUALSYSTEM_STATUS_BOOTABLE ? "bootable" : "unbootable");
    return false;
  }
  return true;
}

int end_sync(system_upgrade_partition_info_t* table, int target_system, unsigned start) {
  upi_set_sync_status_nv(SYNC_STATUS_SUCCESS);
  mark_target(target_system, DUALSYSTEM_STATUS_BOOTABLE);
  upi_deinit_system_partition_info(table);
  UPI_LOG_AS("upi_sync_system", "-------------- Sync Takes %us --------------",
             upi::seconds_since(start));
  UPI_LOG_AS("upi_sync_system", "<<<<<<<<<<<<<<< Sync Success >>>>>>>>>>>>>>>");
  return 0;
}

int fail_sync(system_upgrade_partition_info_t* table, int target_system) {
  upi_set_sync_status_nv(SYNC_STATUS_FAIL);
  if (target_system != -1) {
    mark_target(target_system, DUALSYSTEM_STATUS_UNBOOTABLE);
  }
  upi_deinit_system_partition_info(table);
  UPI_LOG_AS("upi_sync_system", "<<<<<<<<<<<<<<< Sync Fail >>>>>>>>>>>>>>>");
  return -1;
}

// Marks the target unbootable, before anything of it is erased, and synchronises.
bool run_sync(system_upgrade_partition_info_t* table, int target_system_index, int target_system) {
  if (!mark_target(target_system, DUALSYSTEM_STATUS_UNBOOTABLE)) {
    return false;
  }
  if (upi_init_system_partition_info(table) != 0) {
    UPI_LOG_AS("upi_sync_system", "init system partition info fail");
    return false;
  }
  return sync_system(target_system_index, table) == 0;
}

}  // namespace

int upi_sync_system(void) {
  int target_system_index = -1;
  int target_system = -1;
  system_upgrade_partition_info_t* table = upi::new_system_partition_info();
  if (table == nullptr) {
    UPI_LOG("system_upgrade_partition_info malloc fail");
    return fail_sync(table, target_system);
  }
  UPI_LOG("<<<<<<<<<<<<<<< Start Sync >>>>>>>>>>>>>>>");
  const unsigned start = timestamp_now();
  upi_set_sync_status_nv(SYNC_STATUS_SYNCING);
  if (upi_get_target_sync_system(&target_system_index, &target_system) != 0) {
    UPI_LOG("Get target sync system fail!");
    return fail_sync(table, target_system);
  }
  if (!run_sync(table, target_system_index, target_system)) {
    return fail_sync(table, target_system);
  }
  return end_sync(table, target_system, start);
}

// --- Upgrade type ---

int upi_get_upgrade_type(void) {
  int type = -1;
  if (init_upgrade_package_info(UPGRADE_PACKAGE_PATH) != 0) {
    UPI_LOG("Init upgrade package info fail");
  } else {
    type = get_upgrade_type();
  }
  deinit_upgrade_package_info();
  return type;
}
