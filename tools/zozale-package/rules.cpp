// SPDX-License-Identifier: Apache-2.0
#include "rules.h"

#include <algorithm>

#include "common/text.h"
#include "package_view.h"

namespace zozale {
namespace {

std::string list_of(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) {
    list += (list.empty() ? "" : ", ") + printable(name);
  }
  return list.empty() ? "none" : list;
}

std::vector<std::string> names_of(const std::vector<TableEntry>& entries) {
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (const TableEntry& entry : entries) {
    names.push_back(entry.name);
  }
  return names;
}

std::vector<std::string> all_names(const PartitionTable& table) {
  std::vector<std::string> names = names_of(table.platform);
  const std::vector<std::string> oem = names_of(table.oem);
  names.insert(names.end(), oem.begin(), oem.end());
  return names;
}

Findings match_in_order(const std::vector<NamedField>& names,
                        const std::vector<std::string>& table) {
  const std::string rule =
      "; type 0 (system) carries exactly the table's partitions, in its order: " + list_of(table);
  Findings findings;
  if (names.size() != table.size()) {
    add_error(findings, "partitions", std::to_string(names.size()),
              "the table has " + std::to_string(table.size()) + rule);
    return findings;
  }
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i].name != table[i]) {
      add_error(findings, names[i].field, in_quotes(names[i].name),
                "the table has " + in_quotes(table[i]) + " here" + rule);
    }
  }
  return findings;
}

Findings match_any(const char* list, const std::vector<NamedField>& names,
                   const std::vector<std::string>& table) {
  Findings findings;
  for (const NamedField& name : names) {
    if (std::find(table.begin(), table.end(), name.name) == table.end()) {
      add_error(findings, name.field, in_quotes(name.name),
                std::string("it is none of the table's ") + list +
                    " partitions, and a device refuses the package; they are: " + list_of(table));
    }
  }
  return findings;
}

}  // namespace

std::string upgrade_type_text(int32_t upgrade_type) {
  switch (upgrade_type) {
    case kTypeSystem:
      return "0 (system)";
    case kTypePlatform:
      return "1 (platform)";
    case kTypeOem:
      return "2 (oem)";
    default:
      return std::to_string(upgrade_type);
  }
}

Findings check_upgrade_type(const std::string& field, int32_t upgrade_type) {
  Findings findings;
  if (upgrade_type < kTypeSystem || upgrade_type > kTypeOem) {
    add_error(findings, field, std::to_string(upgrade_type),
              "0 (system), 1 (platform) and 2 (oem) are allowed; a device refuses the package");
  }
  return findings;
}

Findings match_table(int32_t upgrade_type, const std::vector<NamedField>& names,
                     const PartitionTable& table) {
  switch (upgrade_type) {
    case kTypeSystem:
      return match_in_order(names, all_names(table));
    case kTypePlatform:
      return match_any("platform", names, names_of(table.platform));
    case kTypeOem:
      return match_any("oem", names, names_of(table.oem));
    default:
      return {};
  }
}

Findings table_findings(const std::string& path, const Findings& findings) {
  Findings result = findings;
  for (Finding& finding : result) {
    finding.field = in_quotes(path) + ": " + finding.field;
  }
  return result;
}

void warn_of_no_partitions(Findings& findings) {
  add_warning(findings, "partitions", "0",
              "an upgrade with this package writes nothing and yet marks the other system "
              "bootable, whatever it holds");
}

std::string compared_text(const Digest& digest) {
  return "a device compares only the first " + std::to_string(compared_bytes(digest)) + " of " +
         std::to_string(digest.size()) + " bytes";
}

}  // namespace zozale
