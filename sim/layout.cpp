// SPDX-License-Identifier: Apache-2.0
#include "sim/layout.h"

#include <cstdio>
#include <stdexcept>

namespace sim {
namespace {

constexpr std::size_t kMaxPartitions = 64;
constexpr std::size_t kMaxNameLength = 63;
constexpr std::size_t kMaxTableEntries = 32;
constexpr std::size_t kMaxCmdline = 1000;
constexpr std::uint64_t kMaxPartitionSize = 0xFFFFFFFF;  // MEMGETINFO tells it in 32 bits
constexpr std::string_view kSystemMark = "{system}";

[[noreturn]] void refuse(const std::string& field, const std::string& found,
                         const std::string& expected) {
  throw std::runtime_error(field + ": found " + found + ", expected " + expected);
}

bool power_of_two(std::uint32_t value) {
  return value != 0 && (value & (value - 1)) == 0;
}

void check_geometry(const Geometry& geometry) {
  if (!power_of_two(geometry.page_size) || geometry.page_size > (1U << 16U)) {
    refuse("geometry.page_size", std::to_string(geometry.page_size), "a power of two up to 65536");
  }
  if (!power_of_two(geometry.pages_per_block) || geometry.pages_per_block > (1U << 12U)) {
    refuse("geometry.pages_per_block", std::to_string(geometry.pages_per_block),
           "a power of two up to 4096");
  }
}

void check_partition(const PartitionLayout& partition, const Geometry& geometry) {
  const std::string field = "partition \"" + partition.name + "\"";
  if (partition.name.empty() || partition.name.size() > kMaxNameLength ||
      partition.name.find_first_of("\"\n") != std::string::npos) {
    refuse("partition.name", "\"" + partition.name + "\"",
           "1 to 63 characters, no quote and no line feed");
  }
  const std::uint64_t size = std::uint64_t{partition.blocks} * geometry.block_size();
  if (size > kMaxPartitionSize) {
    refuse(field + ".blocks", std::to_string(partition.blocks), "less than 4 GiB in all");
  }
  for (const std::uint32_t block : partition.bad) {
    if (block >= partition.blocks) {
      refuse(field + ".bad", std::to_string(block),
             "a block below " + std::to_string(partition.blocks));
    }
  }
}

void check_table(const std::vector<TableEntry>& entries, const std::string& field) {
  if (entries.size() > kMaxTableEntries) {
    refuse(field, std::to_string(entries.size()) + " entries", "at most 32");
  }
  for (const TableEntry& entry : entries) {
    if (entry.name.empty() || entry.name.size() > kMaxNameLength) {
      refuse(field + ".name", "\"" + entry.name + "\"", "1 to 63 characters");
    }
  }
}

std::string hex8(std::uint64_t value) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(value));
  return text;
}

std::string entries_text(const std::vector<TableEntry>& entries) {
  std::string text;
  for (const TableEntry& entry : entries) {
    text += "name=" + entry.name + "\nsystem_type=" + std::to_string(entry.system_type) +
            "\npartition_type=" + std::to_string(entry.partition_type) + "\n";
  }
  return text;
}

}  // namespace

void check_layout(const Layout& layout) {
  check_geometry(layout.geometry);
  if (layout.partitions.empty() || layout.partitions.size() > kMaxPartitions) {
    refuse("partition", std::to_string(layout.partitions.size()) + " of them", "1 to 64");
  }
  for (const PartitionLayout& partition : layout.partitions) {
    check_partition(partition, layout.geometry);
  }
  check_table(layout.platform, "table.platform");
  check_table(layout.oem, "table.oem");
  if (layout.cmdline.size() > kMaxCmdline) {
    refuse("cmdline", std::to_string(layout.cmdline.size()) + " characters", "at most 1000");
  }
  if (layout.boot_attempts < 1) {
    refuse("boot_attempts", std::to_string(layout.boot_attempts), "1 or more");
  }
}

std::string mtd_text(const Layout& layout) {
  std::string text = "dev:    size   erasesize  name\n";
  std::size_t number = 0;
  for (const PartitionLayout& partition : layout.partitions) {
    const std::uint64_t size = std::uint64_t{partition.blocks} * layout.geometry.block_size();
    text += "mtd" + std::to_string(number++) + ": " + hex8(size) + " " +
            hex8(layout.geometry.block_size()) + " \"" + partition.name + "\"\n";
  }
  return text;
}

std::string cmdline_text(const Layout& layout, System running) {
  std::string text = layout.cmdline;
  const std::size_t at = text.find(kSystemMark);
  if (at != std::string::npos) {
    text.replace(at, kSystemMark.size(),
                 running == System::a ? "system=system_a" : "system=system_b");
  }
  return text + "\n";
}

std::string table_text(const Layout& layout) {
  return "[Head]\nmagic=SUPI\nplat=" + std::to_string(layout.plat) +
         "\nplat_partition_num=" + std::to_string(layout.platform.size()) +
         "\noem_partition_num=" + std::to_string(layout.oem.size()) +
         "\n[Platform_Partition_Info]\n" + entries_text(layout.platform) +
         "[Oem_Partition_Info]\n" + entries_text(layout.oem);
}

Layout test_layout(std::uint32_t page_size, std::uint32_t pages_per_block, std::uint32_t blocks) {
  Layout layout;
  layout.geometry.page_size = page_size;
  layout.geometry.pages_per_block = pages_per_block;
  layout.geometry.oob_size = page_size / 32;
  layout.partitions = {{"flags", 10, {}},       {"kernel", blocks, {}},  {"kernel2", blocks, {}},
                       {"rootfs", blocks, {}},  {"rootfs2", blocks, {}}, {"oemdata", blocks, {}},
                       {"oemdata2", blocks, {}}};
  layout.platform = {{"kernel"}, {"rootfs"}};
  layout.oem = {{"oemdata"}};
  return layout;
}

}  // namespace sim
