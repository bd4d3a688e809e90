// SPDX-License-Identifier: Apache-2.0
#include "common/partition_name.h"

#include <algorithm>

#include "common/text.h"

namespace zozale {
namespace {

std::string length_fault(size_t found, size_t allowed, const std::string& reason) {
  return "the name has " + std::to_string(found) + " characters, at most " +
         std::to_string(allowed) + " are allowed: " + reason + "; use a shorter name";
}

// What is wrong with the first character below `lowest`, above '~', or equal to `refused`.
std::optional<std::string> character_fault(std::string_view name, char lowest, char refused,
                                           const std::string& reason) {
  const auto* bad = std::find_if(name.begin(), name.end(), [lowest, refused](char c) {
    return c < lowest || c > '~' || c == refused;
  });
  if (bad == name.end()) {
    return std::nullopt;
  }
  return "the name holds the character " + in_quotes({bad, 1}) + " at position " +
         std::to_string(bad - name.begin() + 1) + ": " + reason;
}

}  // namespace

std::optional<std::string> partition_name_fault(std::string_view name) {
  if (name.empty()) {
    return "the name is empty; name the partition as the partition table file does";
  }
  if (name.size() > kMaxPartitionName) {
    return length_fault(name.size(), kMaxPartitionName,
                        "a device cuts system B's name, this one and a 2, to 30 characters; "
                        "without its 2 it names the RUNNING system's partition, which would be "
                        "erased");
  }
  return character_fault(name, '!', '"',
                         "a partition table file or the kernel's MTD table cannot hold it; use "
                         "printable ASCII without white space and quotes");
}

std::optional<std::string> extra_name_fault(std::string_view name) {
  if (name.empty()) {
    return "the name is empty; a device looks extra files up by name";
  }
  if (name.size() > kMaxFieldName) {
    return length_fault(name.size(), kMaxFieldName, "the field holds no more and a terminator");
  }
  return character_fault(name, ' ', '\0', "use printable ASCII");
}

Findings find_repeated_names(const std::vector<NamedField>& names) {
  Findings findings;
  for (auto later = names.begin(); later != names.end(); ++later) {
    const auto first = std::find_if(names.begin(), later, [later](const NamedField& other) {
      return other.name == later->name;
    });
    if (first != later && !later->name.empty()) {
      add_error(findings, later->field, in_quotes(later->name),
                first->field +
                    " has the same name: a device looks entries up by name and always "
                    "finds the first; remove or rename one");
    }
  }
  return findings;
}

Findings find_twin_names(const std::vector<NamedField>& names) {
  Findings findings;
  for (const NamedField& twin : names) {
    const auto base = std::find_if(names.begin(), names.end(), [&twin](const NamedField& other) {
      return !other.name.empty() && twin.name == other.name + "2";
    });
    if (base != names.end()) {
      add_error(findings, twin.field, in_quotes(twin.name),
                "this is also system B's partition of " + in_quotes(base->name) + " (" +
                    base->field +
                    "): while system B runs, its own partition would be erased; rename one");
    }
  }
  return findings;
}

}  // namespace zozale
