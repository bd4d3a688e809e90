// SPDX-License-Identifier: Apache-2.0
//
// What the name of a partition must be for a device to find it, and nothing else, in both systems.
#ifndef ZOZALE_TOOLS_COMMON_PARTITION_NAME_H
#define ZOZALE_TOOLS_COMMON_PARTITION_NAME_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/finding.h"

namespace zozale {

// A device forms the name of system B's partition, the table name and a 2, in 30 characters.
constexpr size_t kMaxPartitionName = 29;
// A record's name field holds 31 characters and the terminator.
constexpr size_t kMaxFieldName = 31;

// What is wrong with `name` as a partition table name and what to do, or nothing.
std::optional<std::string> partition_name_fault(std::string_view name);

// The same for the name of an extra file. A device forms no other name from it, so it may have as
// many characters as the field holds, and blanks.
std::optional<std::string> extra_name_fault(std::string_view name);

struct NamedField {
  std::string field;  // where the name stands, as a finding names it
  std::string name;
};

// An error for each name that stands twice. Empty names are passed over.
Findings find_repeated_names(const std::vector<NamedField>& names);

// An error for each name that is another one with a 2 behind it: it is system A's partition of one
// entry and system B's of the other.
Findings find_twin_names(const std::vector<NamedField>& names);

}  // namespace zozale

#endif
