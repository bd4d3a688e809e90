// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/device_test.h"
#include "tests/support/store_functions.h"

namespace {

using sim::Bytes;
using sim::CutKind;
using sim::Fault;
using sim::Op;
using support::DeviceTest;

class FaultsTest : public DeviceTest {
 protected:
  // A fault of one kind, the `at`-th operation on `where`.
  void fail(Op op, int error, const std::string& where = {}, std::uint64_t at = 1) {
    Fault fault;
    fault.op = op;
    fault.error = error;
    fault.where = where;
    fault.at = at;
    device().faults().add(fault);
  }
  int open_kernel() {
    partition("kernel").set_write_protected(false);
    return open("/dev/mtd1", O_RDWR);
  }
};

// `call` fails with `expected` once, and works the next time.
#define EXPECT_FAILS_ONCE(call, expected) \
  do {                                    \
    errno = 0;                            \
    EXPECT_LT(call, 0);                   \
    EXPECT_EQ(errno, expected);           \
    EXPECT_GE(call, 0);                   \
  } while (false)

TEST_F(FaultsTest, StrikeEveryRequestOnANode) {
  const int fd = open_kernel();
  mtd_info_user info{};
  erase_info_user range = {0, 2048};
  erase_info_user64 range64 = {0, 2048};
  loff_t offset = 0;
  Bytes page(512);
  fail(Op::memgetinfo, EIO);
  EXPECT_FAILS_ONCE(ioctl(fd, MEMGETINFO, &info), EIO);
  fail(Op::memerase, EIO);
  EXPECT_FAILS_ONCE(ioctl(fd, MEMERASE, &range), EIO);
  fail(Op::memerase64, ENOMEM);
  EXPECT_FAILS_ONCE(ioctl(fd, MEMERASE64, &range64), ENOMEM);
  fail(Op::memgetbadblock, EOPNOTSUPP);
  EXPECT_FAILS_ONCE(ioctl(fd, MEMGETBADBLOCK, &offset), EOPNOTSUPP);
  fail(Op::protect_lift, ENOTTY);
  EXPECT_FAILS_ONCE(ioctl(fd, 0x80044D18UL, 0), ENOTTY);
  fail(Op::protect_restore, EPERM);
  EXPECT_FAILS_ONCE(ioctl(fd, 0x80044D19UL, 0), EPERM);
  fail(Op::lseek, EINVAL);
  EXPECT_FAILS_ONCE(lseek(fd, 0, SEEK_SET), EINVAL);
  fail(Op::read, EINTR);
  EXPECT_FAILS_ONCE(pread(fd, page.data(), 1, 0), EINTR);
  EXPECT_EQ(ioctl(fd, 0x80044D18UL, 0), 0);
  fail(Op::write, EIO);
  EXPECT_FAILS_ONCE(pwrite(fd, page.data(), page.size(), 0), EIO);
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(device().faults().struck(), 9U);
}

TEST_F(FaultsTest, StrikeOpenAndClose) {
  fail(Op::open, EMFILE, "kernel");
  EXPECT_FAILS_ONCE(close(open("/dev/mtd1", O_RDONLY)), EBADF);
  fail(Op::close, EIO, "/dev/mtd1");
  const int fd = open("/dev/mtd1", O_RDONLY);
  errno = 0;
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(sim::open_descriptors().size(), 0U);
}

TEST_F(FaultsTest, StrikeFiles) {
  device().write_file("/cache/file", "hello");
  struct stat info {};
  fail(Op::stat, EACCES, "/cache/file");
  EXPECT_FAILS_ONCE(stat("/cache/file", &info), EACCES);
  fail(Op::access, EACCES);
  EXPECT_FAILS_ONCE(access("/cache/file", R_OK), EACCES);
  fail(Op::rename, EROFS, "/cache/file");
  EXPECT_FAILS_ONCE(rename("/cache/file", "/cache/file"), EROFS);
  fail(Op::mkdir, ENOSPC);
  EXPECT_FAILS_ONCE(mkdir("/cache/folder", 0777), ENOSPC);
  const int fd = open("/cache/file", O_RDWR);
  fail(Op::stat, EIO, "/cache/file");
  EXPECT_FAILS_ONCE(fstat(fd, &info), EIO);
  fail(Op::lseek, EIO, "/cache/*");
  EXPECT_FAILS_ONCE(lseek(fd, 0, SEEK_SET), EIO);
  fail(Op::write, ENOSPC, "/cache/*");
  EXPECT_FAILS_ONCE(write(fd, "x", 1), ENOSPC);
  EXPECT_EQ(close(fd), 0);
  fail(Op::unlink, EBUSY);
  EXPECT_FAILS_ONCE(unlink("/cache/file"), EBUSY);
}

TEST_F(FaultsTest, StrikeStreams) {
  device().write_file("/cache/log", "");
  fail(Op::fopen, EMFILE, "/cache/log");
  EXPECT_EQ(fopen("/cache/log", "a+"), nullptr);
  EXPECT_EQ(errno, EMFILE);
  fail(Op::stream_write, ENOSPC, "/cache/log");
  FILE* log = fopen("/cache/log", "a+");
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(fprintf(log, "lost"), 4);
  errno = 0;
  EXPECT_EQ(fflush(log), EOF);
  EXPECT_EQ(errno, ENOSPC);
  clearerr(log);
  fail(Op::fclose, EIO, "/cache/log");
  errno = 0;
  EXPECT_EQ(fclose(log), EOF);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(sim::open_descriptors().size(), 0U);
}

TEST_F(FaultsTest, StrikeReadsOfStreams) {
  fail(Op::stream_read, EIO, "/proc/mtd");
  FILE* table = fopen("/proc/mtd", "r");
  ASSERT_NE(table, nullptr);
  char line[128];
  errno = 0;
  EXPECT_EQ(fgets(line, sizeof line, table), nullptr);
  EXPECT_EQ(errno, EIO);
  EXPECT_NE(ferror(table), 0);
  clearerr(table);
  EXPECT_NE(fgets(line, sizeof line, table), nullptr);
  EXPECT_EQ(fclose(table), 0);
}

TEST_F(FaultsTest, StrikeTheStore) {
  char value[4];
  fail(Op::store_set, EIO);
  EXPECT_FAILS_ONCE(sc_cfg_set("key", "1"), EIO);
  fail(Op::store_save, ENOSPC);
  EXPECT_FAILS_ONCE(sc_cfg_save(), ENOSPC);
  fail(Op::store_get, EIO, "key");
  EXPECT_FAILS_ONCE(sc_cfg_get("key", value, sizeof value), EIO);
}

TEST_F(FaultsTest, StrikeTheChip) {
  const int fd = open_kernel();
  fail(Op::block_erase, EIO, "kernel", 2);
  erase_info_user range = {0, 3 * 2048};
  partition("kernel").flash(support::pattern(3 * 2048));
  EXPECT_EQ(ioctl(fd, MEMERASE, &range), -1);
  EXPECT_EQ(partition("kernel").erase_count(0), 1U);
  EXPECT_EQ(partition("kernel").erase_count(1), 0U);
  EXPECT_EQ(ioctl(fd, MEMERASE, &range), 0);
  fail(Op::page_program, EIO, "kernel", 3);
  Bytes block(2048, 0);
  EXPECT_EQ(write(fd, block.data(), block.size()), -1);
  EXPECT_EQ(partition("kernel").program_count(0, 1), 1U);
  EXPECT_EQ(partition("kernel").program_count(0, 2), 0U);
  EXPECT_EQ(close(fd), 0);
}

TEST_F(FaultsTest, CountFromWhenTheyAreAdded) {
  EXPECT_EQ(access("/cache", F_OK), 0);
  fail(Op::access, EIO, {}, 3);
  EXPECT_EQ(access("/cache", F_OK), 0);
  EXPECT_EQ(access("/cache", F_OK), 0);
  EXPECT_EQ(access("/cache", F_OK), -1);
  EXPECT_EQ(access("/cache", F_OK), 0);
}

TEST_F(FaultsTest, StrikeOnlyWhereTheyAreMeant) {
  fail(Op::open, EIO, "kernel2");
  EXPECT_EQ(close(open("/dev/mtd1", O_RDONLY)), 0);
  EXPECT_EQ(open("/dev/mtd2", O_RDONLY), -1);
}

TEST_F(FaultsTest, GoOnForeverWhenTold) {
  Fault fault;
  fault.op = Op::access;
  fault.at = 2;
  fault.forever = true;
  device().faults().add(fault);
  EXPECT_EQ(access("/cache", F_OK), 0);
  EXPECT_EQ(access("/cache", F_OK), -1);
  EXPECT_EQ(access("/cache", F_OK), -1);
  device().faults().clear();
  EXPECT_EQ(access("/cache", F_OK), 0);
}

TEST_F(FaultsTest, ShortenTransfers) {
  partition("kernel").flash("abcdefgh");
  const int fd = open_kernel();
  Fault fault;
  fault.op = Op::read;
  fault.bytes = 3;
  device().faults().add(fault);
  char text[8];
  EXPECT_EQ(read(fd, text, 8), 3);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 3);
  EXPECT_EQ(read(fd, text, 5), 5);
  fault.op = Op::write;
  fault.bytes = 512;
  device().faults().add(fault);
  Bytes pages(1024, 0);
  EXPECT_EQ(pwrite(fd, pages.data(), pages.size(), 2048), 512);
  EXPECT_EQ(close(fd), 0);
}

