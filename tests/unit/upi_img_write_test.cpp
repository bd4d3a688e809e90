// SPDX-License-Identifier: Apache-2.0
//
// Writing one erase block at a logical address: VEMK_WriteBlock().
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "opened_partition.h"
#include "tests/support/device_test.h"
#include "upi_img_interface.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

constexpr std::size_t kBlock = 2048;

// kernel: 4 blocks of 4 pages, 0 and 2 bad; rootfs: 4 good blocks.
class WriteBlockTest : public support::DeviceTest {
 protected:
  WriteBlockTest() {
    sim::Layout layout = sim::test_layout(512, 4, 4);
    layout.partitions.at(1).bad = {0, 2};
    use(layout);
    for (const char* name : {"kernel", "rootfs"}) {
      partition(name).flash(support::pattern(2 * kBlock, 5));
      partition(name).set_write_protected(false);
    }
  }
  Lines write(partition_mtd_info_t* info, int address) {
    return logged([&] {
      errno = 0;
      result_ = VEMK_WriteBlock(info, address, data_.data());
    });
  }
  // The call failed and said just this.
  void expect_failure(const Lines& lines, const std::string& message) const {
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(lines, said_by("VEMK_WriteBlock", {message}));
  }
  int result_ = -2;
  sim::Bytes data_ = support::pattern(kBlock, 7);
};

TEST_F(WriteBlockTest, WritesTheGoodBlockAndNoOther) {
  OpenedPartition kernel(partition("kernel"));
  const sim::Partition part = partition("kernel");
  const sim::Bytes before = part.raw();
  write(kernel.info(), kBlock);
  EXPECT_EQ(result_, 0);
  sim::Bytes expected(before.begin(), before.begin() + 3 * kBlock);
  expected.insert(expected.end(), data_.begin(), data_.end());
  EXPECT_EQ(part.raw(), expected);
}

TEST_F(WriteBlockTest, ErasesSeeksAndWritesOnce) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording;
  EXPECT_TRUE(write(rootfs.info(), 2 * kBlock).empty());
  const auto& calls = recording.calls();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_EQ(calls[0].op, Op::memerase);
  EXPECT_EQ(calls[0].request, 0x40084D02UL);
  EXPECT_EQ(calls[0].offset, 2 * kBlock);
  EXPECT_EQ(calls[0].length, kBlock);
  EXPECT_EQ(calls[1].op, Op::lseek);
  EXPECT_EQ(calls[1].offset, 2 * kBlock);
  EXPECT_EQ(calls[1].flags, SEEK_SET);
  EXPECT_EQ(calls[2].op, Op::write);
  EXPECT_EQ(calls[2].length, kBlock);
}

TEST_F(WriteBlockTest, AsksAboutEveryBlockUpToItsOwn) {
  OpenedPartition rootfs(partition("rootfs"));
  write(rootfs.info(), 3 * kBlock);
  EXPECT_EQ(partition("rootfs").count(Op::memgetbadblock), 4U);
}

TEST_F(WriteBlockTest, RefusesAnAddressPastTheLastGoodBlock) {
  OpenedPartition kernel(partition("kernel"));
  const Lines lines = write(kernel.info(), 2 * kBlock);
  expect_failure(only(lines, {"VEMK_WriteBlock"}),
                 "Start address[8192] out of partition total size[8192]!");
  EXPECT_EQ(partition("kernel").count(Op::memerase), 0U);
}

TEST_F(WriteBlockTest, RefusesANegativeAddress) {
  OpenedPartition rootfs(partition("rootfs"));
  const Lines lines = write(rootfs.info(), INT_MIN);
  expect_failure(lines, "Start address[8192] out of partition total size[8192]!");
}

TEST_F(WriteBlockTest, ShowsSizesPast2GiBAsSignedNumbers) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_totalsize = 0xC0000000;
  rootfs.info()->mtd_blocksize = 0x40000000;
  const Lines lines = write(rootfs.info(), 0x40000000);
  expect_failure(only(lines, {"VEMK_WriteBlock"}),
                 "Start address[-1073741824] out of partition total size[-1073741824]!");
}

