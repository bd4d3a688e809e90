// SPDX-License-Identifier: Apache-2.0
#include "upi_update.h"

#include <unistd.h>

#include <cstdint>

#include "upi_fotaflag_partition.h"
#include "upi_hash.h"
#include "upi_log.h"
#include "upi_mtd.h"
#include "upi_owner.h"
#include "upi_public.h"
#include "upi_upgrade_package.h"

z_upgrade_flush_status_t* g_flush_status;

namespace {

constexpr char kSeparator[] = "-----------------------------------------------";

// The longest text that may be read from an entry's name, and the name: two arguments of "%.*s".
struct EntryName {
  explicit EntryName(const partition_head_info_t* entry)
      : limit(upi::partition_name_limit(entry)), text(entry->name) {}
  int limit;
  const char* text;
};

z_upgrade_status_info_t* sink_status() {
  return g_flush_status != nullptr ? g_flush_status->status : nullptr;
}

void report_to_sink(z_upgrade_status_info_t* status, int update_status) {
  status->upgrade_status = update_status;
  if (g_flush_status->status_cb != nullptr) {
    // The callback's public type has no parameter list for the sake of older hosts.
    using Callback = void (*)(z_upgrade_status_info_t*);
    reinterpret_cast<Callback>(g_flush_status->status_cb)(status);
  }
}

}  // namespace

// --- Progress ---

char* update_status_to_string(int status) {
  static char unknown[] = "UPGRADE_STATUS_UNKNOWN";
  static char names[][32] = {
      "UPGRADE_STATUS_VERIFING",       "UPGRADE_STATUS_VERIFY_SUCCESS",
      "UPGRADE_STATUS_VERIFY_FAIL",    "UPGRADE_STATUS_UPDATING",
      "UPGRADE_STATUS_UPDATE_SUCCESS", "UPGRADE_STATUS_UPDATE_FAIL",
      "UPGRADE_STATUS_NO_NEED_UPDATE", "UPGRADE_STATUS_NEED_UPDATE",
  };
  constexpr int kNames = sizeof(names) / sizeof(names[0]);
  return status >= 0 && status < kNames ? names[status] : unknown;
}

void upi_flush_upgrade_status(int update_status, int total_size, int updated_size) {
  UPI_LOG_BEGIN();
  upi_set_upgrade_status(update_status);
  UPI_LOG("Update status: [%d](%s) total_size:%d, updated size:%d!", update_status,
          update_status_to_string(update_status), total_size, updated_size);
  z_upgrade_status_info_t* status = sink_status();
  if (total_size != -1) {
    upi_set_upgrade_total_size(total_size);
    if (status != nullptr) {
      status->total_size = total_size;
    }
  }
  if (updated_size != -1) {
    upi_set_upgrade_updated_size(updated_size);
    if (status != nullptr) {
      status->upgraded_size = updated_size;
    }
  }
  if (status != nullptr) {
    report_to_sink(status, update_status);
  }
  UPI_LOG_END();
}

// --- One partition ---

static int read_upgrade_package_partition_data(char* partition_name, int offset,
                                               unsigned char* read_data, int read_len) {
  UPI_LOG_BEGIN();
  const partition_head_info_t* entry = get_partition_head_info_by_name(partition_name);
  const int fd = get_upgrade_package_file_fd();
  if (entry == nullptr) {
    UPI_LOG("get partition head info by name fail!");
    return -1;
  }
  const auto position =
      static_cast<int32_t>(static_cast<uint32_t>(entry->offset) + static_cast<uint32_t>(offset));
  if (lseek(fd, position, SEEK_SET) < 0) {
    UPI_LOG_ERRNO("Seek to file fail! error:");
    return -1;
  }
  const int got = upi_readn(fd, read_data, static_cast<unsigned>(read_len));
  if (got < read_len) {
    UPI_LOG("Get upgrade package data fail, get len:%d", got);
    return -1;
  }
  UPI_LOG("Need len:%d, real read len:%d", read_len, got);
  UPI_LOG_END();
  return got;
}

