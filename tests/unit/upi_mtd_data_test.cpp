// SPDX-License-Identifier: Apache-2.0
//
// Reading and writing any length, block by block: read_mtd_partition_data() and
// write_mtd_partition_data().
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "opened_partition.h"
#include "tests/support/device_test.h"
#include "upi_mtd.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

constexpr std::size_t kBlock = 2048;

// The 8 blocks of kernel, of which 1 and 4 are bad, and of rootfs.
class MtdDataTest : public support::DeviceTest {
 protected:
  MtdDataTest() {
    sim::Layout layout = sim::test_layout();
    layout.partitions.at(1).bad = {1, 4};
    use(layout);
    partition("kernel").flash(support::pattern(6 * kBlock, 3));
    partition("rootfs").flash(support::pattern(8 * kBlock, 4));
    for (const char* name : {"kernel", "rootfs"}) {
      partition(name).set_write_protected(false);
    }
  }
  Lines read(partition_mtd_info_t* info, int offset, int len) {
    buffer_.assign(8 * kBlock, 0x55);
    return logged([&] {
      result_ = read_mtd_partition_data(info, offset, len, reinterpret_cast<char*>(buffer_.data()));
    });
  }
  Lines write(partition_mtd_info_t* info, int offset, int len) {
    return logged([&] { result_ = write_mtd_partition_data(info, offset, len, buffer_.data()); });
  }
  sim::Bytes got(std::size_t size) const {
    return sim::Bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(size));
  }
  std::vector<Op> ops(const sim::Recording& recording) const {
    std::vector<Op> seen;
    for (const sim::Call& call : recording.calls()) {
      if (!call.partition.empty()) {
        seen.push_back(call.op);
      }
    }
    return seen;
  }
  int result_ = -2;
  sim::Bytes buffer_ = support::pattern(8 * kBlock, 9);
};

sim::Bytes slice(const sim::Bytes& data, std::size_t from, std::size_t size) {
  const auto start = data.begin() + static_cast<std::ptrdiff_t>(from);
  return sim::Bytes(start, start + static_cast<std::ptrdiff_t>(size));
}

// --- Reading ------------------------------------------------------------------------------------

Lines read_begin(int len, int offset) {
  return said_by("read_mtd_partition_data",
                 {"read_mtd_partition_data func begin!",
                  "Read mtd partition data, total read len:" + std::to_string(len) +
                      ", offset:" + std::to_string(offset)});
}
const Lines kReadEnd = said_by("read_mtd_partition_data", {"read_mtd_partition_data func end!"});

TEST_F(MtdDataTest, ReadsAcrossBadBlocks) {
  OpenedPartition kernel(partition("kernel"));
  read(kernel.info(), 0, 6 * kBlock);
  EXPECT_EQ(result_, static_cast<int>(6 * kBlock));
  EXPECT_EQ(got(6 * kBlock), partition("kernel").good());
}

TEST_F(MtdDataTest, ReadsBlockByBlockWithARest) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording;
  const Lines lines = read(rootfs.info(), kBlock, 2 * kBlock + 100);
  EXPECT_EQ(result_, 2 * 2048 + 100);
  EXPECT_EQ(got(2 * kBlock + 100), slice(partition("rootfs").raw(), kBlock, 2 * kBlock + 100));
  EXPECT_EQ(buffer_[2 * kBlock + 100], 0x55);
  EXPECT_EQ(lines, read_begin(4196, 2048) + kReadEnd);

  const auto reads = recording.calls(Op::read, "rootfs");
  ASSERT_EQ(reads.size(), 3U);
  EXPECT_EQ(reads[0].length, kBlock);
  EXPECT_EQ(reads[1].length, kBlock);
  EXPECT_EQ(reads[2].length, 100U);
  EXPECT_EQ(reads[2].offset, 3 * kBlock);
  // Blocks 1, 2 and 3 are asked for, each from block 0 on.
  EXPECT_EQ(partition("rootfs").count(Op::memgetbadblock), 2U + 3U + 4U);
}

// Pieces are a block long wherever they begin, and a piece is read in one go.
TEST_F(MtdDataTest, ReadsPiecesThatRunOnIntoTheNextBlock) {
  allow_rule_breaks();
  OpenedPartition kernel(partition("kernel"));
  read(kernel.info(), 100, kBlock);
  EXPECT_EQ(result_, static_cast<int>(kBlock));
  EXPECT_EQ(got(kBlock), slice(partition("kernel").raw(), 100, kBlock));
}

