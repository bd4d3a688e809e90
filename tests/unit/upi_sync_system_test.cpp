// SPDX-License-Identifier: Apache-2.0
//
// What a synchronisation leaves on flash and in the store, and what it asks of the flash driver.
#include "upi_sync_system.h"

#include <tuple>

#include "upgrade_test.h"

namespace {

using sim::Op;
using sim::System;
using support::pattern;
using BadBlocks = std::vector<std::uint32_t>;
using Store = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kBlock = 2048;
const std::string kStatus = "fota_ab_aa_sync_status";

void set_bad(sim::Partition partition, const BadBlocks& bad) {
  for (const std::uint32_t block : bad) {
    partition.set_bad(block);
  }
}

std::string same(const std::string& dst, const std::string& src) {
  return "dst partition [" + dst + "] is the same as src partition [" + src + "], do not sync";
}

// --- Lengths and bad blocks, in both directions. ---

class SyncImageTest
    : public UpgradeTest,
      public ::testing::WithParamInterface<std::tuple<System, std::size_t, BadBlocks, BadBlocks>> {
 protected:
  void SetUp() override {
    run_system(std::get<0>(GetParam()));
    set_bad(running_of("kernel"), std::get<2>(GetParam()));
    set_bad(target_of("kernel"), std::get<3>(GetParam()));
    fill_systems();
    running_of("kernel").wipe();
  }
};

TEST_P(SyncImageTest, CopiesTheContentBlockByGoodBlock) {
  const sim::Bytes content = pattern(std::get<1>(GetParam()), 3);
  running_of("kernel").flash(content);
  const sim::Bytes source = running_of("kernel").raw();

  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  expect_image(target_of("kernel"), content);
  EXPECT_EQ(running_of("kernel").raw(), source);
  EXPECT_EQ(target_of("oemdata").raw(), running_of("oemdata").raw());
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, SyncImageTest,
    ::testing::Combine(::testing::Values(System::a, System::b),
                       ::testing::Values(std::size_t{0}, std::size_t{1}, kBlock - 1, kBlock,
                                         kBlock + 1, 4 * kBlock),
                       ::testing::Values(BadBlocks{}, BadBlocks{0, 4}, BadBlocks{2, 3, 4}),
                       ::testing::Values(BadBlocks{}, BadBlocks{0, 1, 2}, BadBlocks{3},
                                         BadBlocks{5, 7})));

class SyncTest : public UpgradeTest {
 protected:
  // All of the running system's partitions hold other contents than the target's erased ones.
  void fill_running() {
    for (const char* name : {"kernel", "rootfs", "oemdata"}) {
      running_of(name).flash(content_of(name));
    }
  }
  static sim::Bytes content_of(const std::string& name) {
    return pattern(2 * kBlock, static_cast<std::uint32_t>(name.size()) + 50);
  }
  void expect_copies() {
    for (const char* name : {"kernel", "rootfs", "oemdata"}) {
      expect_image(target_of(name), content_of(name));
    }
  }
};

TEST_F(SyncTest, FillsADestinationToItsLastGoodBlock) {
  target_of("kernel").set_bad(2);
  running_of("kernel").flash(pattern(7 * kBlock, 3));
  EXPECT_EQ(sync().result, 0);
  expect_image(target_of("kernel"), pattern(7 * kBlock, 3));
}

TEST_F(SyncTest, CopiesAFullPartitionToTheLastBlock) {
  running_of("kernel").flash(pattern(8 * kBlock, 3));
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.messages_of("sync_partition") ==
              (std::vector<std::string>{same("rootfs2", "rootfs"), same("oemdata2", "oemdata")}))
      << "neither the end of the content nor of the image was met";
  expect_image(target_of("kernel"), pattern(8 * kBlock, 3));
}

TEST_F(SyncTest, EndsWhereTheGoodBlocksOfTheSourceDo) {
  set_bad(running_of("kernel"), {1, 7});
  running_of("kernel").flash(pattern(6 * kBlock, 3));
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.messages_of("sync_partition")[0], "Out of Image");
  expect_image(target_of("kernel"), pattern(6 * kBlock, 3));
}

