// SPDX-License-Identifier: Apache-2.0
//
// Erasing a partition: mtd_erase_partition().
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "tests/support/device_test.h"
#include "upi_mtd.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

constexpr std::size_t kBlock = 2048;

class MtdEraseTest : public support::DeviceTest {
 protected:
  // A partition that holds data and may be written.
  sim::Partition filled(const std::string& name) {
    sim::Partition part = partition(name);
    part.flash(support::pattern(part.good_blocks() * kBlock));
    part.set_write_protected(false);
    return part;
  }
  Lines erase(int target, const char* name) {
    return logged([&] { result_ = mtd_erase_partition(target, name); });
  }
  int result_ = -2;
};

Lines begin(const std::string& name, const std::string& real) {
  return said_by("mtd_erase_partition", {"mtd_erase_partition func begin!",
                                         "partition name:" + name + ", real name:" + real});
}

Lines found(const std::string& name, const std::string& path) {
  return said_by("mtd_find", {"partition name:" + name + ", type:0", "o_mtd_path=[" + path + "]"});
}

Lines says(std::initializer_list<std::string> messages) {
  return said_by("mtd_erase_partition", messages);
}

const std::string kEnd = "mtd_erase_partition func end!";

sim::Bytes erased(std::size_t blocks) {
  return sim::Bytes(blocks * kBlock, 0xFF);
}

TEST_F(MtdEraseTest, ErasesThePartitionOfTheTargetSystem) {
  const sim::Partition a = filled("kernel");
  const sim::Partition b = filled("kernel2");
  const sim::Bytes content = a.raw();

  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(b.raw(), erased(8));
  EXPECT_EQ(a.raw(), content);
  EXPECT_EQ(lines, begin("kernel", "kernel2") + found("kernel2", "/dev/mtd2") + says({kEnd}));
}

TEST_F(MtdEraseTest, ErasesTheFirstSystemsPartitionForEveryOtherTarget) {
  const sim::Partition b = filled("kernel2");
  const sim::Bytes content = b.raw();
  for (const int target : {1, 0, -1, 3, INT_MAX}) {
    const sim::Partition a = filled("kernel");
    const Lines lines = erase(target, "kernel");
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(a.raw(), erased(8));
    EXPECT_EQ(lines.at(1).message, "partition name:kernel, real name:kernel");
  }
  EXPECT_EQ(b.raw(), content);
}

TEST_F(MtdEraseTest, AsksAboutAndErasesEachBlockOnce) {
  filled("kernel2");
  const sim::Recording recording({true});
  erase(2, "kernel");

  std::vector<Op> ops;
  for (const sim::Call& call : recording.calls()) {
    if (call.partition == "kernel2") {
      ops.push_back(call.op);
    }
  }
  std::vector<Op> expected = {Op::open, Op::memgetinfo};
  for (int block = 0; block < 8; ++block) {
    expected.insert(expected.end(), {Op::memgetbadblock, Op::memerase64});
  }
  expected.push_back(Op::close);
  EXPECT_EQ(ops, expected);
}

TEST_F(MtdEraseTest, NamesEachBlockByItsByteOffset) {
  filled("kernel2");
  const sim::Recording recording({true});
  erase(2, "kernel");

  const auto queries = recording.calls(Op::memgetbadblock, "kernel2");
  const auto erases = recording.calls(Op::memerase64, "kernel2");
  ASSERT_EQ(queries.size(), 8U);
  ASSERT_EQ(erases.size(), 8U);
  for (std::size_t block = 0; block < 8; ++block) {
    EXPECT_EQ(queries[block].offset, block * kBlock);
    EXPECT_EQ(erases[block].offset, block * kBlock);
    EXPECT_EQ(erases[block].length, kBlock);
  }
}

TEST_F(MtdEraseTest, OpensTheRawNodeForSynchronousWrites) {
  filled("kernel2");
  const sim::Recording recording;
  erase(2, "kernel");
  const auto opens = recording.calls(Op::open, "kernel2");
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].path, "/dev/mtd2");
  EXPECT_EQ(opens[0].flags, 0x1002);
}

