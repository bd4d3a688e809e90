// SPDX-License-Identifier: Apache-2.0
//
// Writing both copies of the boot flag record.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/unit/flags_test.h"
#include "upi_fotaflag_partition.h"

namespace unit {
namespace {

using support::logged;

const Lines kBackupBegin = {writing("begin to write backup fotaflag")};

std::string number(int value) {
  return std::to_string(value);
}

LogLine trying(int block) {
  return writing("Write main to [" + number(block) + "] block!");
}
LogLine main_at(int from, int to) {
  return writing("Main fotaflag location:[" + number(from) + "]->[" + number(to) + "]");
}
LogLine backup_at(int from, int to) {
  return writing("Backup fotaflag location:[" + number(from) + "]->[" + number(to) + "]");
}
LogLine skipped(int block) {
  return writing("Fotaflag index [" + number(block) + "] is bad block");
}
// The block writer's word on a bad block.
LogLine bad(int block) {
  return block_said("Ioctl [MEMGETBADBLOCK] block: " + number(block) +
                    " , change to be bad block errno: *");
}
LogLine turned_bad(int block) {
  return block_said("Ioctl [MEMGETBADBLOCK] block:" + number(block) +
                    " , change to be bad block errno: *");
}
const LogLine kNotLifted =
    block_said("Failed to enable mtd writeable!  error:5[Input/output error]");

class CopiesTest : public FlagsTest {
 protected:
  // Writes a sample to both copies; the current ones stand in these blocks.
  int write(int main_index = 0, int backup_index = 1) {
    main_ = main_index;
    backup_ = backup_index;
    T_FOTA_FLAG_INFO info;
    std::memcpy(&info, record_.bytes.data(), sizeof info);
    int result = -7;
    requests_ = requests_of([&] {
      lines_ = settled_log([&] { result = upi_set_boot_flags_content(&info, &main_, &backup_); });
    });
    EXPECT_EQ(std::memcmp(&info, record_.bytes.data(), sizeof info), 0);
    return result;
  }
  // Expects what became of the indexes, and what was said between the lookup and the end.
  void expect_written(int main_index, int backup_index, const Lines& middle) {
    EXPECT_EQ(main_, main_index);
    EXPECT_EQ(backup_, backup_index);
    EXPECT_EQ(lines_, kWriteBegin + middle + kWriteEnd);
  }
  // Expects that a write fails before any copy, with these lines.
  void expect_failure(const Lines& lines, const Requests& requests) {
    EXPECT_EQ(write(), -1);
    EXPECT_EQ(lines_,
              (Lines{writing("upi_set_boot_flags_content func begin!")} + found_flags() + lines));
    EXPECT_EQ(requests_, requests);
    EXPECT_EQ(main_, 0);
    EXPECT_EQ(backup_, 1);
    EXPECT_TRUE(flags().write_protected());
  }
  const sim::BootRecord& record() const { return record_; }
  const Lines& lines() const { return lines_; }
  const Requests& requests() const { return requests_; }

