// SPDX-License-Identifier: Apache-2.0
#include "upi_upgrade_package.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "upi_log.h"
#include "upi_public.h"

upgrade_package_info_t* g_upgrade_package_info;
int g_upgrade_package_fd;

namespace {

constexpr char kLoader[] = "init_upgrade_package_info";
constexpr size_t kNameSize = 32;

// Where a string may run on to: the end of the memory that holds it.
int limit(const void* text, const void* end) {
  return static_cast<int>(static_cast<const char*>(end) - static_cast<const char*>(text));
}

// Whether the string at `text`, which ends at `end` at the latest, equals `name` as a whole.
bool string_equals(const char* text, const void* end, const char* name) {
  const size_t size = strnlen(text, static_cast<size_t>(limit(text, end)));
  return strlen(name) == size && memcmp(text, name, size) == 0;
}

// --- Upgrade type ---

bool same_name(const partition_head_info_t& entry, const platform_partition_info_t& listed) {
  return strncmp(entry.name, listed.name, kNameSize) == 0;
}

const void* table_end(const upgrade_package_info_t& package) {
  return package.partition_info + package.head->partition_num;
}

// Compares the package's entries from `first` on with a whole list, in order.
bool matches_list(const upgrade_package_info_t& package, uint32_t first,
                  const platform_partition_info_t* list, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    const partition_head_info_t& entry = package.partition_info[first + i];
    if (!same_name(entry, list[i])) {
      UPI_LOG_AS("is_upgrade_type_valid",
                 "upgrade_type: %d, upgrade package partition [%.*s] is different from system "
                 "partition [%s]",
                 package.head->upgrade_type, limit(entry.name, table_end(package)), entry.name,
                 list[i].name);
      return false;
    }
  }
  return true;
}

bool is_whole_system(const upgrade_package_info_t& package,
                     const system_upgrade_partition_info_t& table, uint32_t platform_count,
                     uint32_t oem_count) {
  if (static_cast<uint32_t>(package.head->partition_num) != platform_count + oem_count) {
    UPI_LOG_AS("is_upgrade_type_valid",
               "upgrade_type: %d, upgrade package partition num is different from system "
               "partition num",
               package.head->upgrade_type);
    return false;
  }
  return matches_list(package, 0, table.platform_partition_info, platform_count) &&
         matches_list(package, platform_count, table.oem_partition_info, oem_count);
}

// Whether every entry of the package occurs in the list, in any order.
bool is_subset(const upgrade_package_info_t& package, const platform_partition_info_t* list,
               uint32_t count) {
  for (int32_t i = 0; i < package.head->partition_num; ++i) {
    const partition_head_info_t& entry = package.partition_info[i];
    if (is_partition_exist_system(&entry, list, count) != 0) {
      UPI_LOG_AS("is_upgrade_type_valid",
                 "upgrade_type: %d, upgrade package partition [%.*s] do not exist",
                 package.head->upgrade_type, limit(entry.name, table_end(package)), entry.name);
      return false;
    }
  }
  return true;
}

bool fits_system(const upgrade_package_info_t& package,
                 const system_upgrade_partition_info_t& table) {
  const auto platform_count =
      static_cast<uint32_t>(table.system_partition_info_head.plat_partition_num);
  const auto oem_count = static_cast<uint32_t>(table.system_partition_info_head.oem_partition_num);
  if (platform_count > kMaxSystemPartitions) {
    UPI_LOG_AS("is_upgrade_type_valid", "plat_partition_num is invalid");
    return true;
  }
  if (oem_count > kMaxSystemPartitions) {
    UPI_LOG_AS("is_upgrade_type_valid", "oem_partition_num is invalid");
    return true;
  }
  switch (package.head->upgrade_type) {
    case 0:
      return is_whole_system(package, table, platform_count, oem_count);
    case 1:
      return is_subset(package, table.platform_partition_info, platform_count);
    case 2:
      return is_subset(package, table.oem_partition_info, oem_count);
    default:
      UPI_LOG_AS("is_upgrade_type_valid", "upgrade type is unkown");
      return false;
  }
}

// --- Loading. The stages speak as the loader. ---

void log_banner(const char* outcome) {
  UPI_LOG_AS(kLoader, "<<<<<<<<<<<Init upgrade package info%s>>>>>>>>>>>>", outcome);
}

void close_invalid(int fd, const char* path) {
  if (close(fd) != 0) {
    UPI_LOG_ERRNO_AS(kLoader, "Close upgrade package file [%s] error, error: ", path);
  }
}

void free_contents(upgrade_package_info_t* package) {
  free(package->extra_info);
  free(package->partition_info);
  free(package->head);
}

