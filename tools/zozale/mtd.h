// SPDX-License-Identifier: Apache-2.0
//
// The device's flash, looked at and never touched: every node is opened for reading only.
#ifndef ZOZALE_TOOL_MTD_H
#define ZOZALE_TOOL_MTD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/file.h"

namespace zozale::tool {

struct MtdEntry {
  int number = 0;           // N of "/dev/mtdN"
  uint32_t size = 0;        // bytes
  uint32_t erase_size = 0;  // bytes of an erase block
  std::string name;

  std::string node() const { return "/dev/mtd" + std::to_string(number); }
};

// The kernel's table of MTD partitions.
class MtdTable {
 public:
  // Throws Failure(kExitDeviceUnfit) when "/proc/mtd" cannot be read.
  static MtdTable read();

  // The first entry of that name, as the library finds it; null when there is none.
  const MtdEntry* find(std::string_view name) const;
  // The same, or Failure(kExitDeviceUnfit).
  const MtdEntry& require(const std::string& name) const;
  const std::vector<MtdEntry>& entries() const { return entries_; }

 private:
  std::vector<MtdEntry> entries_;
};

// One MTD partition, open for reading, with its bad blocks as they were when it was opened.
class Flash {
 public:
  // Throws Error: the node cannot be opened or asked, or tells a geometry that cannot be.
  explicit Flash(const MtdEntry& entry);

  const std::string& name() const { return name_; }
  const std::string& node() const { return node_; }
  uint32_t block_size() const { return block_size_; }
  uint32_t page_size() const { return page_size_; }
  uint32_t blocks() const { return blocks_; }
  uint32_t good_blocks() const { return static_cast<uint32_t>(good_.size()); }
  const std::vector<uint32_t>& bad_blocks() const { return bad_; }
  // Physical index of the good block that `index` good blocks precede.
  uint32_t physical(uint32_t index) const { return good_.at(index); }

  // Good blocks that hold `bytes` bytes.
  uint32_t blocks_for(uint64_t bytes) const;
  // Reads the first `len` bytes of a good block; false when the flash does not yield them.
  bool read_good(uint32_t index, uint8_t* buffer, size_t len) const;

 private:
  void read_geometry();
  void read_bad_blocks();

  std::string name_;
  std::string node_;
  Descriptor fd_;
  uint32_t block_size_ = 0;
  uint32_t page_size_ = 0;
  uint32_t blocks_ = 0;
  std::vector<uint32_t> good_;
  std::vector<uint32_t> bad_;
};

}  // namespace zozale::tool

#endif