namespace {

int copy_one_block(device_data_t* device, int position, unsigned char* block, int size) {
  const int got =
      read_upgrade_package_partition_data(device->partition_name, position, block, size);
  if (got != size) {
    UPI_LOG_AS("upgrade_image", "read partition data failed, current read len:%d!", got);
    return -1;
  }
  if (write_mtd_partition_data(&device->mtd_info, position, size, block) < 0) {
    UPI_LOG_AS("upgrade_image", "Image write partition data failed");
    return -1;
  }
  return 0;
}

int copy_image(device_data_t* device, const upi::Buffer& block) {
  const auto chunk = static_cast<int64_t>(block.size());
  for (int64_t position = 0; position < device->len; position += chunk) {
    const int64_t rest = device->len - position;
    const auto size = static_cast<int>(rest < chunk ? rest : chunk);
    if (copy_one_block(device, static_cast<int>(position), block.get(), size) != 0) {
      return -1;
    }
  }
  return 0;
}

}  // namespace

static int upgrade_image(int target, device_data_t* p_device_data) {
  UPI_LOG_BEGIN();
  const auto len = static_cast<int>(p_device_data->len);
  {
    const upi::Buffer block(p_device_data->mtd_info.mtd_blocksize);
    if (!block) {
      UPI_LOG("Malloc for image data fail");
      return -1;
    }
    // What an interrupted upgrade has finished is not written again.
    if (check_image_hash(&p_device_data->mtd_info, len, p_device_data->hash) == 0) {
      UPI_LOG("Partition [%s] already updated!", p_device_data->partition_name);
      UPI_LOG_END();
      return 0;
    }
    if (mtd_erase_partition(target, p_device_data->partition_name) != 0) {
      UPI_LOG("Failed to erase mtd partition %s", p_device_data->partition_name);
      return -1;
    }
    if (copy_image(p_device_data, block) != 0) {
      return -1;
    }
    if (check_image_hash(&p_device_data->mtd_info, len, p_device_data->hash) < 0) {
      UPI_LOG("Image data check hash failed");
      return -1;
    }
  }
  UPI_LOG_END();
  return 0;
}

static int init_partition_device_data(int target, device_data_t* p_device_data,
                                      partition_head_info_t* partition_info, int partition_num) {
  UPI_LOG_BEGIN();
  upi::form_mtd_name(p_device_data->partition_name, kMtdNameSize, partition_info->name, false);
  p_device_data->partition_type = partition_info->partition_type;
  p_device_data->len = partition_info->len;
  p_device_data->offset = partition_info->offset;
  p_device_data->zipped = partition_info->zipped;
  hash_copy(p_device_data->hash, reinterpret_cast<char*>(partition_info->hash), HASH_SHA512);
  p_device_data->index = partition_num;
  p_device_data->partition_total_count = get_upgrade_package_info()->head->partition_num;
  char mtd_name[kMtdNameSize];
  upi::form_mtd_name(mtd_name, upi::kMtdNameLimit, partition_info->name, target == kSystemB);
  const EntryName name(partition_info);
  UPI_LOG("partition name:%.*s, real name:%s", name.limit, name.text, mtd_name);
  if (get_partition_mtd_info(mtd_name, p_device_data->partition_type, &p_device_data->mtd_info) <
      0) {
    UPI_LOG("Failed to get update info, %s!", mtd_name);
    // It may hold the number of a descriptor that is closed already.
    p_device_data->mtd_info.parti_file_desc = -1;
    return -1;
  }
  if (!upi::lift_write_protection(UPI_FUNCTION, p_device_data->mtd_info.parti_file_desc)) {
    return -1;
  }
  UPI_LOG_END();
  return 0;
}

static int de_init_partition_device_data(device_data_t* p_device_data) {
  UPI_LOG_BEGIN();
  int* fd = &p_device_data->mtd_info.parti_file_desc;
  upi::restore_write_protection(UPI_FUNCTION, *fd);
  if (*fd >= 0) {
    close(*fd);
    *fd = -1;
  }
  UPI_LOG_END();
  return 0;
}

