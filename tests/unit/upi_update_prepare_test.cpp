// SPDX-License-Identifier: Apache-2.0
//
// Upgrades that end before the first erase, and the marking of the target at both ends.
#include <cerrno>

#include "upgrade_test.h"
#include "upi_update.h"
#include "upi_upgrade_package.h"

namespace {

using sim::Op;
using sim::System;
using support::pattern;
using Lines = std::vector<support::LogLine>;
using Messages = std::vector<std::string>;
using Store = std::vector<std::pair<std::string, std::string>>;

constexpr const char* kTemp = "/cache/ovu_fota_ab/upgrade_temp";
constexpr const char* kBeginPrepare = "<<<<<<<<<<<begin  prepare_update>>>>>>>>>>>>";
constexpr const char* kFailPrepare = "<<<<<<<<<<<end  prepare_update, result:-1>>>>>>>>>>>>";

// Of a preparation that failed.
const Messages kDriver = {"upi_update func begin!", "<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>",
                          "Prepare for update fail!", "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>",
                          "upi_update func end!"};
const Messages kReports = {
    "upi_flush_upgrade_status func begin!",
    "Update status: [3](UPGRADE_STATUS_UPDATING) total_size:0, updated size:0!",
    "upi_flush_upgrade_status func end!",
    "upi_flush_upgrade_status func begin!",
    "Update status: [5](UPGRADE_STATUS_UPDATE_FAIL) total_size:-1, updated size:-1!",
    "upi_flush_upgrade_status func end!"};
const Store kStore = {{"fota_ab_upgrade_status", "3"},
                      {"fota_ab_upgrade_total_size", "0"},
                      {"fota_ab_upgrade_updated_size", "0"},
                      {"fota_ab_upgrade_status", "5"}};

class PrepareTest : public UpgradeTest, public ::testing::WithParamInterface<System> {
 protected:
  void SetUp() override {
    run_system(GetParam());
    fill_systems();
    before_ = contents();
  }
  void TearDown() override {
    EXPECT_EQ(contents(), before_) << "nothing but the record may change";
    EXPECT_EQ(g_upgrade_package_info, nullptr);
    UpgradeTest::TearDown();
  }

  std::vector<sim::Bytes> contents() {
    std::vector<sim::Bytes> found;
    for (std::uint32_t number = 0; number < device().partition_count(); ++number) {
      if (device().partition(number).name() != "flags") {
        found.push_back(device().partition(number).raw());
      }
    }
    return found;
  }

  static void expect_failure(const LibraryRun& run) {
    EXPECT_EQ(run.messages_of("upi_update"), kDriver);
    EXPECT_EQ(run.messages_of("upi_flush_upgrade_status"), kReports);
    EXPECT_EQ(run.store, kStore);
    EXPECT_EQ(run.saves, kStore.size());
  }