TEST_F(FaultsTest, CountThroughChildren) {
  fail(Op::access, EIO, {}, 2);
  EXPECT_TRUE(support::in_child([] { return access("/cache", F_OK); }).exited);
  EXPECT_EQ(access("/cache", F_OK), -1);
  EXPECT_EQ(device().faults().struck(), 1U);
}

TEST_F(FaultsTest, AreLimited) {
  for (std::size_t i = 0; i < sim::kMaxFaults; ++i) {
    fail(Op::access, EIO, {}, 1000);
  }
  EXPECT_THROW(fail(Op::access, EIO), std::runtime_error);
  device().faults().clear();
  EXPECT_THROW(fail(Op::access, EIO, {}, 0), std::runtime_error);
  EXPECT_THROW(fail(Op::access, EIO, std::string(500, 'x')), std::runtime_error);
  EXPECT_THROW(fail(Op::access, 0), std::runtime_error);
  Fault fault;
  fault.op = Op::lseek;
  fault.bytes = 3;
  EXPECT_THROW(device().faults().add(fault), std::runtime_error);
}

TEST_F(FaultsTest, NamesAreUnique) {
  for (std::size_t i = 0; i < sim::kOpCount; ++i) {
    const auto op = static_cast<Op>(i);
    EXPECT_EQ(sim::op_from_name(sim::op_name(op)), op);
  }
  EXPECT_FALSE(sim::op_from_name("MEMWRITEOOB"));
}

