// SPDX-License-Identifier: Apache-2.0
#include "upi_fotaflag_partition.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "upi_log.h"
#include "upi_owner.h"

namespace {

constexpr char kFlagsPartition[] = "flags";
constexpr char kContentSetter[] = "upi_set_boot_flags_content";
constexpr int kInitialCopies = 8;
constexpr int kCopiesNeeded = 2;

// Results of writing one block, besides 0 for a written one.
constexpr int kBlockIsBad = 1;
constexpr int kBlockFailed = -1;

// A reader and a writer word their failures differently.
enum class FlagsUser { kReader, kWriter };

void say_not_found(const char* speaker, FlagsUser user) {
  if (user == FlagsUser::kReader) {
    UPI_LOG_AS(speaker, "partition[%s] name is not find", kFlagsPartition);
  } else {
    UPI_LOG_AS(speaker, "Partition[%s] not found!", kFlagsPartition);
  }
}

void say_no_geometry(const char* speaker, FlagsUser user) {
  if (user == FlagsUser::kReader) {
    UPI_LOG_ERRNO_AS(speaker, "get flash info error: ");
  } else {
    UPI_LOG_ERRNO_AS(speaker, "Get flash info error: ");
  }
}

// Opens "flags" and reads its geometry. Returns the descriptor, or -1.
int open_flags(const char* speaker, FlagsUser user, mtd_info_user* geometry) {
  char path[kMtdPathSize];
  if (mtd_find(kFlagsPartition, path, DEVICE_MTD, sizeof(path)) != 0) {
    say_not_found(speaker, user);
    return -1;
  }
  upi::OwnedFd fd(open(path, kMtdOpenFlags));
  if (!fd.valid()) {
    UPI_LOG_ERRNO_AS(speaker, "Open flash error: ");
    return -1;
  }
  *geometry = {};
  if (ioctl(fd.get(), MEMGETINFO, geometry) != 0) {
    say_no_geometry(speaker, user);
    return -1;
  }
  return fd.release();
}

int block_count(const mtd_info_user& geometry) {
  return static_cast<int>(upi::divide(geometry.size, geometry.erasesize));
}

bool is_bad_block(int fd, uint32_t offset) {
  __kernel_loff_t long_offset = offset;
  return ioctl(fd, MEMGETBADBLOCK, &long_offset) != 0;
}

bool seek_to(int fd, uint32_t offset) {
  return lseek(fd, static_cast<off_t>(offset), SEEK_SET) >= 0;
}

// --- Reading ---

bool read_copy(int fd, uint32_t offset, T_FOTA_FLAG_INFO* copy) {
  constexpr auto kNeeded = static_cast<ssize_t>(sizeof(*copy));
  if (!seek_to(fd, offset)) {
    UPI_LOG_ERRNO_AS("upi_get_boot_flags_content", "Lseek error: ");
    return false;
  }
  const ssize_t got = read(fd, copy, sizeof(*copy));
  if (got < kNeeded) {
    UPI_LOG_AS("upi_get_boot_flags_content", "Read len (%d) < need len (%d)!",
               static_cast<int>(got), static_cast<int>(kNeeded));
    return false;
  }
  return true;
}

// Both copies, as the readers and setters hold them: where none was found, the record is clear and
// the index is the one of a flawless partition.
struct Copies {
  T_FOTA_FLAG_INFO main = {};
  T_FOTA_FLAG_INFO backup = {};
  int main_index = 0;
  int backup_index = 1;

  bool read() {
    return upi_get_boot_flags_content(&main, &main_index, &backup, &backup_index) >= 0;
  }
};

bool is_valid(const T_FOTA_FLAG_INFO& copy) {
  return copy.boot_flag.magic == FOTA_FLAG_MAGIC && copy.boot_env.magic == copy.boot_flag.magic;
}

// Reads the valid copy on behalf of `speaker`.
bool read_valid_copy(const char* speaker, T_FOTA_FLAG_INFO* copy) {
  if (get_info_from_img_boot_flag(copy) < 0) {
    UPI_LOG_AS(speaker, "get flag info fail~");
    return false;
  }
  return true;
}

// --- Writing ---

// One copy as it stands on flash: a whole block, 0xFF behind the record.
class BlockImage : public upi::Buffer {
 public:
  BlockImage(size_t block_size, const T_FOTA_FLAG_INFO& record) : Buffer(block_size) {
    if (*this) {
      fill(0xFF);
      memcpy(get(), &record, block_size < sizeof(record) ? block_size : sizeof(record));
    }
  }
};

// The open partition with the block to be written to it.
class FlagsWriter {
 public:
  // Logs what is missing as `speaker`; ready() tells.
  FlagsWriter(const char* speaker, const T_FOTA_FLAG_INFO& record)
      : fd_(open_flags(speaker, FlagsUser::kWriter, &geometry_)),
        image_(fd_.valid() ? geometry_.erasesize : 0, record) {
    if (fd_.valid() && !image_) {
      UPI_LOG_AS(speaker, "Malloc for block fail!");
    }
    upi::fill_geometry(&mtd_info_, geometry_);
    mtd_info_.parti_file_desc = fd_.get();
  }