TEST_F(MtdDataTest, ReadsNothingForALengthBelowOne) {
  OpenedPartition rootfs(partition("rootfs"));
  for (const int len : {0, -1, INT_MIN}) {
    EXPECT_EQ(read(rootfs.info(), 5, len), read_begin(len, 5) + kReadEnd);
    EXPECT_EQ(result_, 0);
  }
  EXPECT_EQ(partition("rootfs").count(Op::read), 0U);
  EXPECT_EQ(partition("rootfs").count(Op::memgetbadblock), 0U);
}

TEST_F(MtdDataTest, GivesUpAtTheFirstReadThatFails) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::read, "rootfs", 2, EIO});
  const Lines lines = read(rootfs.info(), 0, 3 * kBlock);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").count(Op::read), 2U);
  EXPECT_EQ(lines, read_begin(6144, 0) +
                       said_by("VEMK_ReadImage",
                               {"Read len (-1) < need len (2048)!", "VEMK_ReadImage fail"}));
}

TEST_F(MtdDataTest, ReadsNoFurtherThanTheLastGoodBlock) {
  OpenedPartition kernel(partition("kernel"));
  const Lines lines = read(kernel.info(), 5 * kBlock, kBlock + 1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().function, "VEMK_ReadImage");
  EXPECT_EQ(lines.back().message,
            "Start address (16384) or new start address (16385) out of partition total size "
            "(16384)!");
}

TEST_F(MtdDataTest, ReadingEndsWithoutABlockSize) {
  OpenedPartition rootfs(partition("rootfs"));
  rootfs.info()->mtd_blocksize = 0;
  read(rootfs.info(), 0, 10);
  EXPECT_EQ(result_, -1);
}

TEST_F(MtdDataTest, ReadingEndsWhereOffsetsEnd) {
  OpenedPartition rootfs(partition("rootfs"));
  read(rootfs.info(), INT_MAX - 100, INT_MAX);
  EXPECT_EQ(result_, -1);
}

// --- Writing ------------------------------------------------------------------------------------

Lines write_begin(const OpenedPartition& partition) {
  return said_by("write_mtd_partition_data", {"write_mtd_partition_data func begin!",
                                              "Mtd fd:" + std::to_string(partition.fd())});
}
const Lines kWriteEnd = said_by("write_mtd_partition_data", {"write_mtd_partition_data func end!"});

TEST_F(MtdDataTest, FillsTheLastBlockUp) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  const Lines lines = write(rootfs.info(), 0, 2 * kBlock + kBlock / 2);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(lines, write_begin(rootfs) + kWriteEnd);

  sim::Bytes expected = slice(buffer_, 0, 2 * kBlock + kBlock / 2);
  expected.resize(3 * kBlock, 0xFF);
  EXPECT_EQ(slice(partition("rootfs").raw(), 0, 3 * kBlock), expected);
  EXPECT_EQ(slice(partition("rootfs").raw(), 3 * kBlock, 5 * kBlock),
            slice(before, 3 * kBlock, 5 * kBlock));
}

TEST_F(MtdDataTest, WritesAcrossBadBlocks) {
  OpenedPartition kernel(partition("kernel"));
  const sim::Bytes bad_block = partition("kernel").block(4);
  write(kernel.info(), 0, 6 * kBlock);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(partition("kernel").good(), slice(buffer_, 0, 6 * kBlock));
  EXPECT_EQ(partition("kernel").block(4), bad_block);
}

TEST_F(MtdDataTest, WritesFromAnyBlockOn) {
  OpenedPartition kernel(partition("kernel"));
  write(kernel.info(), 3 * kBlock, kBlock + 1);
  EXPECT_EQ(result_, 0);
  sim::Bytes expected = slice(buffer_, 0, kBlock + 1);
  expected.resize(2 * kBlock, 0xFF);
  EXPECT_EQ(slice(partition("kernel").good(), 3 * kBlock, 2 * kBlock), expected);
}

TEST_F(MtdDataTest, ErasesEachBlockRightBeforeItWritesIt) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording;
  write(rootfs.info(), 0, kBlock + 1);
  EXPECT_EQ(ops(recording), (std::vector<Op>{Op::memerase, Op::lseek, Op::write,  //
                                             Op::memerase, Op::lseek, Op::write}));
  for (const sim::Call& call : recording.calls(Op::write, "rootfs")) {
    EXPECT_EQ(call.length, kBlock);
  }
  for (const sim::Call& call : recording.calls(Op::memerase, "rootfs")) {
    EXPECT_EQ(call.length, kBlock);
  }
}