static int upgrade_partition(int target, partition_head_info_t* partition_info,
                             int partition_index) {
  UPI_LOG_BEGIN();
  const EntryName name(partition_info);
  device_data_t device = {};
  device.mtd_info.parti_file_desc = -1;
  int result = -1;
  if (init_partition_device_data(target, &device, partition_info, partition_index) == 0) {
    result = upgrade_image(target, &device);
  } else {
    UPI_LOG("Init device data error! partition name:%.*s", name.limit, name.text);
  }
  de_init_partition_device_data(&device);
  UPI_LOG("<<<<<<<<<<<end  Upgrade %.*s, result :%d>>>>>>>>>>>>", name.limit, name.text, result);
  UPI_LOG_END();
  return result;
}

// --- All partitions ---

namespace {

bool target_has_partitions(int target, partition_head_info_t* entries, int count) {
  for (int i = 0; i < count; ++i) {
    const EntryName name(&entries[i]);
    UPI_LOG_AS("upgrade_partitions", "%s", kSeparator);
    UPI_LOG_AS("upgrade_partitions", "Check parition:%.*s", name.limit, name.text);
    if (is_partition_exist(target, entries[i].name) != 0) {
      UPI_LOG_AS("upgrade_partitions", "There is no [%.*s] partition!", name.limit, name.text);
      return false;
    }
  }
  return true;
}

// Upgrades one partition and reports the bytes that are in place with it. `*updated` is the sum so
// far.
bool upgrade_and_report(int target, partition_head_info_t* entry, int index, uint32_t* updated) {
  const EntryName name(entry);
  UPI_LOG_AS("upgrade_partitions", "%s", kSeparator);
  UPI_LOG_AS("upgrade_partitions", "Update parition:%.*s", name.limit, name.text);
  const unsigned start = timestamp_now();
  if (upgrade_partition(target, entry, index) == -1) {
    UPI_LOG_AS("upgrade_partitions", "Update partition [%.*s] fail!", name.limit, name.text);
    return false;
  }
  *updated += static_cast<uint32_t>(entry->len);
  upi_flush_upgrade_status(UPGRADE_STATUS_UPDATING, -1, static_cast<int>(*updated));
  UPI_LOG_AS("upgrade_partitions", "-------------- Update parition [%.*s] Takes %us --------------",
             name.limit, name.text, upi::seconds_since(start));
  UPI_LOG_AS("upgrade_partitions", "%s\n", kSeparator);
  return true;
}

}  // namespace

static int upgrade_partitions(int target) {
  UPI_LOG_BEGIN();
  upi_flush_upgrade_status(UPGRADE_STATUS_UPDATING, get_total_partition_length(), -1);
  const int count = get_partition_num();
  UPI_LOG("Partition num:%d", count);
  partition_head_info_t* entries = get_partition_head_info();
  if (!target_has_partitions(target, entries, count)) {
    return -1;
  }
  uint32_t updated = 0;
  for (int i = 0; i < count; ++i) {
    if (!upgrade_and_report(target, &entries[i], i, &updated)) {
      return -1;
    }
  }
  UPI_LOG_END();
  return 0;
}

// --- Preparation and endings ---

static int prepare_path() {
  UPI_LOG_BEGIN();
  int result = 0;
  if (upi_check_file_existence(get_temp_path()) < 0) {
    result = upi_create_folder(get_temp_path());
  }
  UPI_LOG_END();
  return result;
}

static int unprepare_path() {
  UPI_LOG_BEGIN();
  UPI_LOG_END();
  return 0;
}

static int unprepare_update() {
  UPI_LOG_BEGIN();
  deinit_upgrade_package_info();
  unprepare_path();
  UPI_LOG_END();
  return 0;
}