TEST_F(MtdEraseTest, LeavesBadBlocksAlone) {
  sim::Partition part = partition("kernel2");
  part.set_bad(0);
  part.set_bad(5);
  part.poke(0, support::pattern(kBlock, 8));
  part.poke(5 * kBlock, support::pattern(kBlock, 9));
  filled("kernel2");

  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(part.good(), erased(6));
  EXPECT_EQ(part.block(0), support::pattern(kBlock, 8));
  EXPECT_EQ(part.block(5), support::pattern(kBlock, 9));
  EXPECT_EQ(part.count(Op::memerase64), 6U);
  EXPECT_EQ(lines, begin("kernel", "kernel2") + found("kernel2", "/dev/mtd2") +
                       says({"Mtd, not erasing bad block at 0x0",
                             "Mtd, not erasing bad block at 0x2800", kEnd}));
}

TEST_F(MtdEraseTest, SkipsABlockThatCannotBeAskedAbout) {
  const sim::Partition part = filled("kernel2");
  device().faults().add({Op::memgetbadblock, "kernel2", 3, EIO});
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(part.count(Op::memerase64), 7U);
  EXPECT_NE(part.block(2), erased(1));
  EXPECT_TRUE(
      support::has_line(lines, {"mtd_erase_partition", "Mtd, not erasing bad block at 0x1000"}));
}

TEST_F(MtdEraseTest, GoesOnBehindABlockThatCannotBeErased) {
  sim::Partition part = filled("kernel2");
  part.set_erase_defect(2, sim::EraseDefect::worn);
  part.set_erase_defect(7, sim::EraseDefect::worn);

  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(part.block(3), erased(1));
  EXPECT_EQ(part.count(Op::memerase64), 8U);
  EXPECT_FALSE(part.is_bad(2));
  const std::string why = ", error:" + shown_error(EIO);
  EXPECT_EQ(lines, begin("kernel", "kernel2") + found("kernel2", "/dev/mtd2") +
                       says({"Mtd, erasing failure at 0x1000" + why,
                             "Mtd, erasing failure at 0x3800" + why, kEnd}));
}

TEST_F(MtdEraseTest, SucceedsOnAWriteProtectedPartition) {
  sim::Partition part = filled("kernel2");
  part.set_write_protected(true);
  const sim::Bytes content = part.raw();
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(part.raw(), content);
  EXPECT_EQ(support::count_line(lines, {"mtd_erase_partition",
                                        "Mtd, erasing failure at 0x800"
                                        ", error:" +
                                            shown_error(EROFS)}),
            1U);
  EXPECT_EQ(part.count(Op::memerase64), 8U);
}

TEST_F(MtdEraseTest, SaysNothingMoreOfANullName) {
  const sim::Recording recording;
  const Lines lines = erase(2, nullptr);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, says({"mtd_erase_partition func begin!"}));
  EXPECT_TRUE(recording.calls(Op::fopen, "/proc/mtd").empty());
}

TEST_F(MtdEraseTest, ReportsAPartitionThatIsNotListedUnderItsTableName) {
  errno = 0;
  const Lines lines = erase(2, "boot");
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, begin("boot", "boot2") +
                       said_by("mtd_find", {"partition name:boot2, type:0",
                                            "Get info from mtd error:" + shown_error(0)}) +
                       says({"Mtd_find boot failed"}));
}

TEST_F(MtdEraseTest, ReportsANodeThatCannotBeOpened) {
  const sim::Partition part = filled("kernel2");
  const sim::Bytes content = part.raw();
  device().faults().add({Op::open, "kernel2", 1, EBUSY});
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(part.raw(), content);
  EXPECT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines.back().function, "mtd_erase_partition");
  EXPECT_EQ(lines.back().message, "Open partition [kernel] error, error:" + shown_error(EBUSY));
}