  bool ready() const { return fd_.valid() && image_; }
  int fd() const { return fd_.get(); }
  int blocks() const { return block_count(geometry_); }
  int write_block(int index) {
    return upi_write_fota_flag_img_content(&mtd_info_, index, image_.get(),
                                           static_cast<int>(image_.size()));
  }

 private:
  mtd_info_user geometry_ = {};
  partition_mtd_info_t mtd_info_ = {};
  upi::OwnedFd fd_;
  BlockImage image_;
};

enum class Copy { kMain, kBackup };

// Writes a copy to the first block that takes it, but the other copy's. Returns its new index: the
// old one when every block is bad, -1 after a failure.
int write_copy(FlagsWriter* flags, Copy copy, int old_index, int other_index) {
  const bool is_main = copy == Copy::kMain;
  for (int i = 0; i < flags->blocks(); ++i) {
    if (i == other_index) {
      continue;
    }
    if (is_main) {
      UPI_LOG_AS(kContentSetter, "Write main to [%d] block!", i);
    }
    const int result = flags->write_block(i);
    if (result == 0) {
      UPI_LOG_AS(kContentSetter, "%s fotaflag location:[%d]->[%d]", is_main ? "Main" : "Backup",
                 old_index, i);
      return i;
    }
    if (result == kBlockFailed) {
      UPI_LOG_AS(kContentSetter, "Write %s Error", is_main ? "main" : "backup");
      return -1;
    }
    if (is_main) {
      UPI_LOG_AS(kContentSetter, "Fotaflag index [%d] is bad block", i);
    }
  }
  return old_index;
}

// --- Setters ---

bool is_system(int code) {
  return code == DUAL_SYSTEM || code == DUAL_SYSTEM2;
}

bool is_system_status(int status) {
  return status == DUALSYSTEM_STATUS_BOOTABLE || status == DUALSYSTEM_STATUS_SUCCESSFUL ||
         status == DUALSYSTEM_STATUS_UNBOOTABLE;
}

T_DualSystem_Status* system_entry(T_FOTA_FLAG_INFO* record, int system) {
  return system == DUAL_SYSTEM ? &record->boot_flag.system : &record->boot_flag.system2;
}

// Reads both copies and picks the one to be changed. Returns null when there is none; `unreadable`
// is what to say when they cannot be read.
T_FOTA_FLAG_INFO* read_for_change(const char* speaker, Copies* copies, const char* unreadable) {
  if (!copies->read()) {
    UPI_LOG_AS(speaker, "%s", unreadable);
    return nullptr;
  }
  if (copies->main.boot_flag.magic == FOTA_FLAG_MAGIC) {
    return &copies->main;
  }
  if (copies->backup.boot_flag.magic == FOTA_FLAG_MAGIC) {
    return &copies->backup;
  }
  UPI_LOG_AS(speaker, "Get boot flag invalid");
  return nullptr;
}

// Writes the changed record back. Returns 0 or -1.
int write_change(const char* speaker, Copies* copies, T_FOTA_FLAG_INFO* record,
                 const char* success) {
  if (upi_set_boot_flags_content(record, &copies->main_index, &copies->backup_index) < 0) {
    UPI_LOG_AS(speaker, "Set boot flag fail!");
    return -1;
  }
  UPI_LOG_AS(speaker, "%s", success);
  return 0;
}

T_FOTA_FLAG_INFO initial_record() {
  T_FOTA_FLAG_INFO record = {};
  record.boot_flag.magic = FOTA_FLAG_MAGIC;
  record.boot_flag.boot_to = DUAL_SYSTEM;
  record.boot_flag.system.status = DUALSYSTEM_STATUS_BOOTABLE;
  record.boot_flag.system2.status = DUALSYSTEM_STATUS_BOOTABLE;
  record.boot_env.magic = FOTA_FLAG_MAGIC;
  record.boot_env.dualsys_type = DUALSYSTEM_AB;
  return record;
}

}  // namespace

