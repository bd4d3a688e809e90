// SPDX-License-Identifier: Apache-2.0
//
// What fails in a synchronisation, one thing at a time.
#include <cerrno>

#include "descriptor_squatter.h"
#include "upgrade_test.h"
#include "upi_sync_system.h"

namespace {

using sim::Op;
using sim::System;
using support::pattern;
using Lines = std::vector<support::LogLine>;
using Messages = std::vector<std::string>;
using Store = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kBlock = 2048;
constexpr const char* kTable = "/etc_ro/systemPartitionInfo.conf";
const std::string kStatus = "fota_ab_aa_sync_status";
const std::string kStart = "<<<<<<<<<<<<<<< Start Sync >>>>>>>>>>>>>>>";
const std::string kFail = "<<<<<<<<<<<<<<< Sync Fail >>>>>>>>>>>>>>>";

// --- Before the first partition. ---

class SyncStartTest : public UpgradeTest, public ::testing::WithParamInterface<System> {
 protected:
  void SetUp() override {
    run_system(GetParam());
    fill_systems();
    before_ = {target_of("kernel").raw(), target_of("rootfs").raw(), target_of("oemdata").raw()};
  }
  void expect_failed(const LibraryRun& run, const Messages& driver, const Store& store) {
    EXPECT_EQ(run.result, -1);
    EXPECT_EQ(run.messages_of("upi_sync_system"), driver);
    EXPECT_EQ(run.store, store);
    EXPECT_EQ(run.saves, store.size());
    EXPECT_EQ(before_,
              (std::vector<sim::Bytes>{target_of("kernel").raw(), target_of("rootfs").raw(),
                                       target_of("oemdata").raw()}));
  }

  const Store started_ = {{kStatus, "1"}, {kStatus, "-1"}};

