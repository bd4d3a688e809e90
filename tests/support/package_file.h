// SPDX-License-Identifier: Apache-2.0
//
// Upgrade packages as bytes, good ones and bad ones. Laid out here by the numbers of the file
// format, not by the library's records, so that a test of the loader also proves its layout.
#ifndef TESTS_SUPPORT_PACKAGE_FILE_H
#define TESTS_SUPPORT_PACKAGE_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/device.h"

namespace support {

constexpr std::string_view kPackagePath = "/cache/ovu_fota_ab/upgrade.package";
constexpr std::size_t kPackageHeadSize = 256;
constexpr std::size_t kPartitionEntrySize = 128;
constexpr std::size_t kExtraEntrySize = 120;
// Where the head and a partition entry keep their digest.
constexpr std::size_t kHeadHashOffset = 164;
constexpr std::size_t kPartitionHashOffset = 64;
constexpr std::size_t kExtraHashOffset = 48;

// 64 bytes.
sim::Bytes sha512(const sim::Bytes& data);
// The digest as the diagnostics show it: "%02x " for each byte.
std::string shown_digest(const sim::Bytes& digest);

// An entry of the partition table or of the extra-file table, and its payload. What is not set is
// what the payload says; an extra file has no partition_type and no zipped.
struct PackageEntry {
  std::string name;  // at most 32 bytes; of 32 it has no terminator
  sim::Bytes data = {};
  std::int32_t partition_type = 0;
  std::int32_t zipped = 0;
  std::optional<std::int32_t> len = std::nullopt;
  std::optional<std::int32_t> offset = std::nullopt;
  std::optional<sim::Bytes> hash = std::nullopt;  // 64 bytes
};

// A package. The payloads lie behind the tables, partitions first, in table order and without a
// gap; then `tail`.
struct PackageFile {
  std::string magic = "FOTA";  // 4 bytes
  std::int32_t version = 1;
  std::int32_t plat = 0;
  std::int32_t package_type = 0;
  std::int32_t upgrade_type = 0;
  std::optional<std::int32_t> partition_num = std::nullopt;  // not set: the entries there are
  std::optional<std::int32_t> extra_num = std::nullopt;
  std::int32_t hash_type = 0;
  std::int32_t block_size = 0;
  std::string version_src = "V1";  // at most 64 bytes; of 64 it has no terminator
  std::string version_dst = "V2";
  std::optional<sim::Bytes> hash = std::nullopt;  // 64 bytes; not set: the content's
  sim::Bytes reserve = sim::Bytes(28);

  std::vector<PackageEntry> partitions;
  std::vector<PackageEntry> extras;
  sim::Bytes tail;  // bytes that no entry names

  sim::Bytes bytes() const;
  // File offset of the first payload byte.
  std::size_t payload_offset() const;
};

// A package of the platform's and the OEM's partitions of sim::test_layout() in the table's order
// (upgrade_type 0), each image `len` bytes of its own pattern.
PackageFile system_package(std::size_t len = 1000);

// Puts the content digest right after bytes behind the head were changed.
void renew_content_digest(sim::Bytes& package);

// `data` with bytes appended until its digest holds a zero byte within its first `within` bytes.
sim::Bytes with_zero_in_digest(sim::Bytes data, std::size_t within = 60);
// `digest` with every byte behind its first zero byte changed.
sim::Bytes changed_behind_zero(sim::Bytes digest);

}  // namespace support

#endif
