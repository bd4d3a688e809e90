// SPDX-License-Identifier: Apache-2.0
//
// The MTD character device through the interposed calls, as any program sees it.
#include "sim/mtd.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/device_test.h"

namespace {

using sim::Bytes;
using sim::Op;
using support::DeviceTest;

constexpr std::uint32_t kPageSize = 512;
constexpr std::uint32_t kBlockSize = 2048;
constexpr std::uint32_t kSize = 8 * kBlockSize;

// A descriptor of "kernel", writable and unlocked.
class MtdTest : public DeviceTest {
 protected:
  MtdTest() { reopen(O_RDWR); }
  ~MtdTest() override { shut(); }

  void TearDown() override {
    shut();
    DeviceTest::TearDown();
  }
  void shut() {
    if (fd >= 0) {
      close(fd);
      fd = -1;
    }
  }
  void reopen(int access) {
    shut();
    fd = open(kernel.node().c_str(), access);
    ASSERT_GE(fd, 0);
    kernel.set_write_protected(false);
    errno = 0;
  }
  int erase(std::uint32_t start, std::uint32_t length) const {
    erase_info_user range = {start, length};
    return ioctl(fd, MEMERASE, &range);
  }
  int erase64(std::uint64_t start, std::uint64_t length) const {
    erase_info_user64 range = {start, length};
    return ioctl(fd, MEMERASE64, &range);
  }
  int is_bad(std::int64_t offset) const { return ioctl(fd, MEMGETBADBLOCK, &offset); }
  ssize_t write_at(off_t offset, const Bytes& bytes) const {
    return pwrite(fd, bytes.data(), bytes.size(), offset);
  }
  Bytes block(std::uint32_t number) { return kernel.block(number); }
  // Some pages of a block.
  Bytes pages(std::uint32_t number, std::uint32_t first, std::uint32_t count) {
    const Bytes all = block(number);
    return {all.begin() + first * kPageSize, all.begin() + (first + count) * kPageSize};
  }