namespace {

int system_code(int system) {
  return system == kSystemA ? DUAL_SYSTEM : DUAL_SYSTEM2;
}

// Loads the package and marks the target unbootable, before a single byte of it is erased.
int load_and_mark(int target) {
  if (init_upgrade_package_info(UPGRADE_PACKAGE_PATH) < 0) {
    UPI_LOG_AS("prepare_update", "Init upgrade package info fail!");
    unprepare_update();
    return -1;
  }
  if (upi_set_system_status(system_code(target), DUALSYSTEM_STATUS_UNBOOTABLE) < 0) {
    UPI_LOG_AS("prepare_update", "Before update,  set target system unboot fail!");
    unprepare_update();
    return -1;
  }
  return 0;
}

}  // namespace

static int prepare_update(int* target) {
  UPI_LOG_BEGIN();
  UPI_LOG("<<<<<<<<<<<begin  prepare_update>>>>>>>>>>>>");
  switch (upi_get_current_system()) {
    case kSystemA:
      *target = kSystemB;
      break;
    case kSystemB:
      *target = kSystemA;
      break;
    default:
      *target = -1;
      return -1;
  }
  if (prepare_path() < 0) {
    UPI_LOG("Prepare path fail!");
    return -1;
  }
  const int result = load_and_mark(*target);
  UPI_LOG("<<<<<<<<<<<end  prepare_update, result:%d>>>>>>>>>>>>", result);
  UPI_LOG_END();
  return result;
}

static int set_boot_to_status(int update_status, int target) {
  UPI_LOG_BEGIN();
  if (target != kSystemA && target != kSystemB) {
    UPI_LOG("Unreach branch, target is :%d", target);
    return -1;
  }
  const bool bootable = update_status == UPGRADE_STATUS_UPDATE_SUCCESS;
  if (upi_set_system_status(system_code(target), bootable ? DUALSYSTEM_STATUS_BOOTABLE
                                                          : DUALSYSTEM_STATUS_UNBOOTABLE) < 0) {
    UPI_LOG("Update fail, set target system %s fail!", bootable ? "bootable" : "unbootable");
    return -1;
  }
  UPI_LOG_END();
  return 0;
}

namespace {

// Releases everything, reports the outcome and sets the target's status. Returns `result`, or -1
// when the status could not be set.
int end_update(int update_status, int target, int result) {
  unprepare_update();
  upi_flush_upgrade_status(update_status, -1, -1);
  if (set_boot_to_status(update_status, target) < 0) {
    UPI_LOG_AS("upi_update", "Update boot to system fail. ");
    return -1;
  }
  return result;
}

int fail_update(int target, int result) {
  UPI_LOG_AS("upi_update", "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>");
  return end_update(UPGRADE_STATUS_UPDATE_FAIL, target, result);
}

int succeed_update(int target, unsigned start) {
  UPI_LOG_AS("upi_update", "-------------- Upgrade Takes %us --------------",
             upi::seconds_since(start));
  UPI_LOG_AS("upi_update", "<<<<<<<<<<<<Success  Upgrade>>>>>>>>>>>>>");
  return end_update(UPGRADE_STATUS_UPDATE_SUCCESS, target, 0);
}

int run_update() {
  UPI_LOG_AS("upi_update", "<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>");
  const unsigned start = timestamp_now();
  int target = -1;
  if (prepare_update(&target) < 0) {
    UPI_LOG_AS("upi_update", "Prepare for update fail!");
    // Hosts learn of a failed preparation from the status alone.
    return fail_update(target, 0);
  }
  UPI_LOG_AS("upi_update", "Target system is system:%d", target);
  if (upgrade_partitions(target) < 0) {
    return fail_update(target, -1);
  }
  return succeed_update(target, start);
}

}  // namespace

int upi_update(z_upgrade_flush_status_t* p_flush_status) {
  g_flush_status = p_flush_status;
  UPI_LOG_BEGIN();
  upi_flush_upgrade_status(UPGRADE_STATUS_UPDATING, 0, 0);
  const int result = run_update();
  UPI_LOG_END();
  return result;
}