template <typename T>
T* new_zeroed(size_t count) {
  return static_cast<T*>(calloc(count, sizeof(T)));
}

upgrade_package_info_t* new_package(int fd, const char* path) {
  auto* package = new_zeroed<upgrade_package_info_t>(1);
  if (package == nullptr) {
    UPI_LOG_AS(kLoader, "Malloc for upgrade package info struct fail!");
    if (close(fd) != 0) {
      UPI_LOG_ERRNO_AS(kLoader, "Close upgrade package file [%s] error,  error: ", path);
    }
    return nullptr;
  }
  package->upgrade_package_file_desc = fd;
  return package;
}

bool read_file_size(upgrade_package_info_t* package, const char* path) {
  struct stat status = {};
  if (stat(path, &status) != 0) {
    UPI_LOG_ERRNO_AS(kLoader, "Stat file [%s] error, error: ", path);
    return false;
  }
  package->upgrade_package_file_size = static_cast<uint32_t>(status.st_size);
  return true;
}

// Reads exactly `size` bytes from the package's position; `what` names them in the message.
bool read_exactly(const upgrade_package_info_t& package, void* data, size_t size,
                  const char* what) {
  const int got =
      upi_readn(package.upgrade_package_file_desc, data, static_cast<unsigned int>(size));
  if (got != static_cast<int>(size)) {
    UPI_LOG_ERRNO_AS(kLoader,
                     "Read upgrade package file %s info fail, get length:%d, error: ", what, got);
    return false;
  }
  return true;
}

bool read_head(upgrade_package_info_t* package, const char* path) {
  if (lseek(package->upgrade_package_file_desc, 0, SEEK_SET) < 0) {
    UPI_LOG_ERRNO_AS(kLoader, "Lseek file [%s] error, error:", path);
    return false;
  }
  package->head = new_zeroed<upgrade_package_head_info_t>(1);
  if (package->head == nullptr) {
    UPI_LOG_AS(kLoader, "Malloc upgrade package head info failed, size:%d!",
               static_cast<int>(sizeof(*package->head)));
    return false;
  }
  return read_exactly(*package, package->head, sizeof(*package->head), "head");
}

bool read_partition_table(upgrade_package_info_t* package) {
  const int32_t count = package->head->partition_num;
  if (count > kMaxPackageEntries) {
    UPI_LOG_AS(kLoader, "There is/are [%d] partition(s) in upgrade package!", count);
    return false;
  }
  if (count <= 0) {
    UPI_LOG_AS(kLoader, "There is %d partitionin upgrade package!", count);
    return true;
  }
  const size_t size = static_cast<size_t>(count) * sizeof(*package->partition_info);
  package->partition_info = new_zeroed<partition_head_info_t>(static_cast<size_t>(count));
  if (package->partition_info == nullptr) {
    UPI_LOG_AS(kLoader,
               "Malloc for upgrade package partition head info failed, malloc size: "
               "[partition_num * every partition size]:[%d * %d]",
               count, static_cast<int>(size));
    return false;
  }
  return read_exactly(*package, package->partition_info, size, "partition");
}

// Checks the names of a package that has a partition table; closes its file when they do not fit.
bool check_partition_table(upgrade_package_info_t* package, const char* path) {
  if (package->head->partition_num <= 0 || is_upgrade_type_valid(package) == 0) {
    return true;
  }
  UPI_LOG_AS(kLoader, "Upgrade type invalid");
  close_invalid(package->upgrade_package_file_desc, path);
  return false;
}

bool read_extra_table(upgrade_package_info_t* package) {
  const int32_t count = package->head->extra_num;
  if (count > kMaxPackageEntries) {
    UPI_LOG_AS(kLoader, "There is/are [%d] extra file(s) in upgrade package!", count);
    return false;
  }
  if (count <= 0) {
    UPI_LOG_AS(kLoader, "There is no extra file in upgrade package file!");
    return true;
  }
  const size_t size = static_cast<size_t>(count) * sizeof(*package->extra_info);
  package->extra_info = new_zeroed<extra_head_info_t>(static_cast<size_t>(count));
  if (package->extra_info == nullptr) {
    UPI_LOG_AS(kLoader,
               "Malloc for upgrade package extra info failed, [exta_num * every extra need "
               "size]:[%d * %d] ",
               count, static_cast<int>(size));
    return false;
  }
  return read_exactly(*package, package->extra_info, size, "head");
}

bool load_package(upgrade_package_info_t* package, const char* path) {
  return read_file_size(package, path) && read_head(package, path) &&
         read_partition_table(package) && check_partition_table(package, path) &&
         read_extra_table(package);
}

}  // namespace