  sim::Partition kernel = partition("kernel");
  int fd = -1;
};

#define EXPECT_FAILS(call, expected) \
  do {                               \
    errno = 0;                       \
    EXPECT_EQ(call, -1);             \
    EXPECT_EQ(errno, expected);      \
  } while (false)

TEST_F(MtdTest, TellsItsGeometry) {
  mtd_info_user info{};
  ASSERT_EQ(ioctl(fd, MEMGETINFO, &info), 0);
  EXPECT_EQ(info.type, MTD_NANDFLASH);
  EXPECT_EQ(info.flags, static_cast<unsigned>(MTD_CAP_NANDFLASH));
  EXPECT_EQ(info.size, kSize);
  EXPECT_EQ(info.erasesize, kBlockSize);
  EXPECT_EQ(info.writesize, kPageSize);
  EXPECT_EQ(info.oobsize, 16U);
}

TEST_F(MtdTest, TellsAnotherGeometryWhenMadeTo) {
  kernel.set_reported_info(sim::MtdInfo{1, 2, 0, 4});
  mtd_info_user info{};
  ASSERT_EQ(ioctl(fd, MEMGETINFO, &info), 0);
  EXPECT_EQ(info.size, 1U);
  EXPECT_EQ(info.erasesize, 2U);
  EXPECT_EQ(info.writesize, 0U);
  EXPECT_EQ(info.oobsize, 4U);
}

TEST_F(MtdTest, ErasesAlignedRangesOnly) {
  kernel.flash(support::pattern(kSize));
  EXPECT_FAILS(erase(kPageSize, kBlockSize), EINVAL);
  EXPECT_FAILS(erase(0, kPageSize), EINVAL);
  EXPECT_FAILS(erase(kSize, kBlockSize), EINVAL);
  EXPECT_FAILS(erase64(kSize - kBlockSize, 2 * kBlockSize), EINVAL);
  EXPECT_FAILS(erase64(1ULL << 40U, kBlockSize), EINVAL);
  EXPECT_EQ(kernel.total_erases(), 0U);
  EXPECT_EQ(erase(kBlockSize, 0), 0);
  EXPECT_EQ(erase(1, 0), 0);
  EXPECT_EQ(erase(kBlockSize, kBlockSize), 0);
  EXPECT_EQ(erase64(3 * kBlockSize, 2 * kBlockSize), 0);
  for (const std::uint32_t number : {1U, 3U, 4U}) {
    EXPECT_EQ(block(number), Bytes(kBlockSize, 0xFF)) << number;
  }
  EXPECT_NE(block(0), Bytes(kBlockSize, 0xFF));
  EXPECT_EQ(kernel.total_erases(), 3U);
}

TEST_F(MtdTest, ErasesForWritersOnly) {
  reopen(O_RDONLY);
  EXPECT_FAILS(erase(0, kBlockSize), EPERM);
  EXPECT_FAILS(erase64(0, kBlockSize), EPERM);
  EXPECT_FAILS(erase(0, 0), EPERM);
  reopen(O_WRONLY);
  EXPECT_EQ(erase(0, kBlockSize), 0);
}

TEST_F(MtdTest, RefusesToEraseBadBlocks) {
  kernel.set_bad(2);
  EXPECT_FAILS(erase(2 * kBlockSize, kBlockSize), EIO);
  EXPECT_FAILS(erase64(kBlockSize, 2 * kBlockSize), EIO);
  EXPECT_EQ(kernel.erase_count(2), 0U);
}

TEST_F(MtdTest, WornBlockIsNotReportedBad) {
  kernel.set_erase_defect(3, sim::EraseDefect::worn);
  EXPECT_FAILS(erase(3 * kBlockSize, kBlockSize), EIO);
  EXPECT_EQ(is_bad(3 * kBlockSize), 0);
}

TEST_F(MtdTest, AnswersBadBlockQueries) {
  kernel.set_bad(2);
  errno = E2BIG;
  EXPECT_EQ(is_bad(0), 0);
  EXPECT_EQ(is_bad(2 * kBlockSize), 1);
  EXPECT_EQ(is_bad(3 * kBlockSize - 1), 1);
  EXPECT_EQ(is_bad(3 * kBlockSize), 0);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_FAILS(is_bad(kSize), EINVAL);
  EXPECT_FAILS(is_bad(-1), EINVAL);
  EXPECT_FAILS(ioctl(fd, MEMGETBADBLOCK, nullptr), EFAULT);
}

TEST_F(MtdTest, CountsEveryQuery) {
  const std::uint64_t before = kernel.count(Op::memgetbadblock);
  is_bad(0);
  is_bad(kSize);
  EXPECT_EQ(kernel.count(Op::memgetbadblock), before + 2);
  EXPECT_EQ(partition("kernel2").count(Op::memgetbadblock), 0U);
}

TEST_F(MtdTest, WritesWholePagesOnly) {
  const Bytes page = support::pattern(kPageSize);
  EXPECT_FAILS(write_at(0, Bytes(kPageSize - 1)), EINVAL);
  EXPECT_FAILS(write_at(0, Bytes(kPageSize + 1)), EINVAL);
  EXPECT_FAILS(write_at(1, page), EINVAL);
  EXPECT_EQ(kernel.raw(), Bytes(kSize, 0xFF));
  EXPECT_EQ(write_at(kPageSize, page), static_cast<ssize_t>(kPageSize));
  EXPECT_EQ(pages(0, 1, 1), page);
}

TEST_F(MtdTest, WritesClearBitsOfProgrammedPages) {
  allow_rule_breaks();
  ASSERT_EQ(write_at(0, Bytes(kPageSize, 0xF0)), static_cast<ssize_t>(kPageSize));
  ASSERT_EQ(write_at(0, Bytes(kPageSize, 0x3C)), static_cast<ssize_t>(kPageSize));
  EXPECT_EQ(block(0)[0], 0x30);
  EXPECT_EQ(device().nand().rule_breaks().page_programmed_twice, 1U);
}

TEST_F(MtdTest, WritesIntoBadBlocks) {
  allow_rule_breaks();
  kernel.set_bad(1);
  EXPECT_EQ(write_at(kBlockSize, Bytes(kPageSize, 0)), static_cast<ssize_t>(kPageSize));
  EXPECT_EQ(device().nand().rule_breaks().bad_block_programmed, 1U);
}

TEST_F(MtdTest, FailingPageEndsAWriteWithoutACount) {
  kernel.set_page_defects(0, 2, sim::kPageFailsProgram);
  const Bytes data = support::pattern(kBlockSize);
  EXPECT_FAILS(write(fd, data.data(), data.size()), EIO);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 0);
  EXPECT_EQ(pages(0, 0, 3), Bytes(data.begin(), data.begin() + 3 * kPageSize));
  EXPECT_EQ(pages(0, 3, 1), Bytes(kPageSize, 0xFF));
}