TEST_F(SyncTest, FailsWhenTheDestinationHasTooFewGoodBlocks) {
  set_bad(target_of("kernel"), {0, 6});
  running_of("kernel").flash(pattern(7 * kBlock, 3));
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said_in_order(
      {{"VEMK_WriteBlock", "Start address[16384] out of partition total size[16384]!"},
       {"sync_partition", "Write data to mtd fail!"},
       {"sync_system", "Sync Target Partition [kernel2] Fail"},
       {"upi_sync_system", "<<<<<<<<<<<<<<< Sync Fail >>>>>>>>>>>>>>>"}}));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_F(SyncTest, DoesNotCopyWhatStandsBehindAnErasedBlock) {
  running_of("kernel").flash(pattern(kBlock, 3));
  running_of("kernel").poke(3 * kBlock, pattern(kBlock, 4));
  EXPECT_EQ(sync().result, 0);
  expect_image(target_of("kernel"), pattern(kBlock, 3));
}

TEST_F(SyncTest, CopiesABlockThatBeginsErased) {
  sim::Bytes content(2 * kBlock, 0xFF);
  content[kBlock - 1] = 0x5A;
  content[kBlock + 1024] = 0x5A;
  running_of("kernel").poke(0, content);
  EXPECT_EQ(sync().result, 0);
  expect_image(target_of("kernel"), content);
}

TEST_F(SyncTest, ErasesADestinationWhoseSourceIsErased) {
  target_of("kernel").flash(pattern(5 * kBlock, 3));
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  expect_image(target_of("kernel"), {});
  EXPECT_TRUE(run.made(Op::write, "kernel2").empty());
}

TEST_F(SyncTest, WorksOnBlocksSmallerThanItsShortLook) {
  use_layout(sim::test_layout(128, 4, 8));
  running_of("kernel").flash(pattern(3 * 512 + 1, 3));
  EXPECT_EQ(sync().result, 0);
  expect_image(target_of("kernel"), pattern(3 * 512 + 1, 3));
}

TEST_F(SyncTest, FindsPartitionsWithoutBlocksEqual) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[1].blocks = 0;
  layout.partitions[2].blocks = 0;
  use_layout(layout);
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.messages_of("sync_partition")[0], same("kernel2", "kernel"));
}

TEST_F(SyncTest, FailsOntoAPartitionWithoutAGoodBlock) {
  set_bad(target_of("kernel"), {0, 1, 2, 3, 4, 5, 6, 7});
  EXPECT_EQ(sync().result, 0) << "an erased source has nothing to copy";
  running_of("kernel").flash(pattern(1));
  EXPECT_EQ(sync().result, -1);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_F(SyncTest, CopiesOntoAPartitionOfAnotherSize) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[2].blocks = 5;
  use_layout(layout);
  running_of("kernel").flash(pattern(4 * kBlock + 1, 3));
  EXPECT_EQ(sync().result, 0);
  expect_image(target_of("kernel"), pattern(4 * kBlock + 1, 3));
}

// --- What it asks of the flash driver. ---

TEST_F(SyncTest, OfEqualSystemsErasesNothing) {
  fill_running();
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    target_of(name).flash(content_of(name));
  }
  device().clear_counts();
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.messages_of("sync_partition"),
            (std::vector<std::string>{same("kernel2", "kernel"), same("rootfs2", "rootfs"),
                                      same("oemdata2", "oemdata")}));
  for (const char* name : {"kernel2", "rootfs2", "oemdata2"}) {
    EXPECT_EQ(partition(name).count(Op::memerase) + partition(name).count(Op::memerase64), 0U);
    EXPECT_EQ(partition(name).count(Op::protect_lift), 0U);
    EXPECT_EQ(partition(name).count(Op::open), 1U);
  }
  EXPECT_EQ(run.store, (Store{{kStatus, "1"}, {kStatus, "0"}}));
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(SyncTest, ASecondRunErasesNothing) {
  fill_running();
  ASSERT_EQ(sync().result, 0);
  device().clear_counts();
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(device().count(Op::memerase64), 0U);
  EXPECT_EQ(partition("kernel2").count(Op::memerase), 0U);
}

TEST_F(SyncTest, EveryGoodBlockIsErasedOnceAndEveryWrittenOneAgain) {
  set_bad(target_of("kernel"), {1, 6});
  running_of("kernel").flash(pattern(2 * kBlock + 1, 3));
  const LibraryRun run = sync();

  const std::vector<std::uint32_t> erased = {2, 0, 2, 2, 1, 1, 0, 1};
  for (std::uint32_t block = 0; block < 8; ++block) {
    EXPECT_EQ(target_of("kernel").erase_count(block), erased[block]) << block;
  }
  EXPECT_EQ(run.made(Op::memerase64, "kernel2").size(), 6U);
  EXPECT_EQ(run.made(Op::memerase, "kernel2").size(), 3U);
  EXPECT_TRUE(run.said("erase_partition", "Mtd, not erasing bad block at 0x800"));
  EXPECT_TRUE(run.said("erase_partition", "Mtd, not erasing bad block at 0x3000"));
  EXPECT_EQ(partition("kernel").count(Op::memerase64), 0U);
}