int init_upgrade_package_info(const char* upagrade_package_file_path) {
  const char* path = upagrade_package_file_path;
  log_banner("");
  if (path == nullptr) {
    UPI_LOG("Input para invalid, upgrade package file path is invalid:%p",
            static_cast<const void*>(path));
    return -1;
  }
  const int fd = open(path, O_RDONLY);
  g_upgrade_package_fd = fd;
  if (fd < 0) {
    UPI_LOG_ERRNO("Open upgrade package file[%s] error, error:", path);
    return -1;
  }
  if (is_upgrade_package_file_valid(fd) != 0) {
    close_invalid(fd, path);
    return -1;
  }
  upgrade_package_info_t* package = new_package(fd, path);
  if (package == nullptr) {
    return -1;
  }
  if (!load_package(package, path)) {
    free_contents(package);
    free(package);
    log_banner(" fail");
    return -1;
  }
  g_upgrade_package_info = package;
  show_upgrade_package_info();
  log_banner(" success");
  return 0;
}

int is_upgrade_package_file_valid(int fd) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) {
    UPI_LOG_ERRNO("Stat fd[%d] error: ", fd);
    return -1;
  }
  if (status.st_size < static_cast<off_t>(sizeof(upgrade_package_head_info_t))) {
    UPI_LOG("Upgrade package file is too short [%lu], less than upgrade package head info [%u]!",
            static_cast<unsigned long>(status.st_size),
            static_cast<unsigned>(sizeof(upgrade_package_head_info_t)));
    return -1;
  }
  char magic[5] = {};
  const int got = upi_readn(fd, magic, 4);
  if (got < 4) {
    UPI_LOG("Get upgrade package magic word fail, get len:%d is too short!", got);
    return -1;
  }
  if (memcmp(magic, "FOTA", sizeof(magic)) != 0) {
    UPI_LOG("Upgrade package magic word invalid:%s!", magic);
    return -1;
  }
  UPI_LOG("Upgrade package magic word check success!");
  return 0;
}

int is_upgrade_type_valid(upgrade_package_info_t* package_info) {
  system_upgrade_partition_info_t* table = upi::new_system_partition_info();
  if (table == nullptr) {
    UPI_LOG("system_partition_info malloc fail");
    return -1;
  }
  bool valid = false;
  if (upi_init_system_partition_info(table) != 0) {
    UPI_LOG("init system partition info fail");
  } else {
    valid = fits_system(*package_info, *table);
  }
  upi_deinit_system_partition_info(table);
  return valid ? 0 : -1;
}

int is_partition_exist_system(const partition_head_info_t* partition_info,
                              const platform_partition_info_t* list, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (same_name(*partition_info, list[i])) {
      return 0;
    }
  }
  return -1;
}

void deinit_upgrade_package_info(void) {
  upgrade_package_info_t* package = g_upgrade_package_info;
  if (package == nullptr) {
    return;
  }
  free_contents(package);
  if (package->upgrade_package_file_desc > 0 && close(package->upgrade_package_file_desc) != 0) {
    UPI_LOG("Close upgrade package file error, error:%s", strerror(errno));
  }
  free(package);
  g_upgrade_package_info = nullptr;
}

// --- Members of the loaded package ---

upgrade_package_info_t* get_upgrade_package_info(void) {
  return g_upgrade_package_info;
}

unsigned char* get_upgrade_package_hash(void) {
  return g_upgrade_package_info->head->hash;
}

int get_upgrade_package_version(void) {
  return g_upgrade_package_info->head->upgrade_package_version;
}

int get_upgrade_type(void) {
  return g_upgrade_package_info->head->upgrade_type;
}

int get_partition_num(void) {
  return g_upgrade_package_info->head->partition_num;
}

partition_head_info_t* get_partition_head_info(void) {
  return g_upgrade_package_info->partition_info;
}

int get_extra_num(void) {
  return g_upgrade_package_info->head->extra_num;
}

extra_head_info_t* get_extra_head_info(void) {
  return g_upgrade_package_info->extra_info;
}

int get_upgrade_package_file_fd(void) {
  return g_upgrade_package_info->upgrade_package_file_desc;
}

int get_total_partition_length(void) {
  uint32_t total = 0;
  for (int i = 0; i < get_partition_num(); ++i) {
    total += static_cast<uint32_t>(get_partition_head_info()[i].len);
  }
  return static_cast<int>(total);
}