// --- Memory. ------------------------------------------------------------------------------------

// volatile: the compiler may not leave the call out.
void* volatile g_block = nullptr;

TEST_F(FaultsTest, StrikeAllocations) {
  fail(Op::malloc, ENOMEM, {}, 2);
  const sim::AllocationWatch watch;
  g_block = malloc(10);
  EXPECT_NE(g_block, nullptr);
  free(g_block);
  g_block = malloc(10);
  const bool refused = g_block == nullptr;
  free(g_block);
  g_block = calloc(1, 10);
  g_block = realloc(g_block, 20);
  EXPECT_NE(g_block, nullptr);
  free(g_block);
  EXPECT_TRUE(refused);
  EXPECT_EQ(watch.allocations(), 4U);
}

TEST_F(FaultsTest, StrikeAllocationsOfOneObject) {
  fail(Op::malloc, ENOMEM, "libnobody");
  const sim::AllocationWatch watch;
  g_block = malloc(10);
  EXPECT_NE(g_block, nullptr);
  free(g_block);
  EXPECT_EQ(device().faults().struck(), 0U);
}

// --- Power cuts. --------------------------------------------------------------------------------

class PowerCutTest : public DeviceTest {
 protected:
  // Erases block 0 of "kernel" (operation 1) and programs its pages (2 to 5).
  static int rewrite() {
    const int fd = open("/dev/mtd1", O_RDWR);
    erase_info_user range = {0, 2048};
    const Bytes data(2048, 0x55);
    const bool good = ioctl(fd, MEMERASE, &range) == 0 && write(fd, data.data(), 2048) == 2048;
    close(fd);
    return good ? 0 : 1;
  }
  Bytes after_cut(std::uint64_t at, CutKind kind, std::optional<std::uint32_t> byte = {},
                  std::optional<std::uint32_t> page = {}) {
    sim::Partition kernel = partition("kernel");
    kernel.flash(Bytes(2048, 0x00));
    kernel.set_write_protected(false);
    device().faults().set_power_cut({at, kind, byte, page});
    EXPECT_TRUE(support::in_child([] { return rewrite(); }).power_cut);
    EXPECT_EQ(device().power(), sim::Power::cut);
    Bytes bytes(2048);
    device().nand().read(10 * 2048, bytes.data(), bytes.size());
    return bytes;
  }
  static Bytes joined(std::initializer_list<std::pair<std::size_t, std::uint8_t>> parts) {
    Bytes out;
    for (const auto& [length, value] : parts) {
      out.insert(out.end(), length, value);
    }
    return out;
  }
};

