// SPDX-License-Identifier: Apache-2.0
//
// The boot flag record: read, changed, written in two copies.
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "tests/reference/library.h"

namespace reference {
namespace {

using std::to_string;

// Offsets of the record's words.
constexpr std::size_t kBootTo = 4;
constexpr std::size_t kFotaStatus = 8;
constexpr std::size_t kStatusA = 12;
constexpr std::size_t kStatusB = 20;

bool is_bad(const Node& node, int index) {
  __kernel_loff_t at = static_cast<__kernel_loff_t>(index) * node.block;
  return ioctl(node.fd, MEMGETBADBLOCK, &at) != 0;
}

int blocks(const Node& node) {
  return static_cast<int>(node.size / node.block);
}

std::string word(const sim::BootRecord& record, std::size_t offset) {
  return to_string(static_cast<std::int32_t>(record.word(offset)));
}

bool is_system(int code) {
  return code == code_of(1) || code == code_of(2);
}

bool is_status(int status) {
  return status == sim::kStatusBootable || status == sim::kStatusSuccessful ||
         status == sim::kStatusUnbootable;
}

Bytes block_of(const sim::BootRecord& record, const Node& node) {
  Bytes image(node.block, 0xFF);
  std::copy(record.bytes.begin(), record.bytes.end(), image.begin());
  return image;
}

std::string hexadecimal(int number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(number));
  return text;
}

}  // namespace

// Readers and writers word their failures differently.
int Library::open_flags(const char* speaker, bool reading, Node& node) {
  const std::optional<std::string> path = find("flags");
  if (!path) {
    say(speaker, reading ? "partition[flags] name is not find" : "Partition[flags] not found!");
    return -1;
  }
  const int fd = open_shown(*path, O_RDWR | O_DSYNC);
  if (fd < 0) {
    say(speaker, "Open flash error: " + error());
    return -1;
  }
  mtd_info_user info{};
  if (ioctl(fd, MEMGETINFO, &info) != 0) {
    say(speaker, std::string(reading ? "get" : "Get") + " flash info error: " + error());
    close(fd);
    return -1;
  }
  node = {fd, info.size, info.erasesize, info.writesize, info.oobsize};
  return fd;
}

// --- Reading. ---

bool Library::read_copies(Copies& copies) {
  const char* const self = "upi_get_boot_flags_content";
  Node node;
  if (open_flags(self, true, node) < 0) {
    return false;
  }
  int found = 0;
  bool good = true;
  for (int i = 0; i < blocks(node) && found < 2 && good; ++i) {
    if (is_bad(node, i)) {
      say(self, "Fotaflag block [" + to_string(i) + "] is bad, errno no:" + error());
      continue;
    }
    sim::BootRecord& copy = found == 0 ? copies.main : copies.backup;
    if (lseek(node.fd, static_cast<off_t>(static_cast<std::uint32_t>(i) * node.block), SEEK_SET) <
        0) {
      good = fail(self, "Lseek error: " + error());
      continue;
    }
    const ssize_t got = read(node.fd, copy.bytes.data(), copy.bytes.size());
    if (got < static_cast<ssize_t>(copy.bytes.size())) {
      good = fail(self, "Read len (" + to_string(got) + ") < need len (292)!");
      continue;
    }
    (found == 0 ? copies.main_index : copies.backup_index) = i;
    ++found;
  }
  close(node.fd);
  return good;
}

bool Library::read_valid(const char* speaker, sim::BootRecord& record) {
  const char* const reader = "get_info_from_img_boot_flag";
  Copies copies;
  if (!read_copies(copies)) {
    say(reader, "Get boot flags content fail!");
    return fail(speaker, "get flag info fail~");
  }
  if (!copies.main.valid() && !copies.backup.valid()) {
    say(reader, "Do not find valid flag info!");
    return fail(speaker, "get flag info fail~");
  }
  record = copies.main.valid() ? copies.main : copies.backup;
  return true;
}

int Library::boot_to_system() {
  sim::BootRecord record;
  if (!read_valid("upi_get_boot_flag", record)) {
    say("vemk_dual_get_boot_to_system", "Get get system status fail");
    return -1;
  }
  return static_cast<int>(record.boot_to());
}

int Library::fota_status() {
  sim::BootRecord record;
  return read_valid("upi_get_system_fota_status", record) ? static_cast<int>(record.fota_status())
                                                          : -1;
}

