// SPDX-License-Identifier: Apache-2.0
#include "upi_public.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "upi_log.h"

// --- Work files ---

const char* get_log_root_path(void) {
  return "/cache/ovu_fota_ab/";
}

const char* get_temp_path(void) {
  return "/cache/ovu_fota_ab/upgrade_temp/";
}

namespace {

int folder_problem(int value) {
  UPI_LOG_AS("upi_create_folder", "Create folder problem value: %d, errno: %d", value, errno);
  return -1;
}

// Copies to `parent` the folder that has to exist before `path` can: its parent, or with a
// trailing slash the path itself. Returns whether there is one.
bool parent_folder(char (&parent)[256], const char* path) {
  size_t length = strlen(path);
  if (length == 0 || length >= sizeof(parent)) {
    return false;
  }
  do {
    --length;
  } while (length > 0 && path[length] != '/');
  if (path[length] != '/') {
    return false;
  }
  memcpy(parent, path, length);
  parent[length] = '\0';
  return true;
}

}  // namespace

int upi_create_folder(const char* folderpath) {
  int result = mkdir(folderpath, 0777);
  if (result == 0 || errno == EEXIST) {
    return 0;
  }
  if (errno != ENOENT) {
    return folder_problem(result);
  }
  result = RecursiveFolderCreater(folderpath, 0777);
  if (result != 0) {
    return folder_problem(result);
  }
  result = mkdir(folderpath, 0777);
  return result == 0 ? 0 : folder_problem(result);
}

int RecursiveFolderCreater(const char* folderpath, mode_t mode) {
  char parent[256];
  if (!parent_folder(parent, folderpath)) {
    return -1;
  }
  int result = mkdir(parent, mode);
  if (result == 0 || errno == EEXIST) {
    return 0;
  }
  if (errno == ENOENT) {
    result = RecursiveFolderCreater(parent, mode);
    return result != 0 ? result : mkdir(parent, mode);
  }
  UPI_LOG("mkdir ret:%d, error:%s", result, strerror(errno));
  return -1;
}

int upi_delete_folder(const char* folderpath) {
  return unlink(folderpath) == 0 || errno == ENOENT ? 0 : -1;
}

int upi_check_file_existence(const char* filepath) {
  if (access(filepath, R_OK) == 0) {
    return 0;
  }
  UPI_LOG("%s not exist", filepath);
  return -1;
}

long get_file_length_from_fd(int fd) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) {
    UPI_LOG("stat  error:%d %s", fd, strerror(errno));
    return -1;
  }
  return static_cast<long>(status.st_size);
}

int upi_readn(int fd, void* buf, unsigned int count) {
  UPI_LOG("Read data from file by fd!");
  auto* bytes = static_cast<unsigned char*>(buf);
  unsigned int done = 0;
  while (done < count) {
    const ssize_t got = read(fd, bytes + done, count - done);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      UPI_LOG_ERRNO("Read data from file error, error: ");
      return -1;
    }
    if (got == 0) {
      UPI_LOG("Read data to the file end!");
      break;
    }
    done += static_cast<unsigned int>(got);
  }
  return static_cast<int>(done);
}

// --- Status store ---

namespace {

constexpr size_t kStoreTextSize = 32;

char kUpgradeStatusKey[] = "fota_ab_upgrade_status";
char kTotalSizeKey[] = "fota_ab_upgrade_total_size";
char kUpdatedSizeKey[] = "fota_ab_upgrade_updated_size";
char kSyncStatusKey[] = "fota_ab_aa_sync_status";

}  // namespace

int upi_set_nv_int(char* nv_name, int value) {
  char text[kStoreTextSize] = {};
  snprintf(text, sizeof(text), "%d", value);
  sc_cfg_set(nv_name, text);
  sc_cfg_save();
  return 0;
}

int upi_get_nv_int(char* nv_name) {
  // One byte more than the store may fill, so that any value is terminated.
  char text[kStoreTextSize + 1] = {};
  sc_cfg_get(nv_name, text, static_cast<int>(kStoreTextSize));
  return static_cast<int>(strtoll(text, nullptr, 10));
}

void upi_set_upgrade_status(int status) {
  upi_set_nv_int(kUpgradeStatusKey, status);
}

void upi_set_upgrade_total_size(int total_size) {
  upi_set_nv_int(kTotalSizeKey, total_size);
}

void upi_set_upgrade_updated_size(int updated_size) {
  upi_set_nv_int(kUpdatedSizeKey, updated_size);
}

void upi_set_sync_status(int sync_status) {
  upi_set_nv_int(kSyncStatusKey, sync_status);
}

int upi_get_upgrade_status(void) {
  return upi_get_nv_int(kUpgradeStatusKey);
}

int upi_get_upgrade_total_size(void) {
  return upi_get_nv_int(kTotalSizeKey);
}

int upi_get_upgrade_updated_size(void) {
  return upi_get_nv_int(kUpdatedSizeKey);
}

int upi_get_sync_status(void) {
  return upi_get_nv_int(kSyncStatusKey);
}

// --- Running system and targets ---