TEST_F(MtdTest, WritesUpToTheEnd) {
  EXPECT_FAILS(write_at(kSize, Bytes(kPageSize)), ENOSPC);
  EXPECT_FAILS(write_at(kSize + kBlockSize, Bytes(kPageSize)), ENOSPC);
  EXPECT_EQ(write_at(kSize - kPageSize, Bytes(2 * kPageSize)), static_cast<ssize_t>(kPageSize));
}

TEST_F(MtdTest, ReadsAnythingUpToTheEnd) {
  const Bytes data = support::pattern(kSize);
  kernel.flash(data);
  Bytes bytes(kSize);
  EXPECT_EQ(pread(fd, bytes.data(), 7, 3), 7);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 7, data.begin() + 3));
  EXPECT_EQ(pread(fd, bytes.data(), 100, kSize - 40), 40);
  EXPECT_EQ(pread(fd, bytes.data(), 100, kSize), 0);
  EXPECT_EQ(read(fd, bytes.data(), 0), 0);
  EXPECT_EQ(read(fd, bytes.data(), kSize), static_cast<ssize_t>(kSize));
  EXPECT_EQ(bytes, data);
  EXPECT_EQ(read(fd, bytes.data(), 1), 0);
}

TEST_F(MtdTest, UncorrectableReadsGiveNoError) {
  const Bytes data = support::pattern(kBlockSize);
  kernel.flash(data);
  kernel.set_page_defects(0, 1, sim::kPageUnreadable);
  Bytes bytes(kBlockSize);
  EXPECT_EQ(read(fd, bytes.data(), kBlockSize), static_cast<ssize_t>(kBlockSize));
  EXPECT_NE(bytes, data);
  EXPECT_TRUE(std::equal(data.begin(), data.begin() + kPageSize, bytes.begin()));
}

TEST_F(MtdTest, RespectsTheAccessMode) {
  Bytes page(kPageSize);
  reopen(O_RDONLY);
  EXPECT_FAILS(write(fd, page.data(), page.size()), EBADF);
  reopen(O_WRONLY);
  EXPECT_FAILS(read(fd, page.data(), page.size()), EBADF);
}

TEST_F(MtdTest, SeeksUpToTheEnd) {
  EXPECT_EQ(lseek(fd, 5, SEEK_SET), 5);
  EXPECT_EQ(lseek(fd, 5, SEEK_CUR), 10);
  EXPECT_EQ(lseek(fd, 0, SEEK_END), static_cast<off_t>(kSize));
  EXPECT_FAILS(lseek(fd, 1, SEEK_END), EINVAL);
  EXPECT_FAILS(lseek(fd, -1, SEEK_SET), EINVAL);
  EXPECT_FAILS(lseek(fd, kSize + 1, SEEK_SET), EINVAL);
  EXPECT_FAILS(lseek(fd, 0, 99), EINVAL);
  EXPECT_FAILS(lseek64(fd, INT64_MAX, SEEK_END), EINVAL);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), static_cast<off_t>(kSize));
}

TEST_F(MtdTest, RefusesWhatNandCannot) {
  EXPECT_FAILS(fsync(fd), EINVAL);
  EXPECT_FAILS(fdatasync(fd), EINVAL);
  EXPECT_FAILS(ioctl(fd, 0x4D7F, 0), ENOTTY);
  errno = 0;
  EXPECT_EQ(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0), MAP_FAILED);
  EXPECT_EQ(errno, ENODEV);
}

