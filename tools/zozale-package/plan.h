// SPDX-License-Identifier: Apache-2.0
//
// What a package is to be made of.
#ifndef ZOZALE_PACKAGE_PLAN_H
#define ZOZALE_PACKAGE_PLAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zozale {

// Erase block of the NAND most devices carry: 64 pages of 2 KiB.
constexpr uint32_t kDefaultEraseBlock = 128 * 1024;

struct PlannedFile {
  std::string name;  // in the package
  std::string path;  // of the file with its bytes
};

struct PackagePlan {
  int32_t upgrade_type = 0;
  int32_t package_version = 0;
  int32_t package_type = 0;
  int32_t plat = 0;
  std::string version_src;
  std::string version_dst;
  uint32_t erase_block = kDefaultEraseBlock;  // bytes; images are padded within their last one
  std::optional<int32_t> block_size;          // the head's; the erase block when not given
  bool allow_zero_bytes = false;              // do not pad for the digests' sake
  std::string table_path;                     // partition table file; empty: none
  std::vector<PlannedFile> partitions;
  std::vector<PlannedFile> extras;
};

}  // namespace zozale

#endif
