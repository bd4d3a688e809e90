// SPDX-License-Identifier: Apache-2.0
//
// An upgrade package as it lies in a file: its head and tables, read but not judged.
#ifndef ZOZALE_PACKAGE_PACKAGE_VIEW_H
#define ZOZALE_PACKAGE_PACKAGE_VIEW_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/finding.h"
#include "common/sha512.h"
#include "upi_upgrade_package.h"

namespace zozale {

constexpr uint64_t kHeadSize = sizeof(upgrade_package_head_info_t);

// Values of the head's upgrade_type.
enum UpgradeType : int32_t { kTypeSystem = 0, kTypePlatform = 1, kTypeOem = 2 };

// An entry of the partition table or of the extra-file table.
struct PackageEntry {
  enum class Kind { kPartition, kExtra };

  Kind kind = Kind::kPartition;
  size_t index = 0;         // position in its table
  std::string name;         // up to its terminator, all 32 bytes when it has none
  bool terminated = false;  // whether the name has a terminator within its field
  int32_t len = 0;
  int32_t offset = 0;
  int32_t partition_type = 0;  // partitions only
  int32_t zipped = 0;          // partitions only
  Digest hash{};

  // "partition[2]", or with a member "partition[2].len".
  std::string field(const std::string& member = "") const;
  // Whether [offset, offset + len) is not empty and lies within a file of `file_size` bytes.
  bool is_within(uint64_t file_size) const;
  // First byte behind the entry's range, of which neither end may be negative.
  uint64_t end() const { return static_cast<uint64_t>(offset) + static_cast<uint64_t>(len); }
};

struct PackageView {
  uint64_t file_size = 0;
  upgrade_package_head_info_t head{};
  std::vector<PackageEntry> partitions;
  std::vector<PackageEntry> extras;

  Digest content_hash() const;
  // First byte behind the tables.
  uint64_t tables_end() const;
  // Partitions, then extra files.
  std::vector<PackageEntry> entries() const;
};

// The beginning of a package, in which its head and tables lie, read once and kept: what is hashed
// and what is looked at are the same bytes, whatever becomes of the file meanwhile.
class PackageStart : public ByteSource {
 public:
  // Throws Error when reading fails.
  explicit PackageStart(const ByteSource& package);

  // Of the whole package; only what is kept can be read.
  uint64_t size() const override { return size_; }
  void read_at(uint64_t offset, void* buffer, size_t len) const override;
  // The hash of all of the package: of these bytes, then of those behind them in `package`.
  Sha512 hash_with_rest_of(const ByteSource& package) const;

 private:
  uint64_t size_;
  std::vector<uint8_t> bytes_;
};

struct PackageReading {
  // Empty when the head or the tables cannot be read; an error then says why.
  std::optional<PackageView> package;
  Findings findings;
};

// Reads the head and the tables, at most 12,408 bytes. Throws Error when reading fails; whatever
// the bytes are, they lead to findings.
PackageReading read_package(const ByteSource& source);

}  // namespace zozale

#endif