int upi_get_boot_flags_content(T_FOTA_FLAG_INFO* main, int* p_main_index, T_FOTA_FLAG_INFO* backup,
                               int* p_backup_index) {
  mtd_info_user geometry;
  const upi::OwnedFd fd(open_flags(UPI_FUNCTION, FlagsUser::kReader, &geometry));
  if (!fd.valid()) {
    return -1;
  }
  const int blocks = block_count(geometry);
  int found = 0;
  for (int i = 0; i < blocks && found < 2; ++i) {
    const uint32_t offset = static_cast<uint32_t>(i) * geometry.erasesize;
    if (is_bad_block(fd.get(), offset)) {
      UPI_LOG_ERRNO("Fotaflag block [%d] is bad, errno no:", i);
      continue;
    }
    if (!read_copy(fd.get(), offset, found == 0 ? main : backup)) {
      return -1;
    }
    *(found == 0 ? p_main_index : p_backup_index) = i;
    ++found;
  }
  return 0;
}

int get_info_from_img_boot_flag(T_FOTA_FLAG_INFO* p_flag_info) {
  Copies copies;
  if (!copies.read()) {
    UPI_LOG("Get boot flags content fail!");
    return -1;
  }
  const T_FOTA_FLAG_INFO& copy = is_valid(copies.main) ? copies.main : copies.backup;
  if (!is_valid(copy)) {
    UPI_LOG("Do not find valid flag info!");
    return -1;
  }
  p_flag_info->boot_flag = copy.boot_flag;
  p_flag_info->boot_env.magic = copy.boot_env.magic;
  p_flag_info->boot_env.dualsys_type = copy.boot_env.dualsys_type;
  return 0;
}

int upi_get_system_info(T_FOTA_FLAG_INFO* p_system_info) {
  return read_valid_copy(UPI_FUNCTION, p_system_info) ? 0 : -1;
}

int upi_get_system_boot_to(void) {
  T_FOTA_FLAG_INFO copy = {};
  return read_valid_copy(UPI_FUNCTION, &copy) ? static_cast<int>(copy.boot_flag.boot_to) : -1;
}

int upi_get_system_fota_status(void) {
  T_FOTA_FLAG_INFO copy = {};
  return read_valid_copy(UPI_FUNCTION, &copy) ? static_cast<int>(copy.boot_flag.fota_status) : -1;
}

int upi_get_boot_flag(T_BOOT_FOTA_FLAG* p_boot_flag) {
  if (p_boot_flag == nullptr) {
    UPI_LOG("Input invalid paramter, null point");
    return -1;
  }
  T_FOTA_FLAG_INFO copy = {};
  if (!read_valid_copy(UPI_FUNCTION, &copy)) {
    return -1;
  }
  *p_boot_flag = copy.boot_flag;
  return 0;
}

int upi_write_fota_flag_img_content(partition_mtd_info_t* p_mtd_info, int index,
                                    unsigned char* content, int /*len*/) {
  const int fd = p_mtd_info->parti_file_desc;
  const uint32_t block_size = p_mtd_info->mtd_blocksize;
  const uint32_t offset = static_cast<uint32_t>(index) * block_size;
  if (!upi::lift_write_protection(UPI_FUNCTION, fd)) {
    return kBlockFailed;
  }
  if (is_bad_block(fd, offset)) {
    UPI_LOG("Ioctl [MEMGETBADBLOCK] block: %d , change to be bad block errno: %d[%s]!", index,
            errno, strerror(errno));
    return kBlockIsBad;
  }
  erase_info_user range = {offset, block_size};
  if (ioctl(fd, MEMERASE, &range) < 0) {
    UPI_LOG("Ioctl [MEMERASE] block: %d error, errno=%d[%s]!", index, errno, strerror(errno));
    return kBlockFailed;
  }
  // The driver may have retired the block while erasing it.
  if (is_bad_block(fd, offset)) {
    UPI_LOG("Ioctl [MEMGETBADBLOCK] block:%d , change to be bad block errno: %d[%s]!", index, errno,
            strerror(errno));
    return kBlockIsBad;
  }
  if (!seek_to(fd, offset)) {
    UPI_LOG_ERRNO("Lseek error: ");
    return kBlockFailed;
  }
  if (write(fd, content, block_size) != static_cast<ssize_t>(block_size)) {
    UPI_LOG_ERRNO("Write flash error: ");
    return kBlockFailed;
  }
  upi::restore_write_protection(UPI_FUNCTION, fd);
  return 0;
}

