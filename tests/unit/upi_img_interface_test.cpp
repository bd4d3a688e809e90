// SPDX-License-Identifier: Apache-2.0
#include "upi_img_interface.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "opened_partition.h"
#include "tests/support/device_test.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

constexpr std::size_t kBlock = 2048;
constexpr unsigned long kHigh = 0x80000000;

std::string pointer(const void* address) {
  char text[32];
  snprintf(text, sizeof text, "%p", address);
  return text;
}

// What is said of a bad block; errno shows what was left in it.
Lines bad(int fd, int index, int offset, int error) {
  return said_by("checkGoodAddress",
                 {"Partition file description:" + std::to_string(fd) + ", BAD address [" +
                  std::to_string(offset) + "], errno no:" + shown_error(error)}) +
         said_by("translateToGoodAddress", {"Index:" + std::to_string(index) + ", bad block!"});
}

// kernel: 4 blocks of 4 pages, 0 and 2 bad; rootfs: 4 good blocks.
class ImageTest : public support::DeviceTest {
 protected:
  ImageTest() {
    sim::Layout layout = sim::test_layout(512, 4, 4);
    layout.partitions.at(1).bad = {0, 2};
    use(layout);
    for (const char* name : {"kernel", "rootfs"}) {
      partition(name).set_write_protected(false);
    }
    // Bad blocks hold something too, to tell when one is read or written.
    for (std::uint32_t block = 0; block < 4; ++block) {
      partition("kernel").poke(block * kBlock, support::pattern(kBlock, block));
      partition("rootfs").poke(block * kBlock, support::pattern(kBlock, 10 + block));
    }
  }
  unsigned long translate(partition_mtd_info_t* info, unsigned long address) {
    int bad_blocks = 77;
    unsigned long good = 0;
    lines_ = logged([&] {
      errno = 0;
      good = translateToGoodAddress(info, address, &bad_blocks);
    });
    EXPECT_EQ(bad_blocks, 77);
    return good;
  }
  std::uint64_t queries(const char* name = "kernel") {
    const std::uint64_t count = partition(name).count(Op::memgetbadblock);
    const std::uint64_t since = count - queries_;
    queries_ = count;
    return since;
  }
  Lines lines_;

 private:
  std::uint64_t queries_ = 0;
};

// --- checkGoodAddress() -------------------------------------------------------------------------

TEST_F(ImageTest, AsksTheKernelAboutABlock) {
  const OpenedPartition kernel(partition("kernel"));
  const sim::Recording recording({true});
  int good = -1;
  const Lines lines = logged([&] { good = checkGoodAddress(kernel.fd(), 3 * kBlock); });
  EXPECT_EQ(good, 0);
  EXPECT_TRUE(lines.empty());
  const auto asked = recording.calls(Op::memgetbadblock);
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_EQ(asked[0].request, 0x40084D0BUL);
  EXPECT_EQ(asked[0].fd, kernel.fd());
  EXPECT_EQ(asked[0].offset, 3 * kBlock);
}

TEST_F(ImageTest, ShowsAStaleErrorForABadBlock) {
  const OpenedPartition kernel(partition("kernel"));
  int good = 0;
  const Lines lines = logged([&] {
    errno = EDOM;
    good = checkGoodAddress(kernel.fd(), 2 * kBlock);
  });
  EXPECT_NE(good, 0);
  EXPECT_EQ(lines, said_by("checkGoodAddress",
                           {"Partition file description:" + std::to_string(kernel.fd()) +
                            ", BAD address [4096], errno no:" + shown_error(EDOM)}));
}

TEST_F(ImageTest, TakesAFailedRequestForABadBlock) {
  const OpenedPartition kernel(partition("kernel"));
  device().faults().add({Op::memgetbadblock, "kernel", 1, EIO});
  int good = 0;
  const Lines lines = logged([&] { good = checkGoodAddress(kernel.fd(), kBlock); });
  EXPECT_NE(good, 0);
  EXPECT_EQ(lines.at(0).message, "Partition file description:" + std::to_string(kernel.fd()) +
                                     ", BAD address [2048], errno no:" + shown_error(EIO));
}