namespace {

constexpr char kCommandLinePath[] = "/proc/cmdline";
constexpr char kSystemAParameter[] = "system=system_a";
constexpr char kSystemBParameter[] = "system=system_b";

template <size_t N>
bool begins_with(const char* text, const char (&prefix)[N]) {
  return strncmp(text, prefix, N - 1) == 0;
}

// The system that the first matching parameter of the line names, or -1. Cuts the line up.
int system_in_line(char* line) {
  char* rest = nullptr;
  for (char* token = strtok_r(line, " ", &rest); token != nullptr;
       token = strtok_r(nullptr, " ", &rest)) {
    UPI_LOG_AS("upi_get_current_system", "para:%s", token);
    if (begins_with(token, kSystemAParameter)) {
      return kSystemA;
    }
    if (begins_with(token, kSystemBParameter)) {
      return kSystemB;
    }
  }
  return -1;
}

}  // namespace

int upi_get_current_system(void) {
  UPI_LOG_BEGIN();
  FILE* file = fopen(kCommandLinePath, "r");
  if (file == nullptr) {
    UPI_LOG("Open file %s error, error:%s", kCommandLinePath, strerror(errno));
    return -1;
  }
  int system = -1;
  while (system == -1 && feof(file) == 0) {
    char line[1024] = {};
    if (fgets(line, sizeof(line), file) == nullptr) {
      UPI_LOG("get info from /proc/cmdline error:%s", strerror(errno));
      break;
    }
    UPI_LOG("buff:%s", line);
    system = system_in_line(line);
  }
  fclose(file);
  UPI_LOG_END();
  return system;
}

int upi_get_target_upgrade_system(void) {
  switch (upi_get_current_system()) {
    case kSystemA:
      return kSystemB;
    case kSystemB:
      return kSystemA;
    default:
      UPI_LOG("Get target system fail!");
      return -1;
  }
}

int upi_get_target_sync_system(int* target_system_index, int* target_system) {
  switch (upi_get_current_system()) {
    case kSystemA:
      *target_system_index = kSystemB;
      *target_system = DUAL_SYSTEM2;
      return 0;
    case kSystemB:
      *target_system_index = kSystemA;
      *target_system = DUAL_SYSTEM;
      return 0;
    default:
      return -1;
  }
}

// --- System partition table ---

namespace {

bool head_is_valid(const system_partition_info_head_t& head) {
  // The magic has no terminator of its own: as a string it runs on into `plat`.
  const auto* text = reinterpret_cast<const char*>(&head);
  if (strnlen(text, sizeof(head)) != sizeof(head.magic)) {
    UPI_LOG_AS("upi_init_system_partition_info", "magic len invalid");
    return false;
  }
  if (memcmp(head.magic, "SUPI", sizeof(head.magic)) != 0) {
    UPI_LOG_AS("upi_init_system_partition_info",
               "fail system partition info magic word invalid: %.*s",
               static_cast<int>(sizeof(head.magic)), head.magic);
    return false;
  }
  if (static_cast<unsigned>(head.plat_partition_num) > kMaxSystemPartitions) {
    UPI_LOG_AS("upi_init_system_partition_info", "plat_partition_num invalid");
    return false;
  }
  if (static_cast<unsigned>(head.oem_partition_num) > kMaxSystemPartitions) {
    UPI_LOG_AS("upi_init_system_partition_info", "oem_partition_num invalid");
    return false;
  }
  return true;
}

bool read_head(FILE* file, system_partition_info_head_t* head) {
  // A scan of literal text yields 0 whether it matches or not; only an exhausted input shows.
  if (fscanf(file, "[Head]\n") != 0) {
    UPI_LOG_AS("upi_init_system_partition_info", "Read [Head] fail");
    return false;
  }
  char magic[sizeof(head->magic) + 1] = {};
  const int values =
      fscanf(file, "magic=%4s\nplat=%d\nplat_partition_num=%d\noem_partition_num=%d\n", magic,
             &head->plat, &head->plat_partition_num, &head->oem_partition_num);
  memcpy(head->magic, magic, sizeof(head->magic));
  if (values < 4) {
    UPI_LOG_AS("upi_init_system_partition_info", "Read [Head Info] fail");
    return false;
  }
  return head_is_valid(*head);
}

// What sets one list of the file apart from the other.
struct Section {
  char word[9];
  char title[9];
};

constexpr Section kPlatformSection = {"platform", "Platform"};
constexpr Section kOemSection = {"oem", "Oem"};

int skip_title(FILE* file, const Section& section) {
  return &section == &kOemSection ? fscanf(file, "[Oem_Partition_Info]\n")
                                  : fscanf(file, "[Platform_Partition_Info]\n");
}

bool read_entry(FILE* file, platform_partition_info_t* entry) {
  return fscanf(file, "name=%31s\nsystem_type=%d\npartition_type=%d\n", entry->name,
                &entry->system_type, &entry->partition_type) == 3;
}

// Reads one list of `count` entries into an array that the caller's record owns from the start.
bool read_section(FILE* file, const Section& section, platform_partition_info_t** list,
                  int32_t count) {
  const auto entries = static_cast<size_t>(count);
  if (entries > 0) {
    *list = static_cast<platform_partition_info_t*>(calloc(entries, sizeof(**list)));
    if (*list == nullptr) {
      UPI_LOG_AS("upi_init_system_partition_info", "malloc %s_partition_info fail", section.word);
      return false;
    }
  }
  if (skip_title(file, section) != 0) {
    UPI_LOG_AS("upi_init_system_partition_info", "Read [%s_Partition_Info] fail", section.title);
    return false;
  }
  for (size_t i = 0; i < entries; ++i) {
    if (!read_entry(file, &(*list)[i])) {
      UPI_LOG_AS("upi_init_system_partition_info", "Read %s_Partition_Info fail", section.title);
      return false;
    }
  }
  return true;
}

bool read_table(FILE* file, system_upgrade_partition_info_t* table) {
  system_partition_info_head_t* head = &table->system_partition_info_head;
  if (!read_head(file, head) ||
      !read_section(file, kPlatformSection, &table->platform_partition_info,
                    head->plat_partition_num)) {
    return false;
  }
  if (static_cast<unsigned>(head->oem_partition_num) > kMaxSystemPartitions) {
    UPI_LOG_AS("upi_init_system_partition_info", "oem_malloc_size leak");
    return false;
  }
  if (!read_section(file, kOemSection, &table->oem_partition_info, head->oem_partition_num)) {
    return false;
  }
  show_system_partition_info(table);
  return true;
}

void show_list(const platform_partition_info_t* list, int32_t count, const Section& section) {
  if (list == nullptr) {
    UPI_LOG_AS("show_system_partition_info", "------- %s partition info is NULL -------",
               section.word);
    return;
  }
  UPI_LOG_AS("show_system_partition_info",
             "------- system partition info: %s Partition Info -------", section.title);
  for (int32_t i = 0; i < count; ++i) {
    UPI_LOG_AS("show_system_partition_info", "name: %s", list[i].name);
    UPI_LOG_LINES_AS("show_system_partition_info",
                     "system_type: %d\n"
                     "partition_type: %d\n",
                     list[i].system_type, list[i].partition_type);
  }
}

}  // namespace

