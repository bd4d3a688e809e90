// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "sim/layout.h"
#include "sim/toml_reader.h"

namespace sim {
namespace {

constexpr std::int64_t kMostBlocks = 1 << 24;

void read_geometry(const TomlTable& table, Geometry& geometry) {
  table.allow({"page_size", "pages_per_block", "oob_size"});
  geometry.page_size =
      static_cast<std::uint32_t>(table.integer("page_size", 1, 65536, geometry.page_size));
  geometry.pages_per_block = static_cast<std::uint32_t>(
      table.integer("pages_per_block", 1, 4096, geometry.pages_per_block));
  geometry.oob_size =
      static_cast<std::uint32_t>(table.integer("oob_size", 0, 65536, geometry.oob_size));
}

PartitionLayout read_partition(const TomlTable& table) {
  table.allow({"name", "blocks", "bad"});
  PartitionLayout partition;
  partition.name = table.text("name");
  partition.blocks = static_cast<std::uint32_t>(table.integer("blocks", 0, kMostBlocks));
  for (const std::int64_t block :
       table.integers("bad", 0, std::max<std::int64_t>(partition.blocks, 1) - 1)) {
    partition.bad.push_back(static_cast<std::uint32_t>(block));
  }
  return partition;
}

TableEntry read_entry(const TomlTable& table) {
  table.allow({"name", "system_type", "partition_type"});
  TableEntry entry;
  entry.name = table.text("name");
  entry.system_type = static_cast<int>(table.integer("system_type", INT32_MIN, INT32_MAX, 0));
  entry.partition_type = static_cast<int>(table.integer("partition_type", INT32_MIN, INT32_MAX, 0));
  return entry;
}

// A name stands for an entry with both numbers 0.
std::vector<TableEntry> read_entries(const TomlTable& table, std::string_view key) {
  std::vector<TableEntry> entries;
  const toml::array* list = table.array(key);
  for (std::size_t i = 0; list != nullptr && i < list->size(); ++i) {
    const toml::node& node = *list->get(i);
    if (const auto name = node.value_exact<std::string>()) {
      entries.push_back({*name, 0, 0});
    } else if (const toml::table* entry = node.as_table()) {
      entries.push_back(
          read_entry({table.file(), table.full(key) + "[" + std::to_string(i) + "]", *entry}));
    } else {
      table.refuse(key, "names, or tables with a name");
    }
  }
  return entries;
}

System read_system(const TomlTable& root, System otherwise) {
  const std::string name = root.text("running", std::string(1, letter(otherwise)));
  if (name != "A" && name != "B") {
    root.refuse("running", "\"A\" or \"B\"");
  }
  return name == "A" ? System::a : System::b;
}

}  // namespace

Layout read_layout(const std::filesystem::path& file) {
  const TomlFile toml(file);
  const TomlTable root = toml.root();
  root.allow({"geometry", "partition", "table", "plat", "running", "cmdline", "boot_attempts"});
  Layout layout;
  read_geometry(root.table("geometry"), layout.geometry);
  for (const TomlTable& partition : root.tables("partition")) {
    layout.partitions.push_back(read_partition(partition));
  }
  const TomlTable table = root.table("table");
  table.allow({"platform", "oem"});
  layout.platform = read_entries(table, "platform");
  layout.oem = read_entries(table, "oem");
  layout.plat = static_cast<int>(root.integer("plat", INT32_MIN, INT32_MAX, layout.plat));
  layout.running = read_system(root, layout.running);
  layout.cmdline = root.text("cmdline", layout.cmdline);
  layout.boot_attempts =
      static_cast<int>(root.integer("boot_attempts", 1, INT32_MAX, layout.boot_attempts));
  try {
    check_layout(layout);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
  return layout;
}

}  // namespace sim
