// SPDX-License-Identifier: Apache-2.0
#include "zozale/plan.h"

#include <algorithm>

#include "common/text.h"
#include "upi_public.h"
#include "zozale/content.h"

namespace zozale::tool {
namespace {

PlanItem item_for(const std::string& name, const Flash& target) {
  PlanItem item;
  item.name = name;
  item.mtd = target.name();
  item.node = FileIdentity::of(target.node());
  item.blocks = target.blocks();
  item.good_blocks = target.good_blocks();
  item.bad_blocks = target.bad_blocks();
  return item;
}

PlanItem plan_image(const PackageEntry& entry, const Flash& target, Compare compare) {
  PlanItem item = item_for(entry.name, target);
  item.bytes = static_cast<uint64_t>(entry.len);
  item.needed_blocks = target.blocks_for(item.bytes);
  if (compare == Compare::kYes) {
    const std::optional<Digest> digest = image_digest(target, item.bytes);
    item.up_to_date = digest && equal_for_library(*digest, entry.hash);
  }
  return item;
}

Content require_content(const Flash& source) {
  if (auto content = read_content(source, true)) {
    return *content;
  }
  throw Failure(kExitFailed,
                {"the source partition " + source.name() + " cannot be read",
                 "every good block up to the first erased one readable", "a read that failed",
                 "check the kernel's log for the flash driver's messages"});
}

void require_equal_geometry(const Flash& source, const Flash& target) {
  if (source.block_size() != target.block_size()) {
    throw Failure(kExitDeviceUnfit,
                  {"the partitions " + source.name() + " and " + target.name() +
                       " have erase blocks of different sizes",
                   human_size(source.block_size()) + " in both",
                   human_size(target.block_size()) + " in " + target.name(),
                   "a synchronisation copies block by block: lay both systems out on flash of one "
                   "kind"});
  }
}

void require_raw_mtd(const TableEntry& entry) {
  if (entry.partition_type != 0) {
    throw Failure(kExitDeviceUnfit,
                  {"the partition " + printable(entry.name) + " cannot be synchronised",
                   "partition_type=0, raw MTD, in " SYSTEM_PARTITION_TABLE_PATH,
                   "partition_type=" + std::to_string(entry.partition_type),
                   "remove the entry from the table, or make it a raw MTD partition"});
  }
}

PlanItem plan_copy(const TableEntry& entry, System target_system, const MtdTable& flash,
                   Compare compare) {
  require_raw_mtd(entry);
  const Flash target(flash.require(mtd_name(entry.name, target_system)));
  const Flash source(flash.require(mtd_name(entry.name, other(target_system))));
  require_equal_geometry(source, target);
  const Content content = require_content(source);
  PlanItem item = item_for(entry.name, target);
  item.bytes = uint64_t{content.blocks} * source.block_size();
  item.needed_blocks = content.blocks;
  item.source = FileIdentity::of(source.node());
  item.hidden_block = content.hidden_block;
  if (compare == Compare::kYes) {
    const std::optional<Content> held = read_content(target, false);
    item.up_to_date = held && equal_for_library(held->digest, content.digest);
  }
  return item;
}

std::string lack_of(const PlanItem& item) {
  return printable(item.name) + " needs " + counted(item.needed_blocks, "block") + ", " +
         printable(item.mtd) + " has " + std::to_string(item.good_blocks) + " good of " +
         std::to_string(item.blocks);
}

Failure flags_failure() {
  return {kExitDeviceUnfit,
          {"the partition flags would be overwritten",
           "the partitions of a system; flags belongs to neither",
           "flags among the partitions to write",
           "remove flags from " SYSTEM_PARTITION_TABLE_PATH " and from the package"}};
}

Failure twin_failure(const PlanItem& item, const TableEntry& entry, System running) {
  return {
      kExitDeviceUnfit,
      {"the partition " + printable(item.mtd) + " belongs to " + in_words(running) + ", which runs",
       "a partition of " + in_words(other(running)) + " only",
       "it is the entry " + printable(entry.name) + " of " + in_words(running) + " and the entry " +
           printable(item.name) + " of " + in_words(other(running)),
       "rename one of the two in " SYSTEM_PARTITION_TABLE_PATH " and in the kernel's list"}};
}

}  // namespace

uint64_t Plan::bytes() const {
  uint64_t sum = 0;
  for (const PlanItem& item : items) {
    sum += item.bytes;
  }
  return sum;
}

bool Plan::all_up_to_date() const {
  return std::all_of(items.begin(), items.end(),
                     [](const PlanItem& item) { return item.up_to_date.value_or(false); });
}

Plan plan_install(const PackageView& package, System target, const MtdTable& flash,
                  Compare compare) {
  Plan plan;
  plan.target = target;
  for (const PackageEntry& entry : package.partitions) {
    const Flash partition(flash.require(mtd_name(entry.name, target)));
    plan.items.push_back(plan_image(entry, partition, compare));
  }
  return plan;
}

Plan plan_sync(const PartitionTable& table, System target, const MtdTable& flash, Compare compare) {
  Plan plan;
  plan.target = target;
  for (const auto* list : {&table.platform, &table.oem}) {
    for (const TableEntry& entry : *list) {
      plan.items.push_back(plan_copy(entry, target, flash, compare));
    }
  }
  return plan;
}

void require_room(const Plan& plan) {
  std::string lacks;
  for (const PlanItem& item : plan.items) {
    if (!item.fits()) {
      lacks += (lacks.empty() ? "" : "; ") + lack_of(item);
    }
  }
  if (!lacks.empty()) {
    throw Failure(kExitDeviceUnfit,
                  {"too few good blocks in " + in_words(plan.target) + ": " + lacks,
                   "at least as many good blocks as are needed", "fewer; nothing was erased",
                   "use a smaller image, or a device with fewer bad blocks"});
  }
}

std::vector<std::string> sync_warnings(const Plan& plan) {
  std::vector<std::string> warnings;
  for (const PlanItem& item : plan.items) {
    if (item.hidden_block) {
      warnings.push_back("the source of " + printable(item.mtd) + " holds data in block " +
                         std::to_string(*item.hidden_block) +
                         ", behind its first erased block: it is neither compared nor copied");
    }
    if (item.needed_blocks == 0 && !item.up_to_date.value_or(false)) {
      warnings.push_back("the source of " + printable(item.mtd) +
                         " holds nothing before its first erased block: what " +
                         printable(item.mtd) + " holds will be erased");
    }
  }
  return warnings;
}

void require_harmless(const Plan& plan, const PartitionTable& table) {
  std::vector<TableEntry> entries = table.platform;
  entries.insert(entries.end(), table.oem.begin(), table.oem.end());
  for (const PlanItem& item : plan.items) {
    if (item.mtd == "flags") {
      throw flags_failure();
    }
    for (const TableEntry& entry : entries) {
      if (mtd_name(entry.name, other(plan.target)) == item.mtd) {
        throw twin_failure(item, entry, other(plan.target));
      }
    }
  }
}

}  // namespace zozale::tool