TEST_F(ImageTest, WidensANegativeOffsetWithItsSign) {
  const OpenedPartition kernel(partition("kernel"));
  const sim::Recording recording({true});
  int good = 0;
  const Lines lines = logged([&] { good = checkGoodAddress(kernel.fd(), INT_MIN); });
  EXPECT_NE(good, 0);
  EXPECT_EQ(recording.calls(Op::memgetbadblock).at(0).offset, 0xFFFFFFFF80000000U);
  EXPECT_EQ(lines.at(0).message,
            "Partition file description:" + std::to_string(kernel.fd()) +
                ", BAD address [-2147483648], errno no:" + shown_error(EINVAL));
}

// --- translateToGoodAddress() -------------------------------------------------------------------

TEST_F(ImageTest, CountsGoodBlocksOnly) {
  OpenedPartition kernel(partition("kernel"));
  EXPECT_EQ(translate(kernel.info(), 0), kBlock);
  EXPECT_EQ(lines_, bad(kernel.fd(), 0, 0, 0));
  EXPECT_EQ(queries(), 2U);

  EXPECT_EQ(translate(kernel.info(), kBlock), 3 * kBlock);
  EXPECT_EQ(lines_, bad(kernel.fd(), 0, 0, 0) + bad(kernel.fd(), 2, 4096, 0));
  EXPECT_EQ(queries(), 4U);

  EXPECT_EQ(translate(kernel.info(), 2 * kBlock), 4 * kBlock);
  EXPECT_EQ(queries(), 4U);
}

TEST_F(ImageTest, KeepsTheOffsetWithinTheBlock) {
  OpenedPartition kernel(partition("kernel"));
  EXPECT_EQ(translate(kernel.info(), kBlock + 100), 3 * kBlock + 100);
  EXPECT_EQ(translate(kernel.info(), kBlock - 1), 2 * kBlock - 1);
  EXPECT_EQ(translate(kernel.info(), 5 * kBlock + 7), 4 * kBlock + 7);
}

TEST_F(ImageTest, AsksAboutEveryBlockUpToTheTargetEachTime) {
  OpenedPartition rootfs(partition("rootfs"));
  for (int round = 0; round < 2; ++round) {
    for (std::uint32_t block = 0; block < 4; ++block) {
      EXPECT_EQ(translate(rootfs.info(), block * kBlock), block * kBlock);
      EXPECT_EQ(queries("rootfs"), block + 1);
      EXPECT_TRUE(lines_.empty());
    }
  }
}

TEST_F(ImageTest, LeavesAnAddressAloneInAPartitionOfLessThanABlock) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = kBlock - 1;
  EXPECT_EQ(translate(rootfs.info(), 3 * kBlock + 5), 5U);
  EXPECT_EQ(queries("rootfs"), 0U);
}

TEST_F(ImageTest, LeavesOutTheRestThatIsLessThanABlock) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = 2 * kBlock + kBlock / 2;
  EXPECT_EQ(translate(rootfs.info(), 2 * kBlock + 3), 2 * kBlock + 3);
  EXPECT_EQ(queries("rootfs"), 2U);
}

// The count of blocks is signed.
TEST_F(ImageTest, FindsNoBlockWhereThereAreMoreThan2ToThe31) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = 0xFFFFFFFF;
  rootfs.info()->mtd_blocksize = 1;
  EXPECT_EQ(translate(rootfs.info(), 9), 0U);
  EXPECT_EQ(queries("rootfs"), 0U);
}

// Offsets from 2 GiB on are negative numbers, which the kernel refuses: no block is good there.
TEST_F(ImageTest, FindsNoGoodBlockPast2GiB) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = 0xC0000000;
  rootfs.info()->mtd_blocksize = 0x40000000;
  const sim::Recording recording({true});
  EXPECT_EQ(translate(rootfs.info(), kHigh), 0xC0000000U);
  const auto asked = recording.calls(Op::memgetbadblock);
  ASSERT_EQ(asked.size(), 3U);
  EXPECT_EQ(asked[1].offset, 0x40000000U);
  EXPECT_EQ(asked[2].offset, 0xFFFFFFFF80000000U);
  EXPECT_EQ(lines_, bad(rootfs.fd(), 1, 0x40000000, EINVAL) + bad(rootfs.fd(), 2, INT_MIN, EINVAL));
}

