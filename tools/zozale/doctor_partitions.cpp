// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "common/text.h"
#include "upi_public.h"
#include "zozale/doctor.h"
#include "zozale/table_file.h"

namespace zozale::tool {
namespace {

std::string description_of(const MtdEntry& entry, const Flash& flash) {
  const std::string bad =
      flash.bad_blocks().empty() ? "none bad" : "bad: " + listed(flash.bad_blocks());
  return printable(entry.name) + " (mtd" + std::to_string(entry.number) +
         "): " + counted(flash.blocks(), "block") + " of " + short_size(flash.block_size()) + ", " +
         bad;
}

Json to_json(const MtdEntry& entry, const Flash& flash) {
  return {{"mtd", entry.name},
          {"number", entry.number},
          {"present", true},
          {"block_bytes", flash.block_size()},
          {"page_bytes", flash.page_size()},
          {"blocks", flash.blocks()},
          {"good_blocks", flash.good_blocks()},
          {"bad_blocks", flash.bad_blocks()}};
}

// One partition of one system; nothing when it is missing or cannot be opened.
std::optional<Flash> examine_one(Examination& examination, const MtdTable& table,
                                 const std::string& name) {
  Json& partitions = examination.data()["partitions"];
  try {
    const MtdEntry& entry = table.require(name);
    Flash flash(entry);
    partitions.push_back(to_json(entry, flash));
    examination.ok(description_of(entry, flash));
    return flash;
  } catch (const Error& error) {
    partitions.push_back({{"mtd", name}, {"present", table.find(name) != nullptr}});
    examination.error(error);
    return std::nullopt;
  }
}

void compare_pair(Examination& examination, const Flash& a, const Flash& b) {
  if (a.block_size() != b.block_size()) {
    examination.error(printable(a.name()) + " and " + printable(b.name()) +
                          " have erase blocks of different sizes",
                      "lay both systems out on flash of one kind: a synchronisation copies block "
                      "by block");
  } else if (a.good_blocks() != b.good_blocks()) {
    examination.note(printable(a.name()) + " has " + counted(a.good_blocks(), "good block") + ", " +
                         printable(b.name()) + " " + std::to_string(b.good_blocks()),
                     "images must fit into the smaller one");
  }
}

void examine_entry(Examination& examination, const MtdTable& flash, const TableEntry& entry) {
  const auto a = examine_one(examination, flash, mtd_name(entry.name, System::kA));
  const auto b = examine_one(examination, flash, mtd_name(entry.name, System::kB));
  if (a && b) {
    compare_pair(examination, *a, *b);
  }
}

void tell_findings(Examination& examination, const Findings& findings) {
  for (const Finding& finding : findings) {
    const std::string text =
        "partition table file, " + finding.field + " " + finding.value + ": " + finding.text;
    if (finding.severity == Severity::kError) {
      examination.error(text, "correct " SYSTEM_PARTITION_TABLE_PATH);
    } else {
      examination.warn(text, "correct " SYSTEM_PARTITION_TABLE_PATH " if this is not meant so");
    }
  }
}

void examine_entries(Examination& examination, const MtdTable& flash, const TableReading& reading) {
  for (const auto* list : {&reading.table->platform, &reading.table->oem}) {
    for (const TableEntry& entry : *list) {
      examine_entry(examination, flash, entry);
    }
  }
  if (reading.table->platform.empty() && reading.table->oem.empty()) {
    examination.warn("the partition table file lists no partition",
                     "add the partitions of a system to " SYSTEM_PARTITION_TABLE_PATH);
  }
}

// The library only ever finds the first of them.
void examine_repeated_names(Examination& examination, const MtdTable& flash) {
  for (const MtdEntry& entry : flash.entries()) {
    const MtdEntry* first = flash.find(entry.name);
    if (first->number != entry.number) {
      examination.warn("mtd" + std::to_string(entry.number) + " has the name " +
                           in_quotes(entry.name) + " of mtd" + std::to_string(first->number) +
                           ", which hides it",
                       "give every partition a name of its own");
    }
  }
}

}  // namespace

void examine_partitions(Examination& examination, const MtdTable& flash) {
  examination.enter("partitions");
  examination.data()["partitions"] = Json::array();
  examine_repeated_names(examination, flash);
  try {
    const TableReading reading = require_table();
    tell_findings(examination, reading.findings);
    examine_entries(examination, flash, reading);
  } catch (const Error& error) {
    examination.error(error);
  }
}

}  // namespace zozale::tool
