// SPDX-License-Identifier: Apache-2.0
//
// What a device takes, as far as making and checking a package share it.
#ifndef ZOZALE_PACKAGE_RULES_H
#define ZOZALE_PACKAGE_RULES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/finding.h"
#include "common/partition_name.h"
#include "common/partition_table.h"
#include "common/sha512.h"

namespace zozale {

// A length and a position within the file are signed 32-bit numbers on a device.
constexpr uint64_t kMaxImageSize = 0x7FFFFFFF;
// No byte of an entry lies at or behind this position.
constexpr uint64_t kMaxRangeEnd = 0x80000000;

// "0 (system)", "1 (platform)", "2 (oem)", or the bare number.
std::string upgrade_type_text(int32_t upgrade_type);

// An error unless the type is 0, 1 or 2.
Findings check_upgrade_type(const std::string& field, int32_t upgrade_type);

// The names of a package's partitions, in order, against a device's table: what a device compares
// when it loads a package that has any. Unknown types are passed over.
Findings match_table(int32_t upgrade_type, const std::vector<NamedField>& names,
                     const PartitionTable& table);

// The findings about a partition table file, each with the file's path before its field.
Findings table_findings(const std::string& path, const Findings& findings);

// The warning that a package without partitions deserves.
void warn_of_no_partitions(Findings& findings);

// "a device compares only the first 7 of 64 bytes".
std::string compared_text(const Digest& digest);

}  // namespace zozale

#endif
