// SPDX-License-Identifier: Apache-2.0
//
// The flash functions at addresses with the highest bit set.
//
// A block is asked about by its 32-bit offset with the sign carried on, so from 2 GiB on the
// kernel refuses to answer and every block counts as bad: the good blocks of a larger partition
// end at 2 GiB. Erasing asks with 64 bits and reaches all of it.
#include <climits>

#include "upi_img_interface.h"
#include "wide_test.h"

namespace {

using sim::Op;
using support::logged;
using Lines = std::vector<support::LogLine>;

class FlashWidthTest : public WideTest {
 protected:
  unsigned long translate(partition_mtd_info_t* info, std::uint32_t address) {
    unsigned long good = 0;
    int bad_blocks = 0;
    log_ = logged([&] { good = translateToGoodAddress(info, address, &bad_blocks); });
    return good;
  }
  int read(OpenWide& kernel, std::uint32_t address, int size) {
    int result = 1;
    log_ = logged(
        [&] { result = VEMK_ReadImage(kernel.info(), bytes_.data(), as_int(address), size); });
    return result;
  }
  int write_block(OpenWide& kernel, std::uint32_t address) {
    int result = 1;
    log_ = logged([&] { result = VEMK_WriteBlock(kernel.info(), as_int(address), bytes_.data()); });
    return result;
  }
  Lines said(const std::string& function) const { return lines_of(log_, function); }