int upi_init_system_partition_info(system_upgrade_partition_info_t* system_partition_info) {
  if (system_partition_info == nullptr) {
    UPI_LOG("system partition info is NULL");
    return -1;
  }
  FILE* file = fopen(SYSTEM_PARTITION_TABLE_PATH, "rb");
  if (file == nullptr) {
    UPI_LOG("fail to open file (%s)", SYSTEM_PARTITION_TABLE_PATH);
    return -1;
  }
  fseek(file, 0, SEEK_SET);
  const bool read = read_table(file, system_partition_info);
  if (fclose(file) != 0) {
    UPI_LOG("close system partition info file fail, errno=%d [%s]", errno, strerror(errno));
    return -1;
  }
  return read ? 0 : -1;
}

void upi_deinit_system_partition_info(system_upgrade_partition_info_t* system_partition_info) {
  if (system_partition_info == nullptr) {
    return;
  }
  free(system_partition_info->platform_partition_info);
  free(system_partition_info->oem_partition_info);
  free(system_partition_info);
}

void show_system_partition_info(system_upgrade_partition_info_t* system_partition_info) {
  const system_partition_info_head_t& head = system_partition_info->system_partition_info_head;
  UPI_LOG_LINES(
      "Show System Partition Info:\n"
      "------- system partition info: Head -------\n");
  UPI_LOG("magic: %.*s", static_cast<int>(sizeof(head)), head.magic);
  UPI_LOG_LINES(
      "plat: %d\n"
      "plat_partition_num: %d\n"
      "oem_partition_num: %d\n",
      head.plat, head.plat_partition_num, head.oem_partition_num);
  show_list(system_partition_info->platform_partition_info, head.plat_partition_num,
            kPlatformSection);
  show_list(system_partition_info->oem_partition_info, head.oem_partition_num, kOemSection);
}

namespace upi {

system_upgrade_partition_info_t* new_system_partition_info() {
  return static_cast<system_upgrade_partition_info_t*>(
      calloc(1, sizeof(system_upgrade_partition_info_t)));
}

}  // namespace upi

// --- Digests ---

int hash_copy(char* dst, char* src, int type) {
  if (type == HASH_SHA512) {
    strncpy(dst, src, kDigestSize);
  }
  return 0;
}

int hash_compare(char* str1, char* str2, int type) {
  if (type != HASH_SHA512) {
    UPI_LOG("Unknown hash type");
    return -1;
  }
  return strncmp(str1, str2, kDigestSize);
}

void show_hash_hex(int type, const char* title, char* hash) {
  if (type != HASH_SHA512) {
    UPI_LOG("Invalid hash len: %d", type);
    return;
  }
  constexpr char kDigits[] = "0123456789abcdef";
  char text[385] = {};
  char* at = text;
  for (size_t i = 0; i < kDigestSize; ++i) {
    const auto byte = static_cast<unsigned char>(hash[i]);
    *at++ = kDigits[byte >> 4];
    *at++ = kDigits[byte & 15];
    *at++ = ' ';
  }
  UPI_LOG("%s:%s", title, text);
}