int upi_set_boot_flags_content(T_FOTA_FLAG_INFO* info, int* p_main_index, int* p_backup_index) {
  UPI_LOG_BEGIN();
  {
    FlagsWriter flags(UPI_FUNCTION, *info);
    if (!flags.ready()) {
      return -1;
    }
    UPI_LOG("Fotaflag partition fd:%d", flags.fd());
    UPI_LOG("begin to write main fotaflag");
    *p_main_index = write_copy(&flags, Copy::kMain, *p_main_index, *p_backup_index);
    UPI_LOG("begin to write backup fotaflag");
    *p_backup_index = write_copy(&flags, Copy::kBackup, *p_backup_index, *p_main_index);
  }
  UPI_LOG_END();
  return *p_main_index == -1 && *p_backup_index == -1 ? -1 : 0;
}

int upi_set_system_boot_to(int boot_to, int boot_to_status) {
  if (!is_system(boot_to)) {
    UPI_LOG("Invalid boot_to :%d", boot_to);
    return -1;
  }
  Copies copies;
  T_FOTA_FLAG_INFO* record = read_for_change(UPI_FUNCTION, &copies, "Get boot flags content fail");
  if (record == nullptr) {
    return -1;
  }
  // Always the main copy's target, also when the backup is the one that gets changed.
  const int current = copies.main.boot_flag.boot_to;
  if (current != boot_to) {
    UPI_LOG("Set boot to %d, current flag is :%d~", boot_to, current);
    record->boot_flag.fota_status = 1;
  }
  record->boot_flag.boot_to = static_cast<T_BOOT_TARGET>(boot_to);
  if (is_system_status(boot_to_status)) {
    system_entry(record, boot_to)->status = boot_to_status;
  }
  return write_change(UPI_FUNCTION, &copies, record, "Set system boot to success");
}

int upi_set_system_fota_stauts(int status) {
  if (status != 0 && status != 1) {
    UPI_LOG("Invalid status :%d", status);
    return -1;
  }
  Copies copies;
  T_FOTA_FLAG_INFO* record = read_for_change(UPI_FUNCTION, &copies, "Get boot flags content fail");
  if (record == nullptr) {
    return -1;
  }
  const auto wanted = static_cast<uint32_t>(status);
  if (copies.main.boot_flag.fota_status == wanted &&
      copies.backup.boot_flag.fota_status == wanted) {
    UPI_LOG("Set fota_status %d, current fota_status is :%d~", status,
            static_cast<int>(record->boot_flag.fota_status));
    return 0;
  }
  record->boot_flag.fota_status = wanted;
  return write_change(UPI_FUNCTION, &copies, record, "Set system boot to success");
}

int upi_set_system_status(int system, int status) {
  if (!is_system(system)) {
    UPI_LOG("Invalid system :%d", system);
    return -1;
  }
  if (!is_system_status(status)) {
    UPI_LOG("Invalide status:%d, valid is:bootable(%d), successful(%d), unbootable(%d)", status,
            DUALSYSTEM_STATUS_BOOTABLE, DUALSYSTEM_STATUS_SUCCESSFUL, DUALSYSTEM_STATUS_UNBOOTABLE);
    return -1;
  }
  Copies copies;
  T_FOTA_FLAG_INFO* record = read_for_change(UPI_FUNCTION, &copies, "get boot flags content fail~");
  if (record == nullptr) {
    return -1;
  }
  switch (system) {
    case DUAL_SYSTEM:
    case DUAL_SYSTEM2:
      system_entry(record, system)->status = status;
      UPI_LOG("Set %d system status to %d", system, status);
      break;
    default:
      UPI_LOG("Unreachable branch, unknown system!");
  }
  UPI_LOG("Current status:system1:%d system2:%d", record->boot_flag.system.status,
          record->boot_flag.system2.status);
  return write_change(UPI_FUNCTION, &copies, record, "Set system status success");
}

int init_fotaflag_partition(void) {
  UPI_LOG_BEGIN();
  int copies = 0;
  {
    FlagsWriter flags(UPI_FUNCTION, initial_record());
    if (!flags.ready()) {
      return -1;
    }
    for (int i = 0; i < flags.blocks() && copies < kInitialCopies; ++i) {
      if (flags.write_block(i) == 0) {
        ++copies;
        UPI_LOG("Write init valid block num:%d!", copies);
      }
    }
  }
  UPI_LOG_END();
  if (copies < kCopiesNeeded) {
    UPI_LOG("Init system status fail, alread write block :%d", copies);
    return -1;
  }
  UPI_LOG("Init system status success, alread write block :%d", copies);
  return 0;
}

int check_fota_flag_partition(void) {
  return 0;
}

void upi_reboot(void) {
  const int result = system("reboot");
  static_cast<void>(result);
}
