// SPDX-License-Identifier: Apache-2.0
#include "zozale/mtd.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/text.h"
#include "upi_public.h"
#include "zozale/failure.h"
#include "zozale/terms.h"

namespace zozale::tool {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File open_text(const char* path) {
  return {fopen(path, "re"), &fclose};
}

Descriptor open_node(const std::string& node) {
  const int fd = open(node.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    throw Failure(kExitFailed,
                  {"cannot open the flash node " + node, "the node readable", strerror(errno),
                   "run zozale as root; check that the node is there"});
  }
  return Descriptor(fd);
}

// The library's own format, so that both pass over the same lines.
std::optional<MtdEntry> parse_mtd_line(const char* line) {
  MtdEntry entry;
  std::array<char, 64> name{};
  if (sscanf(line, "mtd%d: %x %x \"%63[^\"]", &entry.number, &entry.size, &entry.erase_size,
             name.data()) != 4) {
    return std::nullopt;
  }
  entry.name = name.data();
  return entry;
}

}  // namespace

MtdTable MtdTable::read() {
  const File file = open_text("/proc/mtd");
  if (!file) {
    throw Failure(kExitDeviceUnfit,
                  {"the kernel's table of flash partitions cannot be read", "/proc/mtd readable",
                   strerror(errno), "start a kernel with MTD support and the flash's driver"});
  }
  MtdTable table;
  std::array<char, 128> line{};
  while (fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
    if (auto entry = parse_mtd_line(line.data())) {
      table.entries_.push_back(std::move(*entry));
    }
  }
  return table;
}

const MtdEntry* MtdTable::find(std::string_view name) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [name](const MtdEntry& entry) { return entry.name == name; });
  return found == entries_.end() ? nullptr : &*found;
}

const MtdEntry& MtdTable::require(const std::string& name) const {
  if (const MtdEntry* entry = find(name)) {
    return *entry;
  }
  throw Failure(kExitDeviceUnfit,
                {"the partition " + printable(name) + " is missing",
                 "an MTD partition of this name in /proc/mtd",
                 "none among " + counted(entries_.size(), "partition"),
                 "add it to the kernel's partition list, or remove its entry from the package and "
                 "from " SYSTEM_PARTITION_TABLE_PATH});
}

Flash::Flash(const MtdEntry& entry)
    : name_(entry.name), node_(entry.node()), fd_(open_node(node_)) {
  read_geometry();
  read_bad_blocks();
}

void Flash::read_geometry() {
  mtd_info_user info = {};
  if (ioctl(fd_.get(), MEMGETINFO, &info) != 0) {
    throw Failure(kExitFailed, {"cannot get the geometry of " + node_, "an answer to MEMGETINFO",
                                strerror(errno), "check that it is a raw MTD node"});
  }
  if (info.erasesize == 0 || info.writesize == 0) {
    throw Failure(kExitDeviceUnfit, {"the partition " + printable(name_) + " has no geometry",
                                     "an erase size above 0",
                                     "erase size " + std::to_string(info.erasesize) +
                                         ", page size " + std::to_string(info.writesize),
                                     "check the flash driver of " + node_});
  }
  block_size_ = info.erasesize;
  page_size_ = info.writesize;
  blocks_ = info.size / info.erasesize;
}

// As the library counts them: a block that cannot be asked about is bad.
void Flash::read_bad_blocks() {
  for (uint32_t block = 0; block < blocks_; ++block) {
    auto offset = static_cast<__kernel_loff_t>(block) * block_size_;
    const bool bad = ioctl(fd_.get(), MEMGETBADBLOCK, &offset) != 0;
    (bad ? bad_ : good_).push_back(block);
  }
}

uint32_t Flash::blocks_for(uint64_t bytes) const {
  return static_cast<uint32_t>((bytes + block_size_ - 1) / block_size_);
}

bool Flash::read_good(uint32_t index, uint8_t* buffer, size_t len) const {
  const off_t offset = static_cast<off_t>(physical(index)) * block_size_;
  return lseek(fd_.get(), offset, SEEK_SET) == offset &&
         ::read(fd_.get(), buffer, len) == static_cast<ssize_t>(len);
}

}  // namespace zozale::tool
