// SPDX-License-Identifier: Apache-2.0
#include "tool_test.h"

namespace tool {
namespace {

using SyncTest = ToolTest;
using SyncInEither = EitherSystem;

TEST_P(SyncInEither, MakesTheOtherSystemACopy) {
  const sim::Bytes running = device().partition(running_name("rootfs")).raw();

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 0) << run;
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    EXPECT_EQ(device().partition(target_name(name)).good(),
              device().partition(running_name(name)).good())
        << name;
  }
  EXPECT_EQ(device().partition(running_name("rootfs")).raw(), running);
  EXPECT_TRUE(run.says("3 partitions copied, 0 equal already.")) << run;
  EXPECT_EQ(record().status(sim::other(GetParam())), sim::kStatusBootable);
}

TEST_P(SyncInEither, EqualSystemsLeaveNothingToCopyAndItIsSaid) {
  copy_running_system();
  const std::uint64_t before = erases_of_systems();

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Nothing was left to copy")) << run;
  EXPECT_EQ(erases_of_systems(), before);
}

TEST_P(SyncInEither, ADryRunTellsThePlanAndWritesNothing) {
  copy_running_system();
  device().partition(target_name("rootfs")).flash(support::pattern(100, 77));
  device().partition(target_name("rootfs")).set_bad(6);

  const Ended run = zozale_untouched({"sync", "--dry-run", "--json"});

  EXPECT_EQ(run.status, 0) << run;
  const nlohmann::json told = run.json();
  EXPECT_EQ(told["target"], std::string(1, sim::letter(sim::other(GetParam()))));
  EXPECT_EQ(told["partitions"][0]["up_to_date"], true);
  EXPECT_EQ(told["partitions"][1]["up_to_date"], false);
  EXPECT_EQ(told["partitions"][1]["blocks_to_erase"], 7);
  EXPECT_EQ(told["partitions"][1]["blocks_to_write"], 4);
  EXPECT_EQ(told["partitions"][1]["bad_blocks"], nlohmann::json::array({6}));
}

INSTANTIATE_TEST_SUITE_P(Either, SyncInEither, ::testing::Values(sim::System::a, sim::System::b),
                         system_name);

TEST_F(SyncTest, TellsWhatBecameOfEachPartition) {
  copy_running_system();
  device().partition("oemdata2").flash(support::pattern(100, 5));

  const nlohmann::json told = zozale({"sync", "--json"}).json();

  EXPECT_EQ(told["partitions"][0]["state"], "up to date");
  EXPECT_EQ(told["partitions"][2]["state"], "written");
}

TEST_F(SyncTest, WarnsOfDataBehindTheFirstErasedBlock) {
  sim::Partition source = device().partition("kernel");
  source.poke(6 * source.block_size() + 700, support::bytes("hidden"));

  for (const Arguments& command : std::vector<Arguments>{{"sync", "--dry-run"}, {"sync"}}) {
    const Ended run = zozale(command);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_TRUE(
        run.complains("the source of kernel2 holds data in block 6, behind its first "
                      "erased block"))
        << run;
  }
}

TEST_F(SyncTest, WarnsOfASourceThatHoldsNothing) {
  device().partition("oemdata").wipe();

  const Ended run = zozale({"sync", "--dry-run"});

  EXPECT_TRUE(run.complains("the source of oemdata2 holds nothing")) << run;
}

TEST_F(SyncTest, RefusesTooFewGoodBlocksBeforeTheFirstErase) {
  for (std::uint32_t block = 0; block < 5; ++block) {
    device().partition("rootfs2").set_bad(block);
  }
  const std::uint64_t before = erases();

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("rootfs needs 4 blocks, rootfs2 has 3 good of 8")) << run;
  EXPECT_EQ(erases(), before);
}

TEST_F(SyncTest, RefusesAnEntryThatCannotBeSynchronised) {
  sim::Layout layout = sim::test_layout();
  layout.oem[0].partition_type = 2;
  use(layout);
  const std::uint64_t before = erases();

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("the partition oemdata cannot be synchronised")) << run;
  EXPECT_EQ(erases(), before);
}

TEST_F(SyncTest, RefusesATableThatWouldHarmTheRunningSystem) {
  sim::Layout layout = sim::test_layout();
  layout.platform.push_back({"kernel2", 0, 0});
  use(layout);
  run_system(sim::System::b);
  const std::uint64_t before = erases();

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("the partition table file is unfit")) << run;
  EXPECT_EQ(erases(), before);
}

TEST_F(SyncTest, RefusesWithoutTableRecordPartitionOrRunningSystem) {
  const std::uint64_t before = erases();
  device().remove_file("/etc_ro/systemPartitionInfo.conf");
  EXPECT_TRUE(zozale({"sync"}).complains("the partition table file cannot be read"));
  EXPECT_EQ(zozale({"sync"}).status, 4);

  use(sim::test_layout());
  device().partition("flags").wipe();
  EXPECT_EQ(zozale({"sync"}).status, 4);

  use(sim::test_layout());
  sim::Layout layout = sim::test_layout();
  layout.partitions[1].name = "other";
  device().write_file("/proc/mtd", sim::mtd_text(layout));
  EXPECT_EQ(zozale({"sync"}).status, 4);

  use(sim::test_layout());
  device().write_file("/proc/cmdline", "quiet\n");
  EXPECT_EQ(zozale({"sync"}).status, 4);
  EXPECT_EQ(erases(), before);
}

TEST_F(SyncTest, AFailedCopyTellsPlaceReasonAndLog) {
  device().faults().add({sim::Op::write, "rootfs2", 2, EIO, false, std::nullopt});

  const Ended run = zozale({"sync"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("failed while copying to rootfs2")) << run;
  EXPECT_TRUE(run.complains("VEMK_WriteBlock: Write flash error")) << run;
  EXPECT_TRUE(run.complains("log file: /cache/ovu_fota_ab/upi_ab.log")) << run;
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusUnbootable);
}

// The library counts this as a success.
TEST_F(SyncTest, ACopyThatCouldNotBeMarkedBootableIsAFailure) {
  copy_running_system();
  // The first marking erases a block for each of the two copies.
  device().faults().add({sim::Op::memerase, "flags", 3, EIO, false, std::nullopt});
  device().faults().add({sim::Op::memerase, "flags", 4, EIO, false, std::nullopt});

  const Ended run = zozale({"sync"});

  EXPECT_EQ(device().faults().struck(), 2U);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("could not be marked bootable")) << run;
  EXPECT_TRUE(run.complains("zozale mark B bootable")) << run;
}

}  // namespace
}  // namespace tool