 private:
  std::vector<sim::Bytes> before_;
};

INSTANTIATE_TEST_SUITE_P(Running, SyncStartTest, ::testing::Values(System::a, System::b));

TEST_P(SyncStartTest, AnUnknownRunningSystemLeavesTheRecordAlone) {
  device().write_file("/proc/cmdline", "console=ttyS0,115200 rootwait\n");
  const LibraryRun run = sync();
  expect_failed(run, {kStart, "Get target sync system fail!", kFail}, started_);
  EXPECT_TRUE(run.made(Op::open, "flags").empty());
}

TEST_P(SyncStartTest, AnUnmarkableTargetIsTriedAgainAtTheEnd) {
  device().faults().add({Op::open, "flags", 1, EMFILE});
  const LibraryRun run = sync();
  expect_failed(run, {kStart, "set target system unbootable fail", kFail}, started_);
  EXPECT_TRUE(run.messages_of("show_system_partition_info").empty());
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(SyncStartTest, ATargetThatCannotBeMarkedAtAllSaysSoTwice) {
  device().faults().add({Op::open, "flags", 1, EMFILE, true});
  const std::string unmarked = "set target system unbootable fail";
  expect_failed(sync(), {kStart, unmarked, unmarked, kFail}, started_);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_P(SyncStartTest, AMissingTableFailsWithTheTargetUnbootable) {
  device().remove_file(kTable);
  const LibraryRun run = sync();
  expect_failed(run, {kStart, "init system partition info fail", kFail}, started_);
  EXPECT_EQ(run.made(Op::write, "flags").size(), 4U) << "marked twice";
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(SyncStartTest, ADamagedTableFailsWithTheTargetUnbootable) {
  std::string table = device().read_file(kTable);
  table.replace(table.find("[Oem"), 4, "[Eom");
  device().write_file(kTable, table);
  expect_failed(sync(), {kStart, "init system partition info fail", kFail}, started_);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(SyncStartTest, WithoutMemoryForTheTableTouchesNothing) {
  const sim::AllocationWatch watch;
  device().faults().add({Op::malloc, "libzozale", 1, ENOMEM});
  const LibraryRun run = sync();
  expect_failed(run, {"system_upgrade_partition_info malloc fail", kFail}, {{kStatus, "-1"}});
  EXPECT_TRUE(run.messages_of("upi_get_current_system").empty());
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

// --- In a partition. ---

struct Failure {
  std::string name;
  sim::Fault fault;
  Lines said;
  bool lifted;  // the destination's protection stays lifted
};

std::ostream& operator<<(std::ostream& out, const Failure& failure) {
  return out << failure.name;
}

class SyncFailureTest : public UpgradeTest {
 protected:
  SyncFailureTest() {
    fill_systems();
    running_of("kernel").flash(pattern(3 * kBlock, 7));
    rootfs_ = partition("rootfs2").raw();
  }

  void expect_failed_partition(const LibraryRun& run) {
    EXPECT_EQ(run.result, -1);
    const Messages loop = run.messages_of("sync_system");
    EXPECT_EQ(loop, (Messages{std::string(50, '-'), "Sync Targrt Parition [kernel2] Start",
                              "Sync Target Partition [kernel2] Fail", std::string(50, '-')}));
    EXPECT_EQ(run.messages_of("upi_sync_system"), (Messages{kStart, kFail}));
    EXPECT_EQ(run.store, (Store{{kStatus, "1"}, {kStatus, "-1"}}));
    EXPECT_EQ(partition("rootfs2").raw(), rootfs_);
    expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
  }

 private:
  sim::Bytes rootfs_;
};

class SyncFaultTest : public SyncFailureTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(SyncFaultTest, FailsThePartitionAndLeavesNothingOpen) {
  device().faults().add(GetParam().fault);
  DescriptorSquatter squatter;

  const LibraryRun run = sync();

  EXPECT_EQ(device().faults().struck(), 1U);
  EXPECT_TRUE(run.said_in_order(GetParam().said)) << ::testing::PrintToString(run.log);
  expect_failed_partition(run);
  EXPECT_NE(partition("kernel2").write_protected(), GetParam().lifted);
  EXPECT_TRUE(run.made(Op::protect_restore, "kernel2").empty());
  EXPECT_GT(squatter.taken(), 0U);
  EXPECT_TRUE(squatter.lost().empty());
}

// The first open, geometry and reads of both are those of the first comparison: the destination's
// eight blocks and the source's three and an erased one.
const std::vector<Failure> kFailures = {
    {"OpenOfTheSource",
     {Op::open, "kernel", 2, EMFILE},
     {{"get_partition_mtd_info", "Open flash error:24[Too many open files]"},
      {"sync_partition", "Failed to get src partition [kernel] mtd info"}},
     false},
    {"GeometryOfTheSource",
     {Op::memgetinfo, "kernel", 2, EIO},
     {{"get_partition_mtd_info", "Get flash info error:5[Input/output error]"},
      {"sync_partition", "Failed to get src partition [kernel] mtd info"}},
     false},
    {"OpenOfTheDestination",
     {Op::open, "kernel2", 2, EMFILE},
     {{"sync_partition", "Failed to get dst partition [kernel2] mtd info"}},
     false},
    {"GeometryOfTheDestination",
     {Op::memgetinfo, "kernel2", 2, EIO},
     {{"sync_partition", "Failed to get dst partition [kernel2] mtd info"}},
     false},
    {"LiftingTheProtection",
     {Op::protect_lift, "kernel2", 1, EPERM},
     {{"sync_partition", "Failed to enable dst mtd writeable!  error:1[Operation not permitted]"}},
     false},
    {"OpenForTheErase",
     {Op::open, "kernel2", 3, EACCES},
     {{"erase_partition", "Open partition [kernel2] error, error:13[Permission denied]"},
      {"sync_partition", "Failed to erase dst partition [kernel2]"}},
     true},
    {"GeometryForTheErase",
     {Op::memgetinfo, "kernel2", 3, EIO},
     {{"erase_partition", "Get partition [kernel2] info error:5[Input/output error]"},
      {"erase_partition", "erase_partition func end!"},
      {"erase_partition", std::string(25, '-')},
      {"sync_partition", "Failed to erase dst partition [kernel2]"}},
     true},
    {"ReadOfTheSource",
     {Op::read, "kernel", 6, EIO},
     {{"read_image", "Read len (-1) < need len (2048)!"},
      {"read_image", "VEMK_ReadImage fail"},
      {"sync_partition", "Read image content fail"}},
     true},
    {"SeekInTheSource",
     {Op::lseek, "kernel", 5, EINVAL},
     {{"read_image", "Lseek error, error:22[Invalid argument]"},
      {"sync_partition", "Read image content fail"}},
     true},
    {"EraseOfABlock",
     {Op::memerase, "kernel2", 2, EIO},
     {{"VEMK_WriteBlock", "Ioctl [MEMERASE] error, error: 5[Input/output error]"},
      {"sync_partition", "Write data to mtd fail!"}},
     true},
    {"WriteOfABlock",
     {Op::write, "kernel2", 3, EIO},
     {{"VEMK_WriteBlock",
       "Write flash error, write len[-1] != blocksize[2048], error: 5[Input/output error]"},
      {"sync_partition", "Write data to mtd fail!"}},
     true},
    {"ReadBack",
     {Op::read, "kernel2", 9, EIO},
     {{"partition_hash_cmp", "partition [kernel2] hash fail"},
      {"sync_partition", "after sync, hash is different"}},
     true},
};

INSTANTIATE_TEST_SUITE_P(Of, SyncFaultTest, ::testing::ValuesIn(kFailures),
                         [](const auto& failure) { return failure.param.name; });

TEST_F(SyncFailureTest, ADestinationThatCannotBeReadIsWrittenAnew) {
  device().faults().add({Op::read, "kernel2", 1, EIO});
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said("partition_hash_cmp", "partition [kernel2] hash fail"));
  expect_image(partition("kernel2"), pattern(3 * kBlock, 7));
}

TEST_F(SyncFailureTest, ToRestoreTheProtectionFailsThePartition) {
  device().faults().add({Op::protect_restore, "kernel2", 1, EIO});
  const LibraryRun run = sync();

  expect_failed_partition(run);
  EXPECT_EQ(run.messages_of("sync_partition").back(),
            "Failed to disable dst mtd writeable!  error:5[Input/output error]");
  EXPECT_FALSE(partition("kernel2").write_protected());
  expect_image(partition("kernel2"), pattern(3 * kBlock, 7));
}

TEST_F(SyncFailureTest, ABlockThatCannotBeErasedFailsWhenItIsNeeded) {
  partition("kernel2").set_erase_defect(1, sim::EraseDefect::worn);
  const LibraryRun run = sync();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"erase_partition", "Mtd, erasing failure at 0x800, error:5[Input/output error]"},
       {"erase_partition", "erase_partition func end!"},
       {"VEMK_WriteBlock", "Ioctl [MEMERASE] error, error: 5[Input/output error]"},
       {"sync_partition", "Write data to mtd fail!"}}));
}

// Behind the erased block that ends the content, the comparison does not look.
TEST_F(SyncFailureTest, ABlockThatCannotBeErasedBehindTheContentDoesNotMatter) {
  partition("kernel2").set_erase_defect(7, sim::EraseDefect::worn);
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(
      run.said("erase_partition", "Mtd, erasing failure at 0x3800, error:5[Input/output error]"));
}

TEST_F(SyncFailureTest, ABlockThatTurnsBadWhileItIsErasedIsSkipped) {
  partition("kernel2").set_erase_defect(1, sim::EraseDefect::turns_bad_fails);
  EXPECT_EQ(sync().result, 0);
  EXPECT_TRUE(partition("kernel2").is_bad(1));
  expect_image(partition("kernel2"), pattern(3 * kBlock, 7));
}

TEST_F(SyncFailureTest, APageThatReadsWrongIsFoundByTheDigest) {
  partition("kernel2").set_page_defects(2, 0, sim::kPageUnreadable);
  const LibraryRun run = sync();
  expect_failed_partition(run);
  EXPECT_EQ(run.messages_of("sync_partition").back(), "after sync, hash is different");
}

TEST_F(SyncFailureTest, ADestinationWithABlockOfAnotherSizeFails) {
  const sim::MtdInfo truth = partition("kernel2").reported_info();
  partition("kernel2").set_reported_info({{truth.size, 2 * truth.erase_size, 512, 16}});
  EXPECT_EQ(sync().result, -1);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

// No block size divides, and none makes a loop go round for ever.
TEST_F(SyncFailureTest, AGeometryOfZeroEndsInAFailure) {
  for (const char* const name : {"kernel", "kernel2"}) {
    const sim::MtdInfo truth = partition(name).reported_info();
    for (const sim::MtdInfo& lie :
         {sim::MtdInfo{truth.size, 0, truth.write_size, 0}, sim::MtdInfo{truth.size, 0, 0, 0}}) {
      partition(name).set_reported_info(lie);
      EXPECT_EQ(sync().result, -1);
      expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
    }
    partition(name).set_reported_info(truth);
  }
  partition("kernel").set_reported_info(sim::MtdInfo{16384, 2048, 0, 0});
  EXPECT_EQ(sync().result, 0) << "pages are not the library's business";
}

TEST_F(SyncFailureTest, MemoryForTheBuffersFailsThePartition) {
  for (const char* const message :
       {"Malloc read_data fail, size:2048", "Malloc delta_f fail, size:2048"}) {
    const LibraryRun run =
        run_out_of_memory([] { return vemk_dual_sync_system(); }, {"sync_partition", message});
    expect_failed_partition(run);
    EXPECT_TRUE(run.made(Op::memerase64, "kernel2").empty());
    EXPECT_FALSE(partition("kernel2").write_protected());
  }
}

TEST_F(SyncFailureTest, ACloseThatFailsDoesNotMatter) {
  device().faults().add({Op::close, "kernel2", 2, EIO});
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said("erase_partition",
                       "Close partition [kernel2] fd fail, error:5[Input/output error]"));
}

// --- At the end. ---

TEST_F(SyncFailureTest, ToMarkTheTargetBootableIsOnlyLogged) {
  device().faults().add({Op::open, "flags", 3, EMFILE});
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.store, (Store{{kStatus, "1"}, {kStatus, "0"}}));
  EXPECT_EQ(run.messages_of("upi_sync_system"),
            (Messages{kStart, "set target system bootable fail",
                      "-------------- Sync Takes 0s --------------",
                      "<<<<<<<<<<<<<<< Sync Success >>>>>>>>>>>>>>>"}));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_F(SyncFailureTest, WhatWasCopiedBeforeIsSkippedNextTime) {
  device().faults().add({Op::write, "rootfs2", 2, EIO});
  ASSERT_EQ(sync().result, -1);
  expect_image(partition("kernel2"), pattern(3 * kBlock, 7));
  const std::uint64_t erases = partition("kernel2").total_erases();

  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(partition("kernel2").total_erases(), erases);
  EXPECT_EQ(partition("rootfs2").raw(), partition("rootfs").raw());
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

}  // namespace
