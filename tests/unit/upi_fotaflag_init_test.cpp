// SPDX-License-Identifier: Apache-2.0
//
// A fresh "flags" partition; and what belongs to no other file: the placeholder and the restart.
#include <cerrno>

#include "tests/unit/flags_test.h"
#include "upi_fotaflag_partition.h"

namespace unit {
namespace {

LogLine said(const std::string& message) {
  return {"init_fotaflag_partition", message};
}

sim::BootRecord fresh() {
  sim::BootRecord record;
  record.set_word(kMagic, 0x464C4147);
  record.set_word(kBootTo, 0x875A);
  record.set_word(kStatusA, 0xB0AB);
  record.set_word(kStatusB, 0xB0AB);
  record.set_word(kEnvMagic, 0x464C4147);
  record.set_word(kSystemType, 0xABAB);
  return record;
}

// The counts 1 to `copies`, and the end.
Lines counted(int copies) {
  Lines lines;
  for (int i = 1; i <= copies; ++i) {
    lines.push_back(said("Write init valid block num:" + std::to_string(i) + "!"));
  }
  return lines;
}

Lines ended(int copies, bool success) {
  return {said("init_fotaflag_partition func end!"),
          said(std::string("Init system status ") + (success ? "success" : "fail") +
               ", alread write block :" + std::to_string(copies))};
}

const Lines kBegin = Lines{said("init_fotaflag_partition func begin!")} + found_flags();

class InitTest : public FlagsTest {
 protected:
  int init() {
    int result = -7;
    requests_ =
        requests_of([&] { lines_ = settled_log([&] { result = init_fotaflag_partition(); }); });
    return result;
  }
  // Blocks that hold a fresh record.
  std::vector<std::uint32_t> copies() {
    std::vector<std::uint32_t> out;
    for (std::uint32_t block = 0; block < flags().blocks(); ++block) {
      if (flags().block(block) == block_image(fresh())) {
        out.push_back(block);
      }
    }
    return out;
  }
  const Lines& lines() const { return lines_; }
  const Requests& requests() const { return requests_; }

 private:
  Lines lines_;
  Requests requests_;
};

using Blocks = std::vector<std::uint32_t>;

// --- How many copies. ---------------------------------------------------------------------------

TEST_F(InitTest, WritesEightCopies) {
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies(), (Blocks{0, 1, 2, 3, 4, 5, 6, 7}));
  expect_erased(8);
  expect_erased(9);
  EXPECT_EQ(lines(), kBegin + counted(8) + ended(8, true));
  Requests expected = kOpened;
  for (std::uint32_t block = 0; block < 8; ++block) {
    expected = expected + writing_block(block);
  }
  EXPECT_EQ(requests(), expected + "close");
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(InitTest, OverwritesWhateverStoodThere) {
  flags().flash(support::pattern(std::size_t{10} * kBlock));
  const sim::Bytes before = flags().raw();
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies().size(), 8U);
  EXPECT_EQ(flags().count(sim::Op::read), 0U);
  const sim::Bytes after = flags().raw();
  EXPECT_TRUE(std::equal(after.begin() + 8L * kBlock, after.end(), before.begin() + 8L * kBlock));
}

TEST_F(InitTest, OverwritesAValidRecord) {
  write_flags([](sim::BootRecord& record) { record.set_boot_to(sim::System::b); });
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies().size(), 8U);
}

TEST_F(InitTest, PassesBadBlocks) {
  use_flags(12, {0, 4, 5, 10});
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies(), (Blocks{1, 2, 3, 6, 7, 8, 9, 11}));
  EXPECT_EQ(lines().back(), ended(8, true).back());
}

TEST_F(InitTest, PassesABlockThatTurnsBad) {
  flags().set_erase_defect(2, sim::EraseDefect::turns_bad_passes);
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies(), (Blocks{0, 1, 3, 4, 5, 6, 7, 8}));
}

TEST_F(InitTest, PassesABlockThatCannotBeWritten) {
  const sim::Op steps[] = {sim::Op::protect_lift, sim::Op::memerase, sim::Op::lseek,
                           sim::Op::write};
  for (const sim::Op step : steps) {
    use_flags(10);
    fail(step, EIO, 3);
    EXPECT_EQ(init(), 0) << sim::op_name(step);
    EXPECT_EQ(copies(), (Blocks{0, 1, 3, 4, 5, 6, 7, 8})) << sim::op_name(step);
    EXPECT_EQ(lines().back(), ended(8, true).back()) << sim::op_name(step);
  }
}

TEST_F(InitTest, EndsWithThePartition) {
  use_flags(5);
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies(), (Blocks{0, 1, 2, 3, 4}));
  EXPECT_EQ(lines(), kBegin + counted(5) + ended(5, true));
}

