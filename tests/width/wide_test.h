// SPDX-License-Identifier: Apache-2.0
//
// A device with partitions that end just below 4 GiB, the most that the kernel can report.
#ifndef TESTS_WIDTH_WIDE_TEST_H
#define TESTS_WIDTH_WIDE_TEST_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "sim/attach.h"
#include "tests/support/device_test.h"
#include "upi_mtd.h"

constexpr std::uint32_t kBlock = 0x400000;
constexpr std::uint32_t kBlocks = 1023;
constexpr std::uint32_t kTotal = 0xFFC00000;
// The first block at 2 GiB, and the last one before it.
constexpr std::uint32_t kHighBlock = 512;
constexpr std::uint32_t kLowBlock = kHighBlock - 1;
constexpr std::uint32_t kHigh = 0x80000000;
constexpr std::uint32_t kLow = kHigh - kBlock;
static_assert(kBlocks * std::uint64_t{kBlock} == kTotal);
static_assert(kHighBlock * std::uint64_t{kBlock} == kHigh);

// An address or a length as a 32-bit argument carries it.
constexpr int as_int(std::uint32_t value) {
  return static_cast<int>(value);
}

inline std::vector<std::uint32_t> blocks_up_to(std::uint32_t end) {
  std::vector<std::uint32_t> blocks(end);
  std::iota(blocks.begin(), blocks.end(), 0U);
  return blocks;
}

class WideTest : public support::DeviceTest {
 protected:
  // System A's kernel is wide; of the others, those that a test names. Factory-bad blocks of
  // kernel are given.
  void use_wide(const std::vector<std::uint32_t>& bad = {}, const std::string& also = {}) {
    sim::Layout layout = sim::test_layout(16384, 256, 4);
    layout.partitions.at(1).blocks = kBlocks;
    layout.partitions.at(1).bad = bad;
    for (sim::PartitionLayout& partition : layout.partitions) {
      partition.blocks = partition.name == also ? kBlocks : partition.blocks;
    }
    use(layout);
    partition("kernel").set_write_protected(false);
  }
};

// Lines of one function, or of every one but the two that tell of bad blocks.
inline std::vector<support::LogLine> lines_of(const std::vector<support::LogLine>& lines,
                                              const std::string& function) {
  std::vector<support::LogLine> found;
  for (const support::LogLine& line : lines) {
    if (line.function == function) {
      found.push_back(line);
    }
  }
  return found;
}

// Opens partitions as the library does, and closes them.
class OpenWide {
 public:
  explicit OpenWide(const char* name) {
    static_cast<void>(
        support::printed([&] { result_ = get_partition_mtd_info(name, DEVICE_MTD, &info_); }));
  }
  ~OpenWide() {
    if (result_ == 0) {
      close(info_.parti_file_desc);
    }
  }
  OpenWide(const OpenWide&) = delete;
  OpenWide& operator=(const OpenWide&) = delete;
  partition_mtd_info_t* info() { return &info_; }
  int fd() const { return info_.parti_file_desc; }

 private:
  int result_ = -1;
  partition_mtd_info_t info_{};
};

#endif