  sim::Bytes bytes_ = support::pattern(kBlock);
  Lines log_;
};

// --- Geometry -----------------------------------------------------------------------------------

TEST_F(FlashWidthTest, ShowsSizesPastTwoGigabytesAsNegative) {
  use_wide();
  partition_mtd_info_t info{};
  int result = 1;
  const Lines lines = logged([&] { result = get_partition_mtd_info("kernel", DEVICE_MTD, &info); });
  close(info.parti_file_desc);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(info.mtd_totalsize, kTotal);
  EXPECT_EQ(info.mtd_blocksize, kBlock);
  EXPECT_TRUE(support::has_line(lines, {"get_partition_mtd_info", "Mtd totalsize:-4194304:"}));
}

TEST_F(FlashWidthTest, TakesTheLargestSizeThatCanBeReported) {
  use_wide();
  partition("kernel").set_reported_info(sim::MtdInfo{0xFFFFFFFF, 0x80000000, 0x80000000, 64});
  OpenWide kernel("kernel");
  EXPECT_EQ(kernel.info()->mtd_totalsize, 0xFFFFFFFFU);
  EXPECT_EQ(kernel.info()->mtd_blocksize, 0x80000000U);
  EXPECT_EQ(kernel.info()->mtd_pageperblock, 1U);
}

TEST_F(FlashWidthTest, ShowsAListedSizeAsNegative) {
  use_wide();
  char name[] = "kernel";
  const std::vector<std::pair<const char*, const char*>> sizes = {
      {"7fffffff", "2147483647"}, {"80000000", "-2147483648"}, {"ffffffff", "-1"}};
  for (const auto& [listed, shown] : sizes) {
    device().write_file("/proc/mtd", "mtd1: " + std::string(listed) + " 00400000 \"kernel\"\n");
    const Lines lines = logged([&] { EXPECT_EQ(is_partition_exist(1, name), 0); });
    EXPECT_TRUE(support::has_line(
        lines, {"is_partition_exist", "Mtd :[kernel] exist, size:" + std::string(shown)}))
        << listed;
  }
}

// --- Addresses ----------------------------------------------------------------------------------

TEST_F(FlashWidthTest, CarriesTheSignOfABlockOffsetOn) {
  use_wide();
  OpenWide kernel("kernel");
  const sim::Recording recording({true});
  int answer = 0;
  const Lines lines = logged([&] { answer = checkGoodAddress(kernel.fd(), INT_MIN); });
  EXPECT_NE(answer, 0);
  const auto asked = recording.calls(Op::memgetbadblock);
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_EQ(asked[0].offset, 0xFFFFFFFF80000000U);
  EXPECT_EQ(asked[0].error, EINVAL);
  const std::string fd = std::to_string(kernel.fd());
  EXPECT_EQ(lines, (Lines{{"checkGoodAddress", "Partition file description:" + fd +
                                                   ", BAD address [-2147483648], errno "
                                                   "no:22[Invalid argument]"}}));
}

TEST_F(FlashWidthTest, FindsTheLastBlockBelowTwoGigabytes) {
  use_wide();
  OpenWide kernel("kernel");
  EXPECT_EQ(translate(kernel.info(), kLow), kLow);
  EXPECT_EQ(translate(kernel.info(), kHigh - 1), kHigh - 1);
  EXPECT_TRUE(log_.empty());
}

TEST_F(FlashWidthTest, FindsNoBlockFromTwoGigabytesOn) {
  use_wide();
  OpenWide kernel("kernel");
  for (const std::uint32_t address : {kHigh, kHigh + kBlock, kTotal - kBlock, kTotal}) {
    EXPECT_EQ(translate(kernel.info(), address), kTotal);
    EXPECT_EQ(said("checkGoodAddress").size(), kBlocks - kHighBlock);
    EXPECT_EQ(said("translateToGoodAddress").front().message, "Index:512, bad block!");
    EXPECT_EQ(said("translateToGoodAddress").back().message, "Index:1022, bad block!");
  }
}

TEST_F(FlashWidthTest, KeepsTheOffsetWithinTheBlockAtTheEndOfTheRange) {
  use_wide();
  OpenWide kernel("kernel");
  EXPECT_EQ(translate(kernel.info(), kHigh + 100), kTotal + 100);
  EXPECT_EQ(translate(kernel.info(), 0xFFFFFFFF), 0xFFFFFFFFU);
}

TEST_F(FlashWidthTest, ABadBlockTakesTheLastLogicalBlockAway) {
  use_wide({3});
  OpenWide kernel("kernel");
  EXPECT_EQ(translate(kernel.info(), kLow - kBlock), kLow);
  EXPECT_EQ(translate(kernel.info(), kLow), kTotal);
}

// Before the first good block the count stands at -1, whose product with the block size is the
// address of the block that 32 bits end with.
TEST_F(FlashWidthTest, TheLastAddressesMeetABadFirstBlock) {
  use_wide({0, 1});
  OpenWide kernel("kernel");
  const std::uint64_t asked = partition("kernel").count(Op::memgetbadblock);
  EXPECT_EQ(translate(kernel.info(), 0U - kBlock), 0U);
  EXPECT_EQ(translate(kernel.info(), 0xFFFFFFFF), kBlock - 1);
  EXPECT_EQ(partition("kernel").count(Op::memgetbadblock) - asked, 2U);
}

TEST_F(FlashWidthTest, MoreBlocksThanAnIntHoldsAreNone) {
  use_wide();
  OpenWide kernel("kernel");
  const std::uint64_t asked = partition("kernel").count(Op::memgetbadblock);
  for (const std::uint32_t total : {0x80000000U, 0xFFFFFFFFU}) {
    kernel.info()->mtd_totalsize = total;
    kernel.info()->mtd_blocksize = 1;
    EXPECT_EQ(translate(kernel.info(), 5), 0U);
  }
  EXPECT_EQ(partition("kernel").count(Op::memgetbadblock), asked);
  kernel.info()->mtd_totalsize = 0x7FFFFFFF;
  EXPECT_EQ(translate(kernel.info(), 5), 5U);
}

TEST_F(FlashWidthTest, ABlockOfTwoGigabytesIsOne) {
  use_wide();
  OpenWide kernel("kernel");
  kernel.info()->mtd_totalsize = 0xFFFFFFFF;
  kernel.info()->mtd_blocksize = kHigh;
  EXPECT_EQ(translate(kernel.info(), 0x7FFFFFFF), 0x7FFFFFFFU);
  EXPECT_EQ(translate(kernel.info(), kHigh), kHigh);
  EXPECT_EQ(translate(kernel.info(), 0xFFFFFFFF), 0xFFFFFFFFU);
}

// --- Reading ------------------------------------------------------------------------------------

TEST_F(FlashWidthTest, ReadsOverTwoGigabytesWithinOneRead) {
  use_wide();
  partition("kernel").poke(kHigh - 16, support::pattern(32, 7));
  OpenWide kernel("kernel");
  const sim::Recording recording;
  EXPECT_EQ(read(kernel, kHigh - 16, 32), 0);
  EXPECT_EQ(sim::Bytes(bytes_.begin(), bytes_.begin() + 32), support::pattern(32, 7));
  const auto sought = recording.calls(Op::lseek, "kernel");
  ASSERT_EQ(sought.size(), 1U);
  EXPECT_EQ(sought[0].offset, kHigh - 16);
}

TEST_F(FlashWidthTest, ReadsNothingFromTwoGigabytesOn) {
  use_wide();
  OpenWide kernel("kernel");
  const sim::Recording recording;
  EXPECT_EQ(read(kernel, kHigh, 16), -1);
  EXPECT_EQ(said("VEMK_ReadImage"),
            (Lines{{"VEMK_ReadImage",
                    "Start address (-4194304) or new start address (-4194288) out of partition "
                    "total size (-4194304)!"}}));
  EXPECT_TRUE(recording.calls(Op::read, "kernel").empty());
}

TEST_F(FlashWidthTest, ARangeThatPassesFourGigabytesStartsOutside) {
  use_wide();
  OpenWide kernel("kernel");
  EXPECT_EQ(read(kernel, 0xFFFFFFFF, 10), -1);
  EXPECT_EQ(said("VEMK_ReadImage").at(0).message,
            "Start address (-1) or new start address (9) out of partition total size (-4194304)!");
}

TEST_F(FlashWidthTest, TheEndOfARangeWrapsAtFourGigabytes) {
  use_wide();
  OpenWide kernel("kernel");
  EXPECT_EQ(read(kernel, 0, -1), -1);
  EXPECT_EQ(said("VEMK_ReadImage").at(0).message,
            "Start address (0) or new start address (-1) out of partition total size (-4194304)!");
  // One byte on, the sum is 0 and passes: the kernel is asked, and refuses.
  EXPECT_EQ(read(kernel, 1, -1), -1);
  EXPECT_EQ(log_, (Lines{{"VEMK_ReadImage", "Read len (-1) < need len (-1)!"},
                         {"VEMK_ReadImage", "VEMK_ReadImage fail"}}));
  EXPECT_EQ(read(kernel, kLow, INT_MIN), -1);
  EXPECT_EQ(log_, (Lines{{"VEMK_ReadImage", "Read len (-1) < need len (-2147483648)!"},
                         {"VEMK_ReadImage", "VEMK_ReadImage fail"}}));
}

TEST_F(FlashWidthTest, ReadsPiecesUpToTwoGigabytes) {
  use_wide();
  partition("kernel").poke(kLow, support::pattern(kBlock, 3));
  OpenWide kernel("kernel");
  sim::Bytes data(kBlock + 10);
  auto* to = reinterpret_cast<char*>(data.data());
  int result = 0;
  const auto read_data = [&](std::uint32_t offset, int len) {
    return logged(
        [&] { result = read_mtd_partition_data(kernel.info(), as_int(offset), len, to); });
  };
  static_cast<void>(read_data(kLow, as_int(kBlock)));
  EXPECT_EQ(result, as_int(kBlock));
  EXPECT_EQ(sim::Bytes(data.begin(), data.begin() + kBlock), support::pattern(kBlock, 3));
  const Lines lines = read_data(kLow, as_int(kBlock) + 10);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(lines_of(lines, "read_mtd_partition_data").back().message,
            "Read mtd partition data, total read len:4194314, offset:2143289344");
  EXPECT_EQ(lines_of(lines, "VEMK_ReadImage").at(0).message,
            "Start address (-4194304) or new start address (-4194294) out of partition total "
            "size (-4194304)!");
}

TEST_F(FlashWidthTest, NegativeLengthsReadNothing) {
  use_wide();
  OpenWide kernel("kernel");
  for (const int len : {-1, INT_MIN}) {
    const sim::Recording recording({true});
    char byte = 0;
    int result = 1;
    const Lines lines =
        logged([&] { result = read_mtd_partition_data(kernel.info(), INT_MIN, len, &byte); });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(recording.calls().empty());
    EXPECT_EQ(lines.at(1).message, "Read mtd partition data, total read len:" +
                                       std::to_string(len) + ", offset:-2147483648");
    EXPECT_EQ(lines.back().message, "read_mtd_partition_data func end!");
  }
}

// --- Writing ------------------------------------------------------------------------------------

TEST_F(FlashWidthTest, WritesTheLastBlockBelowTwoGigabytes) {
  use_wide();
  OpenWide kernel("kernel");
  const sim::Recording recording;
  EXPECT_EQ(write_block(kernel, kLow), 0);
  EXPECT_EQ(partition("kernel").block(kLowBlock), bytes_);
  EXPECT_EQ(partition("kernel").total_erases(), 1U);
  const auto erased = recording.calls(Op::memerase, "kernel");
  ASSERT_EQ(erased.size(), 1U);
  EXPECT_EQ(erased[0].offset, kLow);
  EXPECT_EQ(erased[0].length, kBlock);
}

TEST_F(FlashWidthTest, WritesNoBlockFromTwoGigabytesOn) {
  use_wide();
  OpenWide kernel("kernel");
  EXPECT_EQ(write_block(kernel, kHigh), -1);
  EXPECT_EQ(said("VEMK_WriteBlock").at(0).message,
            "Start address[-4194304] out of partition total size[-4194304]!");
  EXPECT_EQ(write_block(kernel, 0xFFFFFFFF), -1);
  EXPECT_EQ(said("VEMK_WriteBlock").at(0).message,
            "Start address[-1] out of partition total size[-4194304]!");
  EXPECT_EQ(partition("kernel").total_erases(), 0U);
}

TEST_F(FlashWidthTest, TheKernelRefusesTheBadFirstBlock) {
  use_wide({0});
  OpenWide kernel("kernel");
  const sim::Recording recording;
  EXPECT_EQ(write_block(kernel, 0U - kBlock), -1);
  EXPECT_EQ(said("VEMK_WriteBlock").at(0).message,
            "Ioctl [MEMERASE] error, error: 5[Input/output error]");
  EXPECT_EQ(recording.calls(Op::memerase, "kernel").at(0).offset, 0U);
}

TEST_F(FlashWidthTest, WritesPiecesUpToTwoGigabytes) {
  use_wide();
  OpenWide kernel("kernel");
  bytes_ = support::pattern(kBlock + 10);
  int result = 0;
  const Lines lines = logged([&] {
    result =
        write_mtd_partition_data(kernel.info(), as_int(kLow), as_int(kBlock) + 10, bytes_.data());
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(lines.back().message, "Write data to mtd fail!");
  EXPECT_EQ(partition("kernel").block(kLowBlock), support::pattern(kBlock));
  EXPECT_EQ(partition("kernel").total_erases(), 1U);
}

TEST_F(FlashWidthTest, NegativeLengthsWriteNothing) {
  use_wide();
  OpenWide kernel("kernel");
  for (const int len : {-1, INT_MIN}) {
    int result = 1;
    const Lines lines = logged(
        [&] { result = write_mtd_partition_data(kernel.info(), INT_MIN, len, bytes_.data()); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines.back().message, "write_mtd_partition_data func end!");
  }
  EXPECT_EQ(partition("kernel").total_erases(), 0U);
}

// --- Erasing ------------------------------------------------------------------------------------

TEST_F(FlashWidthTest, ErasesUpToTheEndAndTellsBadBlocksByTheirAddress) {
  use_wide({0, kLowBlock, kHighBlock, kBlocks - 1});
  int result = 1;
  const sim::Recording recording;
  const Lines lines = logged([&] { result = mtd_erase_partition(1, "kernel"); });
  EXPECT_EQ(result, 0);
  std::vector<std::string> skipped;
  for (const support::LogLine& line : lines) {
    if (line.message.rfind("Mtd, not", 0) == 0) {
      skipped.push_back(line.message);
    }
  }
  EXPECT_EQ(skipped, (std::vector<std::string>{"Mtd, not erasing bad block at 0x0",
                                               "Mtd, not erasing bad block at 0x7fc00000",
                                               "Mtd, not erasing bad block at 0x80000000",
                                               "Mtd, not erasing bad block at 0xff800000"}));
  EXPECT_EQ(partition("kernel").total_erases(), kBlocks - 4);
  const auto erased = recording.calls(Op::memerase64, "kernel");
  ASSERT_EQ(erased.size(), kBlocks - 4);
  EXPECT_EQ(erased.back().offset, kTotal - 2 * kBlock);
  EXPECT_EQ(erased.back().length, kBlock);
}

TEST_F(FlashWidthTest, ErasingALargestPartitionEnds) {
  use_wide();
  // One block more than there is: the kernel refuses to tell of it.
  partition("kernel").set_reported_info(sim::MtdInfo{0xFFFFFFFF, kBlock, 16384, 512});
  int result = 1;
  const Lines lines = logged([&] { result = mtd_erase_partition(1, "kernel"); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(partition("kernel").total_erases(), kBlocks);
  EXPECT_TRUE(support::has_line(
      lines, {"mtd_erase_partition", "Mtd, not erasing bad block at 0xffc00000"}));
  EXPECT_EQ(partition("kernel").count(Op::memgetbadblock), kBlocks + 1);
}

}  // namespace