TEST_F(MtdEraseTest, ReportsAGeometryThatCannotBeRead) {
  const sim::Partition part = filled("kernel2");
  const sim::Bytes content = part.raw();
  device().faults().add({Op::memgetinfo, "kernel2", 1, ENODEV});
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(part.raw(), content);
  EXPECT_EQ(lines, begin("kernel", "kernel2") + found("kernel2", "/dev/mtd2") +
                       says({"Get partition [kernel] info error:" + shown_error(ENODEV), kEnd}));
}

TEST_F(MtdEraseTest, KeepsItsResultWhenTheNodeCannotBeClosed) {
  const sim::Partition part = filled("kernel2");
  device().faults().add({Op::close, "kernel2", 1, EIO});
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(part.raw(), erased(8));
  EXPECT_EQ(only(lines, {"mtd_erase_partition"}).at(2).message,
            "Close partition [kernel] fd fail, error:" + shown_error(EIO));
  EXPECT_EQ(lines.back().message, kEnd);
}

TEST_F(MtdEraseTest, ErasesThePartThatIsLessThanABlock) {
  const sim::Partition part = filled("kernel2");
  partition("kernel2").set_reported_info(sim::MtdInfo{2 * kBlock + 1, kBlock, 512, 16});
  erase(2, "kernel");
  EXPECT_EQ(part.count(Op::memerase64), 3U);
  EXPECT_EQ(part.block(2), erased(1));
  EXPECT_NE(part.block(3), erased(1));
}

TEST_F(MtdEraseTest, ErasesNothingOfAPartitionOfNoSize) {
  filled("kernel2");
  for (const sim::MtdInfo& info :
       {sim::MtdInfo{0, kBlock, 512, 16}, sim::MtdInfo{16384, 0, 0, 0}}) {
    partition("kernel2").set_reported_info(info);
    erase(2, "kernel");
    EXPECT_EQ(result_, 0);
  }
  EXPECT_EQ(partition("kernel2").count(Op::memerase64), 0U);
}

// The offsets are 64 bits wide: neither negative past 2 GiB nor zero again past 4 GiB.
TEST_F(MtdEraseTest, CountsPast2GiBAndStopsAt4GiB) {
  filled("kernel2");
  partition("kernel2").set_reported_info(sim::MtdInfo{0xFFFFFFFF, 0x80000000, 2048, 64});
  const sim::Recording recording({true});
  const Lines lines = erase(2, "kernel");
  EXPECT_EQ(result_, 0);
  const auto queries = recording.calls(Op::memgetbadblock, "kernel2");
  ASSERT_EQ(queries.size(), 2U);
  EXPECT_EQ(queries[0].offset, 0U);
  EXPECT_EQ(queries[1].offset, 0x80000000U);
  const auto erases = recording.calls(Op::memerase64, "kernel2");
  ASSERT_EQ(erases.size(), 1U);
  EXPECT_EQ(erases[0].length, 0x80000000U);
  EXPECT_EQ(only(lines, {"mtd_erase_partition"}).at(3).message,
            "Mtd, not erasing bad block at 0x80000000");
}

// A name keeps 30 characters, the digit of system B included.
TEST_F(MtdEraseTest, CutsNamesTo30Characters) {
  const auto real_name = [&](int target, std::size_t length) {
    const std::string line = erase(target, std::string(length, 'n').c_str()).at(1).message;
    return line.substr(line.find("real name:") + 10);
  };
  EXPECT_EQ(real_name(2, 29), std::string(29, 'n') + "2");
  EXPECT_EQ(real_name(2, 30), std::string(30, 'n'));
  EXPECT_EQ(real_name(1, 30), std::string(30, 'n'));
  EXPECT_EQ(real_name(1, 31), std::string(30, 'n'));
  EXPECT_EQ(real_name(2, 32), std::string(30, 'n'));
  EXPECT_EQ(real_name(2, 300), std::string(30, 'n'));
}

}  // namespace