std::string op_sequence(const LibraryRun& run) {
  std::string sequence;
  for (const sim::Call& call : run.calls) {
    const bool kernel = call.partition == "kernel" || call.partition == "kernel2";
    if (kernel && call.op != Op::lseek && call.op != Op::memgetinfo) {
      sequence += call.partition.size() == 6 ? "A:" : "B:";
      sequence += std::string(sim::op_name(call.op)) + " ";
    }
  }
  return sequence;
}

TEST_F(SyncTest, RequestsOfOnePartitionComeInThisOrder) {
  for (std::uint32_t block = 2; block < 8; ++block) {
    target_of("kernel").set_bad(block);
  }
  running_of("kernel").flash(pattern(kBlock, 3));

  EXPECT_EQ(op_sequence(sync()),
            "B:open B:read B:close A:open A:read A:read A:close "
            "A:open B:open B:protect-lift "
            "B:open B:MEMERASE64 B:MEMERASE64 B:close "
            "A:read B:MEMERASE B:write A:read "
            "B:open B:read B:read B:close A:open A:read A:read A:close "
            "B:protect-restore B:close A:close ");
}

TEST_F(SyncTest, TheProtectionIsLiftedAndRestoredOnOneDescriptor) {
  fill_running();
  const LibraryRun run = sync();
  for (const char* name : {"kernel2", "rootfs2", "oemdata2"}) {
    expect_protection_bracket(run, name);
  }
  for (const sim::Call& open : run.made(Op::open)) {
    EXPECT_TRUE(open.partition.empty() || open.flags == 0x1002) << open.path;
  }
  expect_copies();
}

// --- Status and record. ---

TEST_F(SyncTest, IsUnbootableBeforeTheFirstEraseAndBootableAfterTheSuccess) {
  fill_running();
  const LibraryRun run = sync();

  EXPECT_EQ(run.store, (Store{{kStatus, "1"}, {kStatus, "0"}}));
  EXPECT_EQ(run.saves, 2U);
  EXPECT_LT(run.first(Op::write, "flags"), run.first(Op::memerase64, "kernel2"));
  const std::vector<sim::Call> flags = run.made(Op::write, "flags");
  ASSERT_EQ(flags.size(), 4U);
  // The last status is stored before the target is marked bootable.
  std::size_t last_set = 0;
  std::size_t third_write = 0;
  std::size_t writes = 0;
  for (std::size_t at = 0; at < run.calls.size(); ++at) {
    last_set = run.calls[at].op == Op::store_set ? at : last_set;
    if (run.calls[at].op == Op::write && run.calls[at].partition == "flags" && ++writes == 3) {
      third_write = at;
    }
  }
  EXPECT_LT(last_set, third_write);
}

TEST_F(SyncTest, ChangesNothingElseOfTheRecord) {
  const auto change = [](sim::BootRecord& record) {
    record.set_status(System::a, DUALSYSTEM_STATUS_SUCCESSFUL);
    record.set_status(System::b, DUALSYSTEM_STATUS_UNBOOTABLE);
    record.set_attempts(System::b, 7);
    record.set_boot_to(System::b);
    record.bytes[291] = 'x';
  };
  write_flags(change);
  EXPECT_EQ(sync().result, 0);
  sim::BootRecord wanted = sim::factory_record();
  change(wanted);
  wanted.set_status(System::b, DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_EQ(sim::read_records(device()).main.record.bytes, wanted.bytes);
  EXPECT_EQ(sim::read_records(device()).backup.record.bytes, wanted.bytes);
}

TEST_F(SyncTest, HasOneResultUnderBothNames) {
  EXPECT_EQ(run_library([] { return upi_sync_system(); }).result, 0);
  EXPECT_EQ(run_library([] { return vemk_dual_sync_system(); }).result, 0);
  device().remove_file("/etc_ro/systemPartitionInfo.conf");
  EXPECT_EQ(run_library([] { return upi_sync_system(); }).result, -1);
  EXPECT_EQ(run_library([] { return vemk_dual_sync_system(); }).result, -1);
}

}  // namespace