TEST_F(PowerCutTest, BeforeAnErase) {
  EXPECT_EQ(after_cut(1, CutKind::before), Bytes(2048, 0x00));
}

TEST_F(PowerCutTest, AfterAnErase) {
  EXPECT_EQ(after_cut(1, CutKind::after), Bytes(2048, 0xFF));
}

TEST_F(PowerCutTest, InTheMiddleOfAnErase) {
  EXPECT_EQ(after_cut(1, CutKind::torn), joined({{1024, 0xFF}, {1024, 0x00}}));
  device().power_on(sim::System::a);
  EXPECT_EQ(after_cut(1, CutKind::torn, {}, 3), joined({{1536, 0xFF}, {512, 0x00}}));
}

TEST_F(PowerCutTest, WithAnUnstableErase) {
  const Bytes once = after_cut(1, CutKind::unstable);
  Bytes again(2048);
  device().nand().read(10 * 2048, again.data(), again.size());
  EXPECT_NE(once, again);
}

TEST_F(PowerCutTest, BeforeAndAfterAProgram) {
  EXPECT_EQ(after_cut(3, CutKind::before), joined({{512, 0x55}, {1536, 0xFF}}));
  device().power_on(sim::System::a);
  EXPECT_EQ(after_cut(3, CutKind::after), joined({{1024, 0x55}, {1024, 0xFF}}));
}

TEST_F(PowerCutTest, InTheMiddleOfAProgram) {
  EXPECT_EQ(after_cut(2, CutKind::torn), joined({{256, 0x55}, {1792, 0xFF}}));
  device().power_on(sim::System::a);
  EXPECT_EQ(after_cut(2, CutKind::torn, 10), joined({{10, 0x55}, {2038, 0xFF}}));
}

TEST_F(PowerCutTest, WithAnUnstableProgram) {
  const Bytes once = after_cut(2, CutKind::unstable);
  for (const std::uint8_t byte : once) {
    EXPECT_EQ(byte & 0x55, 0x55);
  }
  EXPECT_NE(Bytes(once.begin(), once.begin() + 512), Bytes(512, 0xFF));
}

TEST_F(PowerCutTest, DoesNotStrikeAgain) {
  after_cut(5, CutKind::before);
  EXPECT_EQ(device().flash_operations(), 5U);
  sim::boot(device());
  partition("kernel").set_write_protected(false);
  EXPECT_EQ(rewrite(), 0);
}

TEST_F(PowerCutTest, LeavesADeadDeviceToAHandlerThatReturns) {
  bool told = false;
  sim::on_power_cut([&told] { told = true; });
  device().faults().set_power_cut({2, CutKind::before, {}, {}});
  partition("kernel").set_write_protected(false);
  EXPECT_EQ(rewrite(), 1);
  EXPECT_TRUE(told);
  EXPECT_EQ(rewrite(), 1);
  sim::on_power_cut(nullptr);
}

}  // namespace
