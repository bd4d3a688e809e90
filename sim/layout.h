// SPDX-License-Identifier: Apache-2.0
//
// What a simulated device is made of: chip geometry, partitions, partition table file, kernel
// command line.
#ifndef SIM_LAYOUT_H
#define SIM_LAYOUT_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sim/nand.h"

namespace sim {

// The two systems of a device. People name them A and B.
enum class System : std::uint8_t { a, b };

constexpr System other(System system) {
  return system == System::a ? System::b : System::a;
}
constexpr char letter(System system) {
  return system == System::a ? 'A' : 'B';
}

struct PartitionLayout {
  std::string name;                // as in "/proc/mtd"
  std::uint32_t blocks = 0;        // erase blocks; 0 is possible
  std::vector<std::uint32_t> bad;  // factory-bad blocks, counted from the partition's start
};

// An entry of the partition table file.
struct TableEntry {
  std::string name;        // system A's partition
  int system_type = 0;     // passed through
  int partition_type = 0;  // 0 raw MTD, 1 ZFTL, 2 MTD block device
};

struct Layout {
  Geometry geometry;  // `blocks` is worked out from the partitions
  // On the chip in this order, without a gap; the first is mtd0.
  std::vector<PartitionLayout> partitions;
  std::vector<TableEntry> platform;  // the partition table file's two lists
  std::vector<TableEntry> oem;
  int plat = 0;                // the partition table file's platform number
  System running = System::a;  // the system that runs when the device is new
  std::string cmdline = "console=ttyS0,115200 {system} rootwait";  // "{system}" is replaced
  int boot_attempts = 3;  // starts that the boot loader gives a system that is only bootable
};

// Reads a layout file (its keys: docs/simulator.md). Throws std::runtime_error with a message that
// names file, field, value found and what was expected.
Layout read_layout(const std::filesystem::path& file);

// Throws std::runtime_error naming the field when a layout cannot be a device.
void check_layout(const Layout& layout);

// The texts of "/proc/mtd", "/proc/cmdline" and "/etc_ro/systemPartitionInfo.conf".
std::string mtd_text(const Layout& layout);
std::string cmdline_text(const Layout& layout, System running);
std::string table_text(const Layout& layout);

// A device for tests: partitions flags, kernel, kernel2, rootfs, rootfs2, oemdata, oemdata2, in
// the table kernel and rootfs (platform) and oemdata (OEM). Each of `blocks` blocks, flags of 10.
Layout test_layout(std::uint32_t page_size = 512, std::uint32_t pages_per_block = 4,
                   std::uint32_t blocks = 8);

}  // namespace sim

#endif