TEST_F(MtdDataTest, AsksForTheBadBlocksAnewForEveryBlock) {
  OpenedPartition rootfs(partition("rootfs"));
  write(rootfs.info(), 0, 8 * kBlock);
  EXPECT_EQ(partition("rootfs").count(Op::memgetbadblock), 8U * 9U / 2U);

  // Logical blocks 0 to 5 are the physical ones 0, 2, 3, 5, 6, 7.
  OpenedPartition kernel(partition("kernel"));
  write(kernel.info(), 0, 6 * kBlock);
  EXPECT_EQ(partition("kernel").count(Op::memgetbadblock), 1U + 3U + 4U + 6U + 7U + 8U);
}

TEST_F(MtdDataTest, NeedsNoMemoryForWholeBlocks) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::malloc, "libzozale.so", 1, ENOMEM, true});
  const sim::AllocationWatch watch;
  write(rootfs.info(), 0, 2 * kBlock);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(device().faults().struck(), 0U);
}

TEST_F(MtdDataTest, ReportsThatTheLastBlockGotNoMemory) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  device().faults().add({Op::malloc, "libzozale.so", 1, ENOMEM});
  Lines lines;
  {
    const sim::AllocationWatch watch;
    lines = write(rootfs.info(), 0, kBlock + 1);
  }
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, write_begin(rootfs) +
                       said_by("write_mtd_partition_data", {"Malloc for the lash block fail!"}));
  EXPECT_EQ(partition("rootfs").block(0), slice(buffer_, 0, kBlock));
  EXPECT_EQ(partition("rootfs").block(1), slice(before, kBlock, kBlock));
}

TEST_F(MtdDataTest, WritesNothingForALengthBelowOne) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Recording recording({true});
  for (const int len : {0, -1, INT_MIN}) {
    EXPECT_EQ(write(rootfs.info(), 0, len), write_begin(rootfs) + kWriteEnd);
    EXPECT_EQ(result_, 0);
  }
  EXPECT_TRUE(ops(recording).empty());
}

TEST_F(MtdDataTest, GivesUpAtTheFirstBlockThatCannotBeWritten) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  partition("rootfs").set_erase_defect(1, sim::EraseDefect::worn);
  const Lines lines = write(rootfs.info(), 0, 3 * kBlock);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            write_begin(rootfs) +
                said_by("VEMK_WriteBlock", {"Ioctl [MEMERASE] error, error: " + shown_error(EIO)}) +
                said_by("write_mtd_partition_data", {"Write data to mtd fail!"}));
  EXPECT_EQ(partition("rootfs").block(0), slice(buffer_, 0, kBlock));
  EXPECT_EQ(slice(partition("rootfs").raw(), 2 * kBlock, 6 * kBlock),
            slice(before, 2 * kBlock, 6 * kBlock));
  EXPECT_EQ(partition("rootfs").count(Op::write), 1U);
}

TEST_F(MtdDataTest, GivesUpWhenTheLastPieceCannotBeWritten) {
  OpenedPartition rootfs(partition("rootfs"));
  device().faults().add({Op::write, "rootfs", 1, EIO});
  const Lines lines = write(rootfs.info(), 0, 10);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().message, "Write data to mtd fail!");
}

TEST_F(MtdDataTest, WritesNoMoreThanTheGoodBlocksHold) {
  OpenedPartition kernel(partition("kernel"));
  const Lines lines = write(kernel.info(), 0, 6 * kBlock + 1);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("kernel").good(), slice(buffer_, 0, 6 * kBlock));
  EXPECT_EQ(
      only(lines, {"VEMK_WriteBlock"}),
      said_by("VEMK_WriteBlock", {"Start address[16384] out of partition total size[16384]!"}));
  EXPECT_EQ(lines.back().message, "Write data to mtd fail!");
}

TEST_F(MtdDataTest, WritingRefusesAnUnalignedOffset) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  const Lines lines = write(rootfs.info(), 100, kBlock);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").raw(), before);
  EXPECT_EQ(only(lines, {"VEMK_WriteBlock"}),
            said_by("VEMK_WriteBlock", {"Ioctl [MEMERASE] error, error: " + shown_error(EINVAL)}));
}

TEST_F(MtdDataTest, WritingEndsWithoutABlockSize) {
  OpenedPartition rootfs(partition("rootfs"));
  const sim::Bytes before = partition("rootfs").raw();
  rootfs.info()->mtd_blocksize = 0;
  write(rootfs.info(), 0, 10);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(partition("rootfs").raw(), before);
}

TEST_F(MtdDataTest, WritingEndsWhereOffsetsEnd) {
  OpenedPartition rootfs(partition("rootfs"));
  write(rootfs.info(), INT_MAX - 2047, 2 * kBlock);
  EXPECT_EQ(result_, -1);
}

}  // namespace