TEST_F(MtdTest, ProtectionHoldsPerPartition) {
  kernel.set_write_protected(true);
  EXPECT_FAILS(erase(0, kBlockSize), EROFS);
  EXPECT_FAILS(erase64(0, kBlockSize), EROFS);
  EXPECT_FAILS(write_at(0, Bytes(kPageSize)), EROFS);
  const int other = open(kernel.node().c_str(), O_RDWR);
  EXPECT_EQ(ioctl(other, sim::kRequestProtectLift, 0), 0);
  EXPECT_EQ(close(other), 0);
  EXPECT_EQ(erase(0, kBlockSize), 0);
  EXPECT_TRUE(partition("kernel2").write_protected());
  EXPECT_EQ(ioctl(fd, sim::kRequestProtectRestore, 0), 0);
  EXPECT_FAILS(erase(0, kBlockSize), EROFS);
}

TEST_F(MtdTest, IsProtectedAtPowerOn) {
  device().power_on(sim::System::a);
  EXPECT_FAILS(erase(0, kBlockSize), EROFS);
}

TEST_F(MtdTest, TwoDescriptorsHaveTwoPositions) {
  const int other = open(kernel.node().c_str(), O_RDWR);
  ASSERT_EQ(lseek(fd, 100, SEEK_SET), 100);
  EXPECT_EQ(lseek(other, 0, SEEK_CUR), 0);
  const int twin = dup(fd);
  EXPECT_EQ(lseek(twin, 0, SEEK_CUR), 100);
  EXPECT_EQ(fcntl(fd, F_DUPFD, 100), 100);
  EXPECT_EQ(lseek(100, 1, SEEK_CUR), 101);
  EXPECT_EQ(dup2(fd, other), other);
  EXPECT_EQ(lseek(other, 0, SEEK_CUR), 101);
  EXPECT_EQ(sim::open_descriptors().size(), 4U);
  for (const int number : {other, twin, 100}) {
    EXPECT_EQ(close(number), 0);
  }
}

TEST_F(MtdTest, OpensNodesThatAreThere) {
  EXPECT_FAILS(open("/dev/mtd7", O_RDONLY), ENOENT);
  EXPECT_FAILS(open("/dev/mtdx", O_RDONLY), ENOENT);
  EXPECT_FAILS(open("/dev/mtd0ro", O_RDWR), EACCES);
  EXPECT_FAILS(open("/dev/mtd0", O_RDONLY | O_DIRECTORY), ENOTDIR);
  for (const char* node : {"/dev/mtd0ro", "/dev/mtdblock6", "/dev/zftl0", "/dev/../dev//mtd1"}) {
    const int opened = open(node, O_RDONLY);
    EXPECT_GE(opened, 0) << node;
    EXPECT_EQ(close(opened), 0);
  }
}

TEST_F(MtdTest, BlockNodesKnowNoRequest) {
  const int block_node = open("/dev/mtdblock1", O_RDWR);
  mtd_info_user info{};
  EXPECT_FAILS(ioctl(block_node, MEMGETINFO, &info), ENOTTY);
  EXPECT_EQ(close(block_node), 0);
}

TEST_F(MtdTest, NodesLookLikeDevices) {
  struct stat info {};
  ASSERT_EQ(stat("/dev/mtd1", &info), 0);
  EXPECT_TRUE(S_ISCHR(info.st_mode));
  EXPECT_EQ(info.st_rdev, makedev(90, 2));
  ASSERT_EQ(fstat(fd, &info), 0);
  EXPECT_TRUE(S_ISCHR(info.st_mode));
  ASSERT_EQ(stat("/dev/mtdblock1", &info), 0);
  EXPECT_TRUE(S_ISBLK(info.st_mode));
  EXPECT_FAILS(stat("/dev/mtd9", &info), ENOENT);
  EXPECT_EQ(access("/dev/mtd1", R_OK | W_OK), 0);
  EXPECT_FAILS(access("/dev/mtd9", F_OK), ENOENT);
}

}  // namespace
