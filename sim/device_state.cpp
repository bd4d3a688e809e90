// SPDX-License-Identifier: Apache-2.0
#include "sim/device_state.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace sim {
namespace {

template <std::size_t N>
void copy_text(char (&field)[N], const std::string& text) {
  const std::size_t length = std::min(text.size(), N - 1);
  std::memcpy(field, text.data(), length);
  field[length] = '\0';
}

std::uint32_t pack_entries(const std::vector<TableEntry>& entries,
                           std::array<EntryState, kMaxTableEntries>& out) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    copy_text(out.at(i).name, entries[i].name);
    out.at(i).system_type = entries[i].system_type;
    out.at(i).partition_type = entries[i].partition_type;
  }
  return static_cast<std::uint32_t>(entries.size());
}

std::vector<TableEntry> unpack_entries(const std::array<EntryState, kMaxTableEntries>& entries,
                                       std::uint32_t count) {
  std::vector<TableEntry> out;
  for (std::uint32_t i = 0; i < count; ++i) {
    const EntryState& entry = entries.at(i);
    out.push_back({entry.name, entry.system_type, entry.partition_type});
  }
  return out;
}

}  // namespace

LayoutState pack_layout(const Layout& layout) {
  LayoutState out{};
  out.page_size = layout.geometry.page_size;
  out.pages_per_block = layout.geometry.pages_per_block;
  out.oob_size = layout.geometry.oob_size;
  out.partitions = static_cast<std::uint32_t>(layout.partitions.size());
  out.platform_entries = pack_entries(layout.platform, out.platform);
  out.oem_entries = pack_entries(layout.oem, out.oem);
  out.plat = layout.plat;
  out.boot_attempts = layout.boot_attempts;
  out.running = static_cast<std::uint32_t>(layout.running);
  copy_text(out.cmdline, layout.cmdline);
  return out;
}

Layout unpack_layout(const Device::State& state) {
  const LayoutState& in = state.layout;
  Layout out;
  out.geometry.page_size = in.page_size;
  out.geometry.pages_per_block = in.pages_per_block;
  out.geometry.oob_size = in.oob_size;
  out.geometry.blocks = 0;
  for (std::uint32_t i = 0; i < in.partitions; ++i) {
    const PartitionState& partition = state.partitions.at(i);
    out.partitions.push_back({partition.name, partition.blocks, {}});
    out.geometry.blocks += partition.blocks;
  }
  out.platform = unpack_entries(in.platform, in.platform_entries);
  out.oem = unpack_entries(in.oem, in.oem_entries);
  out.plat = in.plat;
  out.boot_attempts = in.boot_attempts;
  out.running = static_cast<System>(in.running);
  out.cmdline = in.cmdline;
  return out;
}

static_assert(std::is_trivially_copyable_v<Device::State>);

}  // namespace sim