// Before the first good block the count stands at -1, and -1 block is what an address one block
// below 2^32 asks for: it is found in a bad first block.
TEST_F(ImageTest, ComparesAddressesIn32Bits) {
  OpenedPartition kernel(partition("kernel"));
  OpenedPartition rootfs(partition("rootfs"));
  EXPECT_EQ(translate(kernel.info(), 0xFFFFF800), 0U);
  EXPECT_EQ(queries(), 1U);
  EXPECT_EQ(translate(rootfs.info(), 0xFFFFF800), 4 * kBlock);
}

TEST_F(ImageTest, DoesNotDivideByABlockSizeOfZero) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_blocksize = 0;
  translate(rootfs.info(), 100);
  EXPECT_EQ(queries("rootfs"), 0U);
}

// --- VEMK_ReadImage() ---------------------------------------------------------------------------

class ReadImageTest : public ImageTest {
 protected:
  Lines read(partition_mtd_info_t* info, int address, int size) {
    buffer_.assign(4 * kBlock, 0x55);
    return logged([&] {
      errno = 0;
      result_ = VEMK_ReadImage(info, buffer_.data(), address, size);
    });
  }
  sim::Bytes got(std::size_t size) const {
    return sim::Bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(size));
  }
  static Lines out_of_range(const std::string& start, const std::string& end,
                            const std::string& total) {
    return said_by("VEMK_ReadImage", {"Start address (" + start + ") or new start address (" + end +
                                      ") out of partition total size (" + total + ")!"});
  }
  int result_ = -2;
  sim::Bytes buffer_;
};

TEST_F(ReadImageTest, ReadsFromTheGoodBlock) {
  OpenedPartition kernel(partition("kernel"));
  read(kernel.info(), kBlock + 100, 50);
  EXPECT_EQ(result_, 0);
  const sim::Bytes block = partition("kernel").block(3);
  EXPECT_EQ(got(50), sim::Bytes(block.begin() + 100, block.begin() + 150));
  EXPECT_EQ(buffer_[50], 0x55);
}

TEST_F(ReadImageTest, SeeksOnceAndReadsOnce) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording({true});
  EXPECT_TRUE(read(rootfs.info(), kBlock + 10, 3000).empty());
  ASSERT_EQ(recording.calls().size(), 4U);
  EXPECT_EQ(recording.calls()[0].op, Op::memgetbadblock);
  EXPECT_EQ(recording.calls()[1].op, Op::memgetbadblock);
  EXPECT_EQ(recording.calls()[2].op, Op::lseek);
  EXPECT_EQ(recording.calls()[2].offset, kBlock + 10);
  EXPECT_EQ(recording.calls()[2].flags, SEEK_SET);
  EXPECT_EQ(recording.calls()[3].op, Op::read);
  EXPECT_EQ(recording.calls()[3].length, 3000U);
}

TEST_F(ReadImageTest, ReadsOnIntoTheNextBlockEvenIfItIsBad) {
  allow_rule_breaks();
  OpenedPartition kernel(partition("kernel"));
  read(kernel.info(), 0, 2 * kBlock);
  EXPECT_EQ(result_, 0);
  const sim::Bytes raw = partition("kernel").raw();
  EXPECT_EQ(got(2 * kBlock), sim::Bytes(raw.begin() + kBlock, raw.begin() + 3 * kBlock));
}

TEST_F(ReadImageTest, ReadsToTheEndOfThePartition) {
  OpenedPartition rootfs(partition("rootfs"));
  EXPECT_TRUE(read(rootfs.info(), 4 * kBlock - 5, 5).empty());
  EXPECT_EQ(result_, 0);
}

TEST_F(ReadImageTest, RefusesToReadAcrossTheEnd) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording;
  EXPECT_EQ(read(rootfs.info(), 4 * kBlock - 5, 10), out_of_range("8187", "8197", "8192"));
  EXPECT_EQ(result_, -1);
  EXPECT_TRUE(recording.calls(Op::lseek).empty());
  EXPECT_TRUE(recording.calls(Op::read).empty());
}

TEST_F(ReadImageTest, RefusesToReadPastTheLastGoodBlock) {
  OpenedPartition kernel(partition("kernel"));
  const Lines lines = read(kernel.info(), 2 * kBlock, 1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"VEMK_ReadImage"}), out_of_range("8192", "8193", "8192"));
  EXPECT_EQ(only(read(kernel.info(), 2 * kBlock, 0), {"VEMK_ReadImage"}),
            out_of_range("8192", "8192", "8192"));
}