TEST_F(InitTest, TwoCopiesAreEnough) {
  use_flags(6, {0, 2, 3, 5});
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(copies(), (Blocks{1, 4}));
  EXPECT_EQ(lines().back(), ended(2, true).back());
}

TEST_F(InitTest, OneCopyIsNotEnough) {
  use_flags(4, {0, 1, 3});
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(copies(), (Blocks{2}));
  EXPECT_EQ(lines().back(), ended(1, false).back());
  EXPECT_EQ(lines().at(lines().size() - 2), ended(1, false).front());
}

TEST_F(InitTest, NoGoodBlockFails) {
  use_flags(2, {0, 1});
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines(),
            kBegin +
                block_said("Ioctl [MEMGETBADBLOCK] block: 0 , change to be bad block errno: *") +
                block_said("Ioctl [MEMGETBADBLOCK] block: 1 , change to be bad block errno: *") +
                ended(0, false));
}

TEST_F(InitTest, NoBlocksFail) {
  flags().set_reported_info(sim::MtdInfo{0, kBlock, 512, 16});
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines(), kBegin + ended(0, false));
  EXPECT_EQ(requests(), kOpened + "close");
}

TEST_F(InitTest, NothingCanBeWritten) {
  fail_always(sim::Op::protect_lift, EIO);
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines().back(), ended(0, false).back());
  EXPECT_EQ(flags().count(sim::Op::protect_lift), 10U);
}

// --- Write protection afterwards. ---------------------------------------------------------------

TEST_F(InitTest, ProtectionIsBackAfterASuccessfulLastBlock) {
  use_flags(4, {1});
  EXPECT_EQ(init(), 0);
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(InitTest, ProtectionStaysLiftedAfterABadLastBlock) {
  use_flags(4, {3});
  EXPECT_EQ(init(), 0);
  EXPECT_FALSE(flags().write_protected());
}

// --- Before any copy. ---------------------------------------------------------------------------

TEST_F(InitTest, NeedsAFlagsPartition) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.at(0).name = "Flags";
  use(layout);
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines().front(), said("init_fotaflag_partition func begin!"));
  EXPECT_EQ(lines().back(), said("Partition[flags] not found!"));
}

TEST_F(InitTest, TellsAFailingOpen) {
  fail(sim::Op::open, EACCES);
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines(), kBegin + said("Open flash error: 13[Permission denied]"));
  EXPECT_EQ(requests(), (Requests{"open 1002 E13"}));
}

TEST_F(InitTest, TellsAFailingGeometry) {
  fail(sim::Op::memgetinfo, EIO);
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines(), kBegin + said("Get flash info error: 5[Input/output error]"));
  EXPECT_EQ(requests(), (Requests{"open 1002", "getinfo E5", "close"}));
}

TEST_F(InitTest, TellsMissingMemory) {
  device().faults().add({sim::Op::malloc, "libzozale.so", 1, ENOMEM});
  const sim::AllocationWatch watch;
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(lines(), kBegin + said("Malloc for block fail!"));
  EXPECT_EQ(requests(), kOpened + "close");
}

TEST_F(InitTest, DoesNotMindAFailingClose) {
  fail(sim::Op::close, EIO);
  EXPECT_EQ(init(), 0);
}

TEST_F(InitTest, WritesNothingWithoutAGeometry) {
  flags().set_reported_info(sim::MtdInfo{10 * kBlock, 0, 0, 0});
  EXPECT_EQ(init(), -1);
  EXPECT_EQ(flags().count(sim::Op::memerase), 0U);
  EXPECT_EQ(flags().count(sim::Op::write), 0U);
}

TEST_F(InitTest, WritesNoBlockSmallerThanARecord) {
  sim::Layout layout = flags_layout(10);
  layout.geometry.page_size = 64;
  layout.geometry.pages_per_block = 4;
  use(layout);
  init();
  EXPECT_EQ(flags().block(8), sim::Bytes(256, 0xFF));
  EXPECT_EQ(flags().block(9), sim::Bytes(256, 0xFF));
}

// --- The rest. ----------------------------------------------------------------------------------

TEST_F(InitTest, PlaceholderDoesNothing) {
  const sim::Recording recording;
  const std::string console = support::printed([] { EXPECT_EQ(check_fota_flag_partition(), 0); });
  EXPECT_EQ(console, "");
  EXPECT_TRUE(recording.calls().empty());
}

TEST_F(InitTest, RebootRunsTheShellCommandAndReturns) {
  const sim::Recording recording;
  upi_reboot();
  const auto calls = recording.calls(sim::Op::reboot);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].text, "reboot");
  EXPECT_EQ(device().power(), sim::Power::rebooting);
}

}  // namespace
}  // namespace unit