 private:
  sim::BootRecord record_ = sample_record(5);
  int main_ = 0;
  int backup_ = 0;
  Lines lines_;
  Requests requests_;
};

// --- Where the copies go. -----------------------------------------------------------------------

TEST_F(CopiesTest, StayInTheFirstTwoBlocks) {
  EXPECT_EQ(write(), 0);
  expect_written(0, 1, Lines{trying(0), main_at(0, 0)} + kBackupBegin + backup_at(1, 1));
  EXPECT_EQ(lines(), rewritten());
  expect_copy(0, record());
  expect_copy(1, record());
  for (std::uint32_t block = 2; block < 10; ++block) {
    expect_erased(block);
  }
  EXPECT_EQ(requests(), rewrite_both());
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(CopiesTest, TellTheDescriptor) {
  T_FOTA_FLAG_INFO info{};
  int main_index = 0;
  int backup_index = 1;
  const sim::Recording recording;
  const Lines lines =
      logged([&] { upi_set_boot_flags_content(&info, &main_index, &backup_index); });
  const auto opened = recording.calls(sim::Op::open, "flags");
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(lines.at(3), writing("Fotaflag partition fd:" + number(opened[0].fd)));
}

TEST_F(CopiesTest, MainIsWrittenBeforeBackup) {
  fail(sim::Op::memerase, EIO, 2);
  EXPECT_EQ(write(), 0);
  expect_copy(0, record());
  expect_erased(1);
}

TEST_F(CopiesTest, PassABadFirstBlockTwice) {
  use_flags(10, {0});
  EXPECT_EQ(write(1, 2), 0);
  expect_written(1, 2,
                 Lines{trying(0), bad(0), skipped(0), trying(1), main_at(1, 1)} + kBackupBegin +
                     bad(0) + backup_at(2, 2));
  expect_copy(1, record());
  expect_copy(2, record());
  expect_erased(3);
  EXPECT_EQ(requests(), (kOpened + "lift" + "bad? 0 yes" + writing_block(1) + "lift" +
                         "bad? 0 yes" + writing_block(2) + "close"));
}

TEST_F(CopiesTest, PassABadSecondBlock) {
  use_flags(10, {1});
  EXPECT_EQ(write(0, 2), 0);
  expect_written(0, 2, Lines{trying(0), main_at(0, 0)} + kBackupBegin + bad(1) + backup_at(2, 2));
  expect_copy(0, record());
  expect_copy(2, record());
}

TEST_F(CopiesTest, PassBadBlocksInTheMiddle) {
  use_flags(6, {0, 2, 3});
  EXPECT_EQ(write(1, 4), 0);
  expect_written(1, 4,
                 Lines{trying(0), bad(0), skipped(0), trying(1), main_at(1, 1)} + kBackupBegin +
                     bad(0) + bad(2) + bad(3) + backup_at(4, 4));
  expect_copy(1, record());
  expect_copy(4, record());
}

TEST_F(CopiesTest, MainKeepsOffTheBlockOfTheBackup) {
  EXPECT_EQ(write(1, 0), 0);
  expect_written(1, 0, Lines{trying(1), main_at(1, 1)} + kBackupBegin + backup_at(0, 0));
  expect_copy(0, record());
  expect_copy(1, record());
}

TEST_F(CopiesTest, MoveToTheFirstGoodBlocks) {
  EXPECT_EQ(write(5, 7), 0);
  expect_written(0, 1, Lines{trying(0), main_at(5, 0)} + kBackupBegin + backup_at(7, 1));
  expect_copy(0, record());
  expect_copy(1, record());
}

TEST_F(CopiesTest, MainMovesOnWhenItsBlockTurnsBad) {
  flags().set_erase_defect(0, sim::EraseDefect::turns_bad_passes);
  EXPECT_EQ(write(), 0);
  expect_written(2, 1,
                 Lines{trying(0), turned_bad(0), skipped(0), trying(2), main_at(0, 2)} +
                     kBackupBegin + bad(0) + backup_at(1, 1));
  expect_copy(1, record());
  expect_copy(2, record());
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(CopiesTest, BackupMovesOnWhenItsBlockTurnsBad) {
  flags().set_erase_defect(1, sim::EraseDefect::turns_bad_passes);
  EXPECT_EQ(write(), 0);
  expect_written(0, 2,
                 Lines{trying(0), main_at(0, 0)} + kBackupBegin + turned_bad(1) + backup_at(1, 2));
  expect_copy(0, record());
  expect_copy(2, record());
}

// --- One copy fails. ----------------------------------------------------------------------------

TEST_F(CopiesTest, FailedMainLeavesItsBlockToTheBackup) {
  fail(sim::Op::protect_lift, EIO);
  EXPECT_EQ(write(), 0);
  expect_written(
      -1, 0,
      Lines{trying(0), kNotLifted, writing("Write main Error")} + kBackupBegin + backup_at(1, 0));
  expect_copy(0, record());
  expect_erased(1);
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(CopiesTest, MainIsNotTriedElsewhereAfterAnError) {
  flags().set_erase_defect(0, sim::EraseDefect::turns_bad_fails);
  EXPECT_EQ(write(), 0);
  expect_written(
      -1, 1,
      Lines{trying(0), block_said("Ioctl [MEMERASE] block: 0 error, errno=5[Input/output error]!"),
            writing("Write main Error")} +
          kBackupBegin + bad(0) + backup_at(1, 1));
  expect_copy(1, record());
  expect_erased(2);
}

TEST_F(CopiesTest, FailedBackupIsSuccess) {
  fail(sim::Op::protect_lift, EIO, 2);
  EXPECT_EQ(write(), 0);
  expect_written(
      0, -1,
      Lines{trying(0), main_at(0, 0)} + kBackupBegin + kNotLifted + writing("Write backup Error"));
  expect_copy(0, record());
  expect_erased(1);
}

TEST_F(CopiesTest, EveryFailureOfAStepCountsForItsCopyOnly) {
  const sim::Op steps[] = {sim::Op::protect_lift, sim::Op::memerase, sim::Op::lseek,
                           sim::Op::write};
  for (const sim::Op step : steps) {
    use_flags(10);
    fail(step, EIO, 1);
    EXPECT_EQ(write(), 0) << sim::op_name(step);
    EXPECT_TRUE(support::has_line(lines(), writing("Write main Error"))) << sim::op_name(step);
    expect_copy(0, record());
    use_flags(10);
    fail(step, EIO, 2);
    EXPECT_EQ(write(), 0) << sim::op_name(step);
    EXPECT_TRUE(support::has_line(lines(), writing("Write backup Error"))) << sim::op_name(step);
    expect_copy(0, record());
    // Lifting that fails does not undo what the main copy's block restored.
    EXPECT_EQ(flags().write_protected(), step == sim::Op::protect_lift) << sim::op_name(step);
  }
}

TEST_F(CopiesTest, ProtectionThatCannotBeRestoredFailsNothing) {
  fail_always(sim::Op::protect_restore, EIO);
  EXPECT_EQ(write(), 0);
  expect_copy(0, record());
  expect_copy(1, record());
  const LogLine told = block_said("Failed to disable mtd writeable!  error:5[Input/output error]");
  EXPECT_EQ(support::count_line(lines(), told), 2U);
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(CopiesTest, OneGoodBlockHoldsTheMainCopyAlone) {
  use_flags(3, {0, 2});
  EXPECT_EQ(write(1, 5), 0);
  expect_written(1, 5,
                 Lines{trying(0), bad(0), skipped(0), trying(1), main_at(1, 1)} + kBackupBegin +
                     bad(0) + bad(2));
  expect_copy(1, record());
}

// --- Both copies fail. --------------------------------------------------------------------------

TEST_F(CopiesTest, TwoErrorsFail) {
  fail_always(sim::Op::protect_lift, EIO);
  EXPECT_EQ(write(), -1);
  expect_written(-1, -1,
                 Lines{trying(0), kNotLifted, writing("Write main Error")} + kBackupBegin +
                     kNotLifted + writing("Write backup Error"));
  expect_erased(0);
  expect_erased(1);
}

TEST_F(CopiesTest, NoGoodBlockFailsOnlyWithoutCurrentCopies) {
  use_flags(3, {0, 1, 2});
  EXPECT_EQ(write(-1, -1), -1);
  expect_written(-1, -1,
                 Lines{trying(0), bad(0), skipped(0), trying(1), bad(1), skipped(1), trying(2),
                       bad(2), skipped(2)} +
                     kBackupBegin + bad(0) + bad(1) + bad(2));
}

// Nothing was written, but neither copy counts as failed: both indexes say where one stands.
TEST_F(CopiesTest, NoGoodBlockKeepsTheIndexesAndSucceeds) {
  use_flags(3, {0, 1, 2});
  EXPECT_EQ(write(0, 1), 0);
  expect_written(0, 1,
                 Lines{trying(0), bad(0), skipped(0), trying(2), bad(2), skipped(2)} +
                     kBackupBegin + bad(1) + bad(2));
}

TEST_F(CopiesTest, NoGoodBlockFailsOnlyWhenBothIndexesAreUnknown) {
  use_flags(2, {0, 1});
  EXPECT_EQ(write(-1, 1), 0);
  use_flags(2, {0, 1});
  EXPECT_EQ(write(0, -1), 0);
}

TEST_F(CopiesTest, NoBlocksAtAllFailOnlyWithoutCurrentCopies) {
  flags().set_reported_info(sim::MtdInfo{0, kBlock, 512, 16});
  EXPECT_EQ(write(0, 1), 0);
  expect_written(0, 1, kBackupBegin);
  EXPECT_EQ(write(-1, -1), -1);
  expect_erased(0);
}

// --- Before any copy. ---------------------------------------------------------------------------

TEST_F(CopiesTest, NeedAFlagsPartition) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.at(0).name = "flag";
  use(layout);
  EXPECT_EQ(write(), -1);
  EXPECT_EQ(lines().front(), writing("upi_set_boot_flags_content func begin!"));
  EXPECT_EQ(lines().back(), writing("Partition[flags] not found!"));
}

TEST_F(CopiesTest, TellAFailingOpen) {
  fail(sim::Op::open, EMFILE);
  expect_failure({writing("Open flash error: 24[Too many open files]")}, {"open 1002 E24"});
}

TEST_F(CopiesTest, TellAFailingGeometry) {
  fail(sim::Op::memgetinfo, EIO);
  expect_failure({writing("Get flash info error: 5[Input/output error]")},
                 {"open 1002", "getinfo E5", "close"});
}

TEST_F(CopiesTest, TellMissingMemory) {
  device().faults().add({sim::Op::malloc, "libzozale.so", 1, ENOMEM});
  const sim::AllocationWatch watch;
  expect_failure({writing("Malloc for block fail!")}, kOpened + "close");
}

TEST_F(CopiesTest, DoNotMindAFailingClose) {
  fail(sim::Op::close, EIO);
  EXPECT_EQ(write(), 0);
  EXPECT_EQ(lines(), rewritten());
}

TEST_F(CopiesTest, WriteNothingWithoutAGeometry) {
  flags().set_reported_info(sim::MtdInfo{10 * kBlock, 0, 0, 0});
  write();
  EXPECT_EQ(flags().count(sim::Op::memerase), 0U);
  EXPECT_EQ(flags().count(sim::Op::write), 0U);
  EXPECT_EQ(flags().total_erases(), 0U);
}

TEST_F(CopiesTest, TakeAPageSizeOfZero) {
  flags().set_reported_info(sim::MtdInfo{10 * kBlock, kBlock, 0, 16});
  EXPECT_EQ(write(), 0);
  expect_copy(0, record());
  expect_copy(1, record());
}

// A block that cannot hold a record is not written past its end.
TEST_F(CopiesTest, WriteNoBlockSmallerThanARecord) {
  sim::Layout layout = flags_layout(10);
  layout.geometry.page_size = 64;
  layout.geometry.pages_per_block = 4;
  use(layout);
  write();
  for (std::uint32_t block = 2; block < 10; ++block) {
    EXPECT_EQ(flags().block(block), sim::Bytes(256, 0xFF)) << block;
  }
}

TEST_F(CopiesTest, FillLargeBlocks) {
  sim::Layout layout = sim::test_layout(2048, 64, 2);
  use(layout);
  EXPECT_EQ(write(), 0);
  EXPECT_EQ(flags().block(0), block_image(record(), 131072));
  EXPECT_EQ(flags().block(1), block_image(record(), 131072));
}

}  // namespace
}  // namespace unit