namespace {

// Finds the entry of this name in a table; entries begin with their names.
void* find_entry(void* table, int count, size_t entry_size, const char* name) {
  auto* entry = static_cast<char*>(table);
  for (int rest = count; rest > 0; --rest, entry += entry_size) {
    if (string_equals(entry, entry + static_cast<size_t>(rest) * entry_size, name)) {
      return entry;
    }
  }
  return nullptr;
}

bool has_head() {
  return g_upgrade_package_info != nullptr && g_upgrade_package_info->head != nullptr;
}

}  // namespace

partition_head_info_t* get_partition_head_info_by_name(const char* partition_name) {
  if (partition_name == nullptr) {
    UPI_LOG("Input parameter is invalid, partition name is null!");
    return nullptr;
  }
  if (!has_head() || get_partition_num() == 0) {
    UPI_LOG("Invalid upgrade package partition info! ");
    return nullptr;
  }
  return static_cast<partition_head_info_t*>(
      find_entry(get_partition_head_info(), get_partition_num(), sizeof(partition_head_info_t),
                 partition_name));
}

extra_head_info_t* get_extra_head_info_by_name(const char* extra_name) {
  if (extra_name == nullptr) {
    UPI_LOG("Input para invalid, null point!");
    return nullptr;
  }
  if (!has_head() || get_extra_num() == 0) {
    UPI_LOG("Invalid upgrade package partition info!");
    return nullptr;
  }
  return static_cast<extra_head_info_t*>(
      find_entry(get_extra_head_info(), get_extra_num(), sizeof(extra_head_info_t), extra_name));
}

// --- Showing ---

void show_upgrade_package_info(void) {
  show_upgrade_package_head_info();
  show_partition_info();
  show_extra_info();
}

void show_upgrade_package_head_info(void) {
  upgrade_package_head_info_t* head = g_upgrade_package_info->head;
  const void* end = head + 1;
  UPI_LOG("magic:%.*s", limit(head->magic_word, end), head->magic_word);
  UPI_LOG_LINES(
      "upgrade package version:%d\n"
      "upgrade package plat:%d\n"
      "upgrade package type:%d\n"
      "upgrade type:%d\n"
      "upgrade package partition num:%d\n"
      "upgrade package extra file num:%d\n"
      "upgrade package hash type:%d\n"
      "upgrade package block size:%d\n",
      head->upgrade_package_version, head->plat, head->upgrade_package_type, head->upgrade_type,
      head->partition_num, head->extra_num, head->hash_type, head->block_size);
  UPI_LOG("upgrad package version_dst:%.*s", limit(head->version_dst, end), head->version_dst);
  show_hash_hex(HASH_SHA512, "upgrade package content hash:", upi::digest_text(head->hash));
}

void show_partition_info(void) {
  const int count = get_partition_num();
  UPI_LOG("----------------------------");
  // A full-width exclamation mark in the GB2312 code page.
  UPI_LOG("There is/are [%d] partition(s)\xA3\xA1\n", count);
  for (int i = 0; i < count; ++i) {
    partition_head_info_t* entry = get_partition_head_info() + i;
    UPI_LOG("----------------------------");
    UPI_LOG("partition name:%.*s", upi::partition_name_limit(entry), entry->name);
    UPI_LOG_LINES(
        "partition len:%d\n"
        "partition offset:%d\n"
        "partition partition_type:%d\n"
        "partition zipped:%d\n",
        entry->len, entry->offset, entry->partition_type, entry->zipped);
    show_hash_hex(HASH_SHA512, "hash:", upi::digest_text(entry->hash));
  }
  UPI_LOG("----------------------------");
}

void show_extra_info(void) {
  const int count = get_extra_num();
  extra_head_info_t* entries = get_extra_head_info();
  UPI_LOG("Extra file number:%d", count);
  for (int i = 0; i < count; ++i) {
    UPI_LOG("----------------------------");
    UPI_LOG("Extra file name:%.*s", limit(entries[i].name, entries + count), entries[i].name);
    UPI_LOG_LINES(
        "Extra file len:%d\n"
        "Extra file offset:%d\n",
        entries[i].len, entries[i].offset);
    // The package's digest, not the file's own: readers of these logs expect it.
    show_hash_hex(HASH_SHA512, "Extra file hash:", upi::digest_text(get_upgrade_package_hash()));
  }
  UPI_LOG("----------------------------");
}

namespace upi {

int partition_name_limit(const partition_head_info_t* entry) {
  const partition_head_info_t* table = has_head() ? get_partition_head_info() : nullptr;
  const int count = table != nullptr ? get_partition_num() : 0;
  const bool in_table = count > 0 && entry >= table && entry < table + count;
  return in_table ? limit(entry->name, table + count) : static_cast<int>(kNameSize);
}

}  // namespace upi
