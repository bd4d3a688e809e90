// SPDX-License-Identifier: Apache-2.0
#include "tool_test.h"

namespace tool {
namespace {

using InstallTest = ToolTest;
using InstallInEither = EitherSystem;

sim::Bytes head_of(const sim::Bytes& bytes, std::size_t len) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(len)};
}

TEST_P(InstallInEither, WritesEveryImageIntoTheOtherSystem) {
  const support::PackageFile package = support::system_package(kImageSize);
  put_package(package);
  const sim::Bytes running = device().partition(running_name("rootfs")).raw();

  const Ended run = zozale({"install"});

  EXPECT_EQ(run.status, 0) << run;
  for (const support::PackageEntry& entry : package.partitions) {
    EXPECT_EQ(head_of(device().partition(target_name(entry.name)).good(), kImageSize), entry.data);
  }
  EXPECT_EQ(device().partition(running_name("rootfs")).raw(), running);
  EXPECT_EQ(record().status(sim::other(GetParam())), sim::kStatusBootable);
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "4");
  EXPECT_TRUE(run.says("3 partitions written, 0 up to date")) << run;
}

TEST_P(InstallInEither, ASecondRunFindsNothingLeftAndSaysSo) {
  put_package(support::system_package(kImageSize));
  ASSERT_EQ(zozale({"install"}).status, 0);
  const std::uint64_t before = erases_of_systems();

  const Ended run = zozale({"install"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Nothing was left to write")) << run;
  EXPECT_EQ(erases_of_systems(), before);
}

TEST_P(InstallInEither, ADryRunTellsThePlanAndWritesNothing) {
  const support::PackageFile package = support::system_package(kImageSize);
  put_package(package);
  device().partition(target_name("kernel")).flash(package.partitions[0].data);
  device().partition(target_name("rootfs")).set_bad(3);

  const Ended run = zozale_untouched({"install", "--dry-run", "--json"});

  EXPECT_EQ(run.status, 0) << run;
  const nlohmann::json told = run.json();
  EXPECT_EQ(told["dry_run"], true);
  EXPECT_EQ(told["nothing_to_do"], false);
  const nlohmann::json& kernel = told["partitions"][0];
  EXPECT_EQ(kernel["up_to_date"], true);
  EXPECT_EQ(kernel["blocks_to_erase"], 0);
  EXPECT_EQ(kernel["blocks_to_write"], 0);
  const nlohmann::json& rootfs = told["partitions"][1];
  EXPECT_EQ(rootfs["mtd"], target_name("rootfs"));
  EXPECT_EQ(rootfs["up_to_date"], false);
  EXPECT_EQ(rootfs["blocks_to_erase"], 7);
  EXPECT_EQ(rootfs["blocks_to_write"], 3);
  EXPECT_EQ(rootfs["bad_blocks"], nlohmann::json::array({3}));
}

INSTANTIATE_TEST_SUITE_P(Either, InstallInEither, ::testing::Values(sim::System::a, sim::System::b),
                         system_name);

TEST_F(InstallTest, ADryRunSpeaksToPeopleToo) {
  put_package(support::system_package(kImageSize));
  device().partition("kernel2").set_bad(1);

  const Ended run = zozale_untouched({"install", "--dry-run"});

  EXPECT_TRUE(
      run.says("  kernel2: to be written, 4.8 KiB, erase 7 blocks, write 3 blocks; "
               "7 good of 8, bad: 1\n"))
      << run;
  EXPECT_TRUE(run.says("Nothing was written: this was a dry run.\n")) << run;
}

TEST_F(InstallTest, ADryRunMakesNoWorkFolder) {
  device().remove_file("/cache/ovu_fota_ab/upi_ab.log");
  put_package(support::system_package(kImageSize));

  EXPECT_EQ(zozale_untouched({"install", "--dry-run"}).status, 0);
  EXPECT_FALSE(device().has_file("/cache/ovu_fota_ab/upgrade_temp"));
  EXPECT_FALSE(device().has_file("/cache/ovu_fota_ab/upi_ab.log"));
}

TEST_F(InstallTest, ADryRunOfAnInstalledPackageFindsNothingToWrite) {
  put_package(support::system_package(kImageSize));
  ASSERT_EQ(zozale({"install"}).status, 0);

  const Ended run = zozale_untouched({"install", "--dry-run"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Nothing would be written.\n")) << run;
}

TEST_F(InstallTest, TellsWhatBecameOfEachPartition) {
  const support::PackageFile package = support::system_package(kImageSize);
  put_package(package);
  device().partition("rootfs2").flash(package.partitions[1].data);

  const nlohmann::json told = zozale({"install", "--json"}).json();

  EXPECT_EQ(told["target"], "B");
  EXPECT_EQ(told["package"]["version_to"], "V2");
  EXPECT_EQ(told["partitions"][0]["state"], "written");
  EXPECT_EQ(told["partitions"][1]["state"], "up to date");
  EXPECT_EQ(told["partitions"][2]["state"], "written");
  EXPECT_EQ(told["nothing_to_do"], false);
}

// The library returns 0 for these: only the status tells them from a success.
TEST_F(InstallTest, AFailedPreparationIsAFailure) {
  put_package(support::system_package(kImageSize));
  device().write_file("/cache/ovu_fota_ab/upi_ab.log", "");
  device().faults().add({sim::Op::mkdir, "/cache/*", 1, EROFS, true, std::nullopt});
  const std::uint64_t before = erases_of_systems();

  const Ended run = zozale({"install"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("failed in its preparation, before anything was erased")) << run;
  EXPECT_TRUE(run.complains("prepare_update: Prepare path fail!")) << run;
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "5");
  EXPECT_EQ(erases_of_systems(), before);
}

TEST_F(InstallTest, AnUnmarkableTargetIsAFailureBeforeTheFirstErase) {
  put_package(support::system_package(kImageSize));
  // The first marking fails in both copies, the one at the end succeeds.
  device().faults().add({sim::Op::memerase, "flags", 1, EIO, false, std::nullopt});
  device().faults().add({sim::Op::memerase, "flags", 2, EIO, false, std::nullopt});
  const std::uint64_t before = erases_of_systems();

  const Ended run = zozale({"install", "--json"});

  EXPECT_EQ(run.status, 1) << run;
  const nlohmann::json told = run.json();
  EXPECT_EQ(told["exit"], 1);
  EXPECT_EQ(told["partitions"][0]["state"], "untouched");
  EXPECT_EQ(told["error"]["log_file"], "/cache/ovu_fota_ab/upi_ab.log");
  EXPECT_EQ(erases_of_systems(), before);
}

TEST_F(InstallTest, AFailedWriteTellsPlaceReasonAndLog) {
  put_package(support::system_package(kImageSize));
  device().faults().add({sim::Op::write, "rootfs2", 2, EIO, false, std::nullopt});

  const Ended run = zozale({"install"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("failed while writing rootfs2")) << run;
  EXPECT_TRUE(run.complains("VEMK_WriteBlock: Write flash error")) << run;
  EXPECT_TRUE(run.complains("log file: /cache/ovu_fota_ab/upi_ab.log")) << run;
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusUnbootable);
}

TEST_F(InstallTest, GoesOnWhereAFailedOneEnded) {
  put_package(support::system_package(kImageSize));
  device().faults().add({sim::Op::write, "rootfs2", 2, EIO, false, std::nullopt});
  ASSERT_EQ(zozale({"install"}).status, 1);

  const nlohmann::json told = zozale({"install", "--json"}).json();

  EXPECT_EQ(told["exit"], 0);
  EXPECT_EQ(told["partitions"][0]["state"], "up to date");
  EXPECT_EQ(told["partitions"][1]["state"], "written");
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusBootable);
}

// It would leave system B's content as it is and mark it bootable.
TEST_F(InstallTest, APackageWithoutPartitionsIsRefused) {
  support::PackageFile package;
  package.extras = {{"notes", support::bytes("payload")}};
  put_package(package);
  const std::uint64_t before = erases();

  const Ended run = zozale({"install"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(run.complains("it carries no partition")) << run;
  EXPECT_TRUE(run.complains("found:    1 extra file and no partition")) << run;
  EXPECT_EQ(erases(), before) << run;
}

}  // namespace
}  // namespace tool