int Library::system_status() {
  const char* const self = "vemk_dual_get_system_status";
  sim::BootRecord record;
  if (!read_valid("upi_get_system_info", record)) {
    say(self, "Get get system status fail");
    return -1;
  }
  say(self, "dual get system info:");
  say(self, "dual boot to:" + word(record, kBootTo));
  say(self, "dual fota stauts:" + word(record, kFotaStatus));
  for (const int system : {1, 2}) {
    const std::size_t status = system == 1 ? kStatusA : kStatusB;
    const std::string start = "dual get system " + to_string(system);
    say(self, start + " status:" + hexadecimal(static_cast<int>(record.word(status))) + "[" +
                  word(record, status) + "]");
    say(self, start + " try_cnt:" + word(record, status + 4));
  }
  return 0;
}

// --- Writing. ---

// 0: written; 1: the block is bad; -1: it failed.
int Library::write_copy(const Node& node, int index, const Bytes& image) {
  const char* const self = "upi_write_fota_flag_img_content";
  const std::string block = to_string(index);
  const std::uint32_t offset = static_cast<std::uint32_t>(index) * node.block;
  if (ioctl(node.fd, kLift, 0) != 0) {
    say(self, "Failed to enable mtd writeable!  error:" + error());
    return -1;
  }
  if (is_bad(node, index)) {
    say(self, "Ioctl [MEMGETBADBLOCK] block: " + block +
                  " , change to be bad block errno: " + error() + "!");
    return 1;
  }
  erase_info_user range{offset, node.block};
  if (ioctl(node.fd, MEMERASE, &range) < 0) {
    say(self, "Ioctl [MEMERASE] block: " + block + " error, errno=" + error() + "!");
    return -1;
  }
  if (is_bad(node, index)) {
    say(self, "Ioctl [MEMGETBADBLOCK] block:" + block +
                  " , change to be bad block errno: " + error() + "!");
    return 1;
  }
  if (lseek(node.fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
    say(self, "Lseek error: " + error());
    return -1;
  }
  if (write(node.fd, image.data(), image.size()) != static_cast<ssize_t>(image.size())) {
    say(self, "Write flash error: " + error());
    return -1;
  }
  if (ioctl(node.fd, kRestore, 0) != 0) {
    say(self, "Failed to disable mtd writeable!  error:" + error());
  }
  return 0;
}

int Library::write_main(const Node& node, const Copies& copies, const Bytes& image) {
  const char* const self = "upi_set_boot_flags_content";
  for (int i = 0; i < blocks(node); ++i) {
    if (i == copies.backup_index) {
      continue;
    }
    say(self, "Write main to [" + to_string(i) + "] block!");
    switch (write_copy(node, i, image)) {
      case 0:
        say(self, "Main fotaflag location:[" + to_string(copies.main_index) + "]->[" +
                      to_string(i) + "]");
        return i;
      case 1:
        say(self, "Fotaflag index [" + to_string(i) + "] is bad block");
        break;
      default:
        say(self, "Write main Error");
        return -1;
    }
  }
  return copies.main_index;
}

int Library::write_backup(const Node& node, const Copies& copies, const Bytes& image) {
  const char* const self = "upi_set_boot_flags_content";
  for (int i = 0; i < blocks(node); ++i) {
    if (i == copies.main_index) {
      continue;
    }
    const int result = write_copy(node, i, image);
    if (result == 0) {
      say(self, "Backup fotaflag location:[" + to_string(copies.backup_index) + "]->[" +
                    to_string(i) + "]");
      return i;
    }
    if (result == -1) {
      say(self, "Write backup Error");
      return -1;
    }
  }
  return copies.backup_index;
}

bool Library::write_copies(const sim::BootRecord& record, Copies& copies) {
  const char* const self = "upi_set_boot_flags_content";
  begin(self);
  Node node;
  if (open_flags(self, false, node) < 0) {
    return false;
  }
  if (!allocate()) {
    close(node.fd);
    return fail(self, "Malloc for block fail!");
  }
  const Bytes image = block_of(record, node);
  say(self, "Fotaflag partition fd:" + shown(node.fd));
  say(self, "begin to write main fotaflag");
  copies.main_index = write_main(node, copies, image);
  say(self, "begin to write backup fotaflag");
  copies.backup_index = write_backup(node, copies, image);
  close(node.fd);
  end(self);
  return copies.main_index != -1 || copies.backup_index != -1;
}

// --- Changing. ---

sim::BootRecord* Library::choose(const char* speaker, Copies& copies, const char* unreadable) {
  if (!read_copies(copies)) {
    say(speaker, unreadable);
    return nullptr;
  }
  for (sim::BootRecord* const copy : {&copies.main, &copies.backup}) {
    if (copy->word(0) == sim::kRecordMagic) {
      return copy;
    }
  }
  say(speaker, "Get boot flag invalid");
  return nullptr;
}

bool Library::write_change(const char* speaker, const sim::BootRecord& record, Copies& copies,
                           const char* success) {
  if (!write_copies(record, copies)) {
    return fail(speaker, "Set boot flag fail!");
  }
  say(speaker, success);
  return true;
}

bool Library::set_boot_to(int system) {
  const char* const self = "upi_set_system_boot_to";
  Copies copies;
  sim::BootRecord* const record = choose(self, copies, "Get boot flags content fail");
  if (record == nullptr) {
    return false;
  }
  if (copies.main.boot_to() != static_cast<std::uint32_t>(system)) {
    say(self, "Set boot to " + to_string(system) +
                  ", current flag is :" + word(copies.main, kBootTo) + "~");
    record->set_word(kFotaStatus, 1);
  }
  record->set_word(kBootTo, static_cast<std::uint32_t>(system));
  return write_change(self, *record, copies, "Set system boot to success");
}

bool Library::set_status(int system, int status) {
  const char* const self = "upi_set_system_status";
  if (!is_system(system)) {
    return fail(self, "Invalid system :" + to_string(system));
  }
  if (!is_status(status)) {
    return fail(self, "Invalide status:" + to_string(status) +
                          ", valid is:bootable(45227), successful(23759), unbootable(47806)");
  }
  Copies copies;
  sim::BootRecord* const record = choose(self, copies, "get boot flags content fail~");
  if (record == nullptr) {
    return false;
  }
  record->set_status(system == code_of(1) ? sim::System::a : sim::System::b, status);
  say(self, "Set " + to_string(system) + " system status to " + to_string(status));
  say(self,
      "Current status:system1:" + word(*record, kStatusA) + " system2:" + word(*record, kStatusB));
  return write_change(self, *record, copies, "Set system status success");
}

int Library::set_boot_to_system(int system, int reboot) {
  const char* const self = "vemk_dual_set_boot_to_system";
  if (!is_system(system)) {
    say(self, "Invalid system :" + to_string(system));
    return -1;
  }
  if (!set_boot_to(system)) {
    say(self, "Set system fail");
    return -1;
  }
  if (reboot == 1) {
    static_cast<void>(std::system("reboot"));
  }
  return 0;
}

int Library::set_system_status(int system, int status) {
  if (set_status(system, status)) {
    return 0;
  }
  say("vemk_dual_set_system_status",
      "Set syste [" + hexadecimal(system) + "] status [" + to_string(status) + "] error!");
  return -1;
}

int Library::set_fota_status(int status) {
  const char* const self = "upi_set_system_fota_stauts";
  if (status != 0 && status != 1) {
    say(self, "Invalid status :" + to_string(status));
    return -1;
  }
  Copies copies;
  sim::BootRecord* const record = choose(self, copies, "Get boot flags content fail");
  if (record == nullptr) {
    return -1;
  }
  const auto wanted = static_cast<std::uint32_t>(status);
  if (copies.main.fota_status() == wanted && copies.backup.fota_status() == wanted) {
    say(self, "Set fota_status " + to_string(status) +
                  ", current fota_status is :" + word(*record, kFotaStatus) + "~");
    return 0;
  }
  record->set_word(kFotaStatus, wanted);
  return write_change(self, *record, copies, "Set system boot to success") ? 0 : -1;
}

int Library::init_flag_partition() {
  const char* const self = "init_fotaflag_partition";
  begin(self);
  Node node;
  if (open_flags(self, false, node) < 0) {
    return -1;
  }
  if (!allocate()) {
    close(node.fd);
    say(self, "Malloc for block fail!");
    return -1;
  }
  const Bytes image = block_of(sim::factory_record(), node);
  int copies = 0;
  for (int i = 0; i < blocks(node) && copies < 8; ++i) {
    if (write_copy(node, i, image) == 0) {
      ++copies;
      say(self, "Write init valid block num:" + to_string(copies) + "!");
    }
  }
  close(node.fd);
  end(self);
  say(self, std::string("Init system status ") + (copies < 2 ? "fail" : "success") +
                ", alread write block :" + to_string(copies));
  return copies < 2 ? -1 : 0;
}

}  // namespace reference