 private:
  std::vector<sim::Bytes> before_;
};

INSTANTIATE_TEST_SUITE_P(Running, PrepareTest, ::testing::Values(System::a, System::b));

TEST_P(PrepareTest, NoPackageReturns0WithTheTargetUnbootable) {
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_failure(run);
  EXPECT_EQ(
      run.messages_of("prepare_update"),
      (Messages{"prepare_update func begin!", kBeginPrepare, "Init upgrade package info fail!",
                kFailPrepare, "prepare_update func end!"}));
  // Once by the preparation that failed, once by the failure ending.
  EXPECT_EQ(run.messages_of("unprepare_update").size(), 4U);
  EXPECT_EQ(run.messages_of("unprepare_path"),
            (Messages{"unprepare_path func begin!", "unprepare_path func end!",
                      "unprepare_path func begin!", "unprepare_path func end!"}));
  EXPECT_EQ(run.messages_of("set_boot_to_status"),
            (Messages{"set_boot_to_status func begin!", "set_boot_to_status func end!"}));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(PrepareTest, ABadPackageReturns0WithTheTargetUnbootable) {
  support::PackageFile package = support::system_package();
  package.magic = "FOTB";
  put_package(package);

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_failure(run);
  EXPECT_TRUE(run.said("prepare_update", "Init upgrade package info fail!"));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(PrepareTest, APackageOfForeignPartitionsReturns0WithTheTargetUnbootable) {
  put_package(platform_package({{"stranger", pattern(5)}}));
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_failure(run);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(PrepareTest, NoTemporaryFolderReturns0WithTheTargetUnbootable) {
  put_package(support::system_package());
  device().remove_file(kTemp);
  device().faults().add({Op::mkdir, std::string(kTemp) + "*", 1, ENOSPC, true});

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_failure(run);
  EXPECT_EQ(run.messages_of("prepare_update"),
            (Messages{"prepare_update func begin!", kBeginPrepare, "Prepare path fail!"}));
  EXPECT_TRUE(run.said("upi_create_folder", "Create folder problem value: -1, errno: 28"));
  EXPECT_TRUE(run.messages_of("init_upgrade_package_info").empty());
  EXPECT_EQ(run.messages_of("unprepare_update").size(), 2U);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(PrepareTest, ATemporaryFolderIsMadeAndLeftInPlace) {
  device().remove_file(kTemp);
  device().faults().add({Op::open, "/cache/ovu_fota_ab/upgrade.package", 1, ENOENT});
  upgrade();

  EXPECT_TRUE(std::filesystem::is_directory(device().host_path(kTemp)));
}

TEST_P(PrepareTest, AnUnmarkableTargetReturns0WhenTheEndingMarksIt) {
  put_package(support::system_package());
  device().faults().add({Op::open, "flags", 1, EMFILE});

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_failure(run);
  EXPECT_EQ(run.messages_of("prepare_update"),
            (Messages{"prepare_update func begin!", kBeginPrepare,
                      "Before update,  set target system unboot fail!", kFailPrepare,
                      "prepare_update func end!"}));
  EXPECT_EQ(run.messages_of("unprepare_update").size(), 4U);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_P(PrepareTest, ATargetThatCannotBeMarkedAtAllReturnsFailure) {
  put_package(support::system_package());
  device().faults().add({Op::open, "flags", 1, EMFILE, true});

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.messages_of("set_boot_to_status"),
            (Messages{"set_boot_to_status func begin!",
                      "Update fail, set target system unbootable fail!"}));
  EXPECT_EQ(run.messages_of("upi_update"), (Messages{kDriver[0], kDriver[1], kDriver[2], kDriver[3],
                                                     "Update boot to system fail. ", kDriver[4]}));
  EXPECT_EQ(run.messages_of("upi_flush_upgrade_status"), kReports);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_P(PrepareTest, AnInvalidRecordReturnsFailure) {
  put_package(support::system_package());
  partition("flags").wipe();
  EXPECT_EQ(upgrade().result, -1);
  EXPECT_EQ(partition("flags").raw(), sim::Bytes(partition("flags").size(), 0xFF));
}

TEST_P(PrepareTest, AnUnknownRunningSystemTouchesNothing) {
  put_package(support::system_package());
  const sim::Bytes flags = partition("flags").raw();
  device().write_file("/proc/cmdline", "console=ttyS0,115200 rootwait\n");

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.messages_of("prepare_update"),
            (Messages{"prepare_update func begin!", kBeginPrepare}));
  EXPECT_EQ(run.messages_of("set_boot_to_status"),
            (Messages{"set_boot_to_status func begin!", "Unreach branch, target is :-1"}));
  EXPECT_EQ(run.messages_of("upi_update"), (Messages{kDriver[0], kDriver[1], kDriver[2], kDriver[3],
                                                     "Update boot to system fail. ", kDriver[4]}));
  EXPECT_EQ(run.store, kStore);
  EXPECT_TRUE(run.messages_of("prepare_path").empty());
  EXPECT_EQ(run.messages_of("unprepare_update").size(), 2U);
  EXPECT_EQ(partition("flags").raw(), flags);
}

// --- Partitions that the target does not have. ---

class MissingPartitionTest : public PrepareTest {
 protected:
  void SetUp() override {
    sim::Layout layout = sim::test_layout();
    layout.running = GetParam();
    layout.partitions.erase(layout.partitions.begin() + (GetParam() == System::a ? 4 : 3));
    use_layout(layout);
    PrepareTest::SetUp();
  }
};

INSTANTIATE_TEST_SUITE_P(Running, MissingPartitionTest, ::testing::Values(System::a, System::b));

TEST_P(MissingPartitionTest, FailsBeforeAnyErase) {
  put_package(support::system_package());
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  const std::string rule(47, '-');
  EXPECT_EQ(
      run.messages_of("upgrade_partitions"),
      (Messages{"upgrade_partitions func begin!", "Partition num:3", rule, "Check parition:kernel",
                rule, "Check parition:rootfs", "There is no [rootfs] partition!"}));
  EXPECT_TRUE(run.made(Op::memerase64).empty());
  EXPECT_EQ(run.store.back(), (std::pair<std::string, std::string>{"fota_ab_upgrade_status", "5"}));
  EXPECT_EQ(run.messages_of("upi_update"),
            (Messages{"upi_update func begin!", "<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>",
                      "Target system is system:" + std::to_string(target_number()),
                      "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>", "upi_update func end!"}));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

// --- The marking, in order. ---

class MarkingTest : public UpgradeTest {};

TEST_F(MarkingTest, IsUnbootableBeforeTheFirstEraseAndBootableAfterTheLastReport) {
  put_package(support::system_package());
  static std::vector<int> statuses;
  statuses.clear();
  z_upgrade_status_info_t status{};
  z_upgrade_flush_status_t sink{
      &status, [] { statuses.push_back(status_in_record(*sim::attached(), System::b)); }};

  const LibraryRun run = upgrade(&sink);

  const int bootable = DUALSYSTEM_STATUS_BOOTABLE;
  const int unbootable = DUALSYSTEM_STATUS_UNBOOTABLE;
  EXPECT_EQ(statuses, (std::vector<int>{bootable, unbootable, unbootable, unbootable, unbootable,
                                        unbootable}));
  EXPECT_EQ(target_status(), bootable);
  EXPECT_LT(run.first(Op::write, "flags"), run.first(Op::memerase64, "kernel2"));
}

TEST_F(MarkingTest, ChangesNothingElseOfTheRecord) {
  const auto change = [](sim::BootRecord& record) {
    record.set_status(System::a, DUALSYSTEM_STATUS_SUCCESSFUL);
    record.set_status(System::b, DUALSYSTEM_STATUS_SUCCESSFUL);
    record.set_attempts(System::a, 5);
    record.set_attempts(System::b, 7);
    record.set_boot_to(System::b);
    record.bytes[40] = 'x';
  };
  write_flags(change);
  put_package(support::system_package());
  EXPECT_EQ(upgrade().result, 0);

  sim::BootRecord wanted = sim::factory_record();
  change(wanted);
  wanted.set_status(System::b, DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_EQ(sim::read_records(device()).main.record.bytes, wanted.bytes);
  EXPECT_EQ(sim::read_records(device()).backup.record.bytes, wanted.bytes);
}

TEST_F(MarkingTest, AFailureAtTheEndTurnsSuccessIntoFailure) {
  const support::PackageFile package = support::system_package();
  put_package(package);
  // The first two opens mark the target unbootable.
  device().faults().add({Op::open, "flags", 3, EMFILE});

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.messages_of("set_boot_to_status"),
            (Messages{"set_boot_to_status func begin!",
                      "Update fail, set target system bootable fail!"}));
  EXPECT_TRUE(run.said("upi_update", "<<<<<<<<<<<<Success  Upgrade>>>>>>>>>>>>>"));
  EXPECT_TRUE(run.said("upi_update", "Update boot to system fail. "));
  EXPECT_EQ(run.store.back().second, "4");
  expect_image(target_of("oemdata"), package.partitions[2].data);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_F(MarkingTest, TheWrapperPassesOnTheSignOnly) {
  put_package(platform_package({{"kernel", pattern(1)}}));
  EXPECT_EQ(vemk_dual_upgrade(nullptr), 0);
  EXPECT_EQ(upi_update(nullptr), 0);
  device().faults().add({Op::open, "flags", 1, EMFILE, true});
  EXPECT_EQ(vemk_dual_upgrade(nullptr), -1);
  EXPECT_EQ(upi_update(nullptr), -1);
}

}  // namespace