// The kernel refuses to erase from within a block.
TEST_F(WriteBlockTest, HandsAnUnalignedAddressOn) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  const sim::Recording recording;
  const Lines lines = write(rootfs.info(), kBlock + 512);
  expect_failure(lines, "Ioctl [MEMERASE] error, error: " + shown_error(EINVAL));
  EXPECT_EQ(recording.calls(Op::memerase).at(0).offset, kBlock + 512);
  EXPECT_EQ(partition("rootfs").raw(), before);
}

TEST_F(WriteBlockTest, ReportsAnEraseThatFails) {
  partition("rootfs").set_erase_defect(1, sim::EraseDefect::worn);
  OpenedPartition rootfs(partition("rootfs"));
  const Lines lines = write(rootfs.info(), kBlock);
  expect_failure(lines, "Ioctl [MEMERASE] error, error: " + shown_error(EIO));
  EXPECT_EQ(partition("rootfs").count(Op::write), 0U);
  EXPECT_FALSE(partition("rootfs").is_bad(1));
}

TEST_F(WriteBlockTest, ReportsAWriteProtectedPartition) {
  OpenedPartition rootfs(partition("rootfs"));
  partition("rootfs").set_write_protected(true);
  const Lines lines = write(rootfs.info(), 0);
  expect_failure(lines, "Ioctl [MEMERASE] error, error: " + shown_error(EROFS));
}

TEST_F(WriteBlockTest, ReportsASeekThatFails) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::lseek, "rootfs", 1, ESPIPE});
  const Lines lines = write(rootfs.info(), 0);
  expect_failure(lines, "Lseek error, error: " + shown_error(ESPIPE));
  EXPECT_EQ(partition("rootfs").count(Op::write), 0U);
  EXPECT_EQ(partition("rootfs").block(0), sim::Bytes(kBlock, 0xFF));
}

TEST_F(WriteBlockTest, ReportsAWriteThatFails) {
  OpenedPartition rootfs(partition("rootfs"));
  partition("rootfs").set_page_defects(0, 1, sim::kPageFailsProgram);
  const Lines lines = write(rootfs.info(), 0);
  expect_failure(lines,
                 "Write flash error, write len[-1] != blocksize[2048], error: " + shown_error(EIO));
  EXPECT_EQ(partition("rootfs").count(Op::write), 1U);
}

TEST_F(WriteBlockTest, TakesAShortWriteForAFailure) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::write, "rootfs", 1, 0, false, 1024});
  const Lines lines = write(rootfs.info(), 0);
  expect_failure(lines,
                 "Write flash error, write len[1024] != blocksize[2048], error: " + shown_error(0));
  EXPECT_EQ(partition("rootfs").count(Op::write), 1U);
}

TEST_F(WriteBlockTest, DoesNotReadBack) {
  OpenedPartition rootfs(partition("rootfs"));
  partition("rootfs").set_page_defects(0, 1, sim::kPageUnreadable);
  write(rootfs.info(), 0);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(partition("rootfs").count(Op::read), 0U);
}

TEST_F(WriteBlockTest, RefusesGeometryWithoutBlocks) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  rootfs.info()->mtd_blocksize = 0;
  rootfs.info()->mtd_totalsize = 0;
  write(rootfs.info(), 0);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").raw(), before);
}

TEST_F(WriteBlockTest, RefusesNullPointers) {
  OpenedPartition rootfs(partition("rootfs"));
  const auto refused = [&](partition_mtd_info_t* info, unsigned char* buffer) {
    char shown[128];
    snprintf(shown, sizeof shown, "Input error, mtd_info point:%p , buffer point:%p",
             static_cast<void*>(info), static_cast<void*>(buffer));
    const Lines lines = logged([&] { result_ = VEMK_WriteBlock(info, 0, buffer); });
    expect_failure(lines, shown);
  };
  refused(nullptr, data_.data());
  refused(rootfs.info(), nullptr);
  refused(nullptr, nullptr);
}

}  // namespace
