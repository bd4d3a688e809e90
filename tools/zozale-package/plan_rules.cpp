// SPDX-License-Identifier: Apache-2.0
#include "plan_rules.h"

#include <algorithm>

#include "common/partition_name.h"
#include "common/partition_table.h"
#include "common/text.h"
#include "package_view.h"
#include "rules.h"

namespace zozale {
namespace {

std::string field_of(const char* table, size_t index, const char* member) {
  return std::string(table) + "[" + std::to_string(index) + "]." + member;
}

std::vector<NamedField> names_of(const char* table, const std::vector<PlannedFile>& files) {
  std::vector<NamedField> names;
  names.reserve(files.size());
  for (const PlannedFile& file : files) {
    names.push_back({field_of(table, names.size(), "name"), file.name});
  }
  return names;
}

Findings check_count(const char* field, size_t count) {
  Findings findings;
  if (count > static_cast<size_t>(kMaxPackageEntries)) {
    add_error(findings, field, std::to_string(count),
              "at most " + std::to_string(kMaxPackageEntries) +
                  " are allowed: a device refuses more; leave some out");
  }
  return findings;
}

Findings check_counts(const PackagePlan& plan) {
  Findings findings = check_count("partitions", plan.partitions.size());
  append(findings, check_count("extras", plan.extras.size()));
  if (plan.partitions.empty() && plan.extras.empty()) {
    add_error(findings, "payload", "none",
              "a device hashes an empty payload past the end of the file for ever; give at least "
              "one partition image or extra file");
  } else if (plan.partitions.empty()) {
    warn_of_no_partitions(findings);
  }
  return findings;
}

using NameFault = std::optional<std::string> (*)(std::string_view);

Findings check_each_name(const std::vector<NamedField>& names,
                         const std::vector<PlannedFile>& files, NameFault fault_of) {
  Findings findings;
  for (size_t i = 0; i < names.size(); ++i) {
    if (const auto fault = fault_of(names[i].name)) {
      add_error(findings, names[i].field, in_quotes(names[i].name),
                *fault + " (file " + in_quotes(files[i].path) + ")");
    }
  }
  return findings;
}

Findings check_names(const PackagePlan& plan) {
  const std::vector<NamedField> partitions = names_of("partition", plan.partitions);
  const std::vector<NamedField> extras = names_of("extra", plan.extras);
  Findings findings = check_each_name(partitions, plan.partitions, partition_name_fault);
  append(findings, check_each_name(extras, plan.extras, extra_name_fault));
  append(findings, find_repeated_names(partitions));
  append(findings, find_repeated_names(extras));
  append(findings, find_twin_names(partitions));
  return findings;
}

Findings check_version(const char* field, const std::string& version) {
  constexpr size_t kMaxVersion = sizeof(upgrade_package_head_info_t::version_dst) - 1;
  Findings findings;
  if (version.size() > kMaxVersion) {
    add_error(findings, field, in_quotes(version),
              "it has " + std::to_string(version.size()) + " bytes, at most " +
                  std::to_string(kMaxVersion) + " fit its field with a terminator");
  }
  const auto is_control = [](char c) { return static_cast<uint8_t>(c) < ' ' || c == '\x7f'; };
  if (std::any_of(version.begin(), version.end(), is_control)) {
    add_error(findings, field, in_quotes(version),
              "it holds a control character, which would end or break a device's log line");
  }
  return findings;
}

Findings check_head_values(const PackagePlan& plan) {
  Findings findings = check_upgrade_type("type", plan.upgrade_type);
  append(findings, check_version("version_src", plan.version_src));
  append(findings, check_version("version_dst", plan.version_dst));
  if (plan.erase_block == 0 || plan.erase_block > kMaxImageSize) {
    add_error(findings, "erase_block", std::to_string(plan.erase_block),
              "1 to 2147483647 bytes are allowed; give the size of the device's erase block");
  }
  return findings;
}

Findings check_table(const PackagePlan& plan) {
  Findings findings;
  if (plan.table_path.empty()) {
    if (!plan.partitions.empty()) {
      add_warning(findings, "table", "none given",
                  "names and order are not compared with a device's; give its partition table file "
                  "with --table");
    }
    return findings;
  }
  const TableReading reading = read_partition_table(plan.table_path);
  findings = table_findings(plan.table_path, reading.findings);
  if (reading.table && !plan.partitions.empty()) {
    append(findings,
           match_table(plan.upgrade_type, names_of("partition", plan.partitions), *reading.table));
  }
  return findings;
}

// The sizes of one table's files; `end` moves on to the end of the last one's bytes.
Findings check_sizes(const char* table, const std::vector<InputFile>& files, uint64_t& end) {
  Findings findings;
  for (size_t i = 0; i < files.size(); ++i) {
    const uint64_t size = files[i].size();
    const std::string file = in_quotes(files[i].path());
    if (size == 0) {
      add_error(findings, field_of(table, i, "len"), "0",
                file +
                    " is empty: a device hashes an entry without bytes past the end of the file "
                    "for ever; give a file that holds something");
    }
    if (size > kMaxImageSize) {
      add_error(findings, field_of(table, i, "len"), std::to_string(size),
                file + " is larger than 2147483647 bytes, the most that the field holds");
    }
    end += size;
  }
  return findings;
}

}  // namespace

Findings check_plan(const PackagePlan& plan) {
  Findings findings = check_counts(plan);
  append(findings, check_head_values(plan));
  append(findings, check_names(plan));
  append(findings, check_table(plan));
  return findings;
}

Findings check_plan_sizes(const PackagePlan& plan, const PlanFiles& files) {
  uint64_t end = kHeadSize + plan.partitions.size() * sizeof(partition_head_info_t) +
                 plan.extras.size() * sizeof(extra_head_info_t);
  Findings findings = check_sizes("partition", files.partitions, end);
  append(findings, check_sizes("extra", files.extras, end));
  if (end > kMaxRangeEnd) {
    add_error(findings, "package size", human_size(end),
              "the offsets of its entries would pass byte 2147483647, the last that a device "
              "reaches; split the package or make the images smaller");
  }
  return findings;
}

}  // namespace zozale
