// SPDX-License-Identifier: Apache-2.0
//
// The state of a device that its processes share, as it lies in "state.bin".
#ifndef SIM_DEVICE_STATE_H
#define SIM_DEVICE_STATE_H

#include <array>
#include <cstdint>

#include "sim/device.h"
#include "sim/fault_memory.h"

namespace sim {

constexpr std::uint32_t kStateMagic = 0x5A53494D;
constexpr std::uint32_t kStateVersion = 1;
constexpr std::size_t kMaxPartitions = 64;
constexpr std::size_t kMaxTableEntries = 32;
constexpr std::size_t kNameSize = 64;
constexpr std::size_t kCmdlineSize = 1024;

using Counters = std::array<std::uint64_t, kOpCount>;

struct PartitionState {
  char name[kNameSize];
  std::uint32_t first_block;  // on the chip
  std::uint32_t blocks;
  std::uint8_t lifted;   // write protection is lifted
  std::uint8_t reports;  // MEMGETINFO tells `reported`
  std::uint16_t reserved;
  MtdInfo reported;
  Counters counts;
};

struct EntryState {
  char name[kNameSize];
  std::int32_t system_type;
  std::int32_t partition_type;
};

struct LayoutState {
  std::uint32_t page_size;
  std::uint32_t pages_per_block;
  std::uint32_t oob_size;
  std::uint32_t partitions;
  std::uint32_t platform_entries;
  std::uint32_t oem_entries;
  std::int32_t plat;
  std::int32_t boot_attempts;
  std::uint32_t running;  // when new
  char cmdline[kCmdlineSize];
  std::array<EntryState, kMaxTableEntries> platform;
  std::array<EntryState, kMaxTableEntries> oem;
};

struct Device::State {
  std::uint32_t magic;
  std::uint32_t version;
  LayoutState layout;
  std::uint32_t power;
  std::uint32_t running;
  Counters counts;  // of what is not on one partition
  std::array<PartitionState, kMaxPartitions> partitions;
  Faults::Memory faults;
};

// A layout as shared state, and back. The factory-bad blocks are the chip's to know.
LayoutState pack_layout(const Layout& layout);
Layout unpack_layout(const Device::State& state);

}  // namespace sim

#endif