TEST_F(ReadImageTest, RefusesAPartitionWithoutAGoodBlock) {
  for (const std::uint32_t block : {1U, 3U}) {
    partition("kernel").set_bad(block);
  }
  OpenedPartition kernel(partition("kernel"));
  const Lines lines = read(kernel.info(), 5, 1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"VEMK_ReadImage"}), out_of_range("8197", "8198", "8192"));
}

TEST_F(ReadImageTest, ReadsNothingWhenAskedForNothing) {
  OpenedPartition rootfs(partition("rootfs"));
  EXPECT_TRUE(read(rootfs.info(), 10, 0).empty());
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(buffer_[0], 0x55);
}

TEST_F(ReadImageTest, RefusesANegativeSize) {
  OpenedPartition rootfs(partition("rootfs"));
  EXPECT_EQ(read(rootfs.info(), 0, -1), out_of_range("0", "-1", "8192"));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(read(rootfs.info(), kBlock, INT_MIN), out_of_range("2048", "-2147481600", "8192"));
  EXPECT_EQ(result_, -1);
}

// The sum of address and size wraps to one within the partition; the read itself is refused then.
TEST_F(ReadImageTest, RefusesANegativeSizeBehindTheRangeCheck) {
  OpenedPartition rootfs(partition("rootfs"));
  const Lines lines = read(rootfs.info(), kBlock, -1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            said_by("VEMK_ReadImage", {"Read len (-1) < need len (-1)!", "VEMK_ReadImage fail"}));
  EXPECT_EQ(buffer_, sim::Bytes(4 * kBlock, 0x55));
}

TEST_F(ReadImageTest, RefusesANegativeAddress) {
  OpenedPartition rootfs(partition("rootfs"));
  EXPECT_EQ(read(rootfs.info(), INT_MIN, 1), out_of_range("8192", "8193", "8192"));
  EXPECT_EQ(result_, -1);
}

TEST_F(ReadImageTest, ShowsSizesPast2GiBAsSignedNumbers) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = 0xC0000000;
  rootfs.info()->mtd_blocksize = 0x40000000;
  const Lines lines = read(rootfs.info(), 0x40000000, 1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"VEMK_ReadImage"}),
            out_of_range("-1073741824", "-1073741823", "-1073741824"));
}

TEST_F(ReadImageTest, RefusesGeometryWithoutBlocks) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_blocksize = 0;
  rootfs.info()->mtd_totalsize = 0;
  read(rootfs.info(), 0, 10);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(buffer_, sim::Bytes(4 * kBlock, 0x55));
}

TEST_F(ReadImageTest, RefusesNullPointers) {
  OpenedPartition rootfs(partition("rootfs"));
  unsigned char byte = 0;
  const auto refused = [&](partition_mtd_info_t* info, unsigned char* buffer) {
    const Lines lines = logged([&] { result_ = VEMK_ReadImage(info, buffer, 0, 1); });
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(lines, said_by("VEMK_ReadImage", {"Input error, mtd_info:" + pointer(info) +
                                                " , buffer:" + pointer(buffer)}));
  };
  refused(nullptr, &byte);
  refused(rootfs.info(), nullptr);
  refused(nullptr, nullptr);
}

TEST_F(ReadImageTest, ReportsASeekThatFails) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::lseek, "rootfs", 1, ESPIPE});
  EXPECT_EQ(read(rootfs.info(), 0, 10),
            said_by("VEMK_ReadImage", {"Lseek error, error:" + shown_error(ESPIPE)}));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").count(Op::read), 0U);
}

TEST_F(ReadImageTest, ReportsAReadThatFails) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::read, "rootfs", 1, EIO});
  EXPECT_EQ(read(rootfs.info(), 0, 10),
            said_by("VEMK_ReadImage", {"Read len (-1) < need len (10)!", "VEMK_ReadImage fail"}));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").count(Op::read), 1U);
}

TEST_F(ReadImageTest, TakesAShortReadForAFailure) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::read, "rootfs", 1, 0, false, 4});
  EXPECT_EQ(read(rootfs.info(), 0, 10),
            said_by("VEMK_ReadImage", {"Read len (4) < need len (10)!", "VEMK_ReadImage fail"}));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").count(Op::read), 1U);
}

}  // namespace
