// SPDX-License-Identifier: Apache-2.0
//
// verify and type.
#include "tool_test.h"

namespace tool {
namespace {

using VerifyTest = ToolTest;
using VerifyInEither = EitherSystem;

TEST_P(VerifyInEither, AGoodPackageIsGood) {
  put_package(support::system_package());
  const std::uint64_t before = erases();

  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("The package is good:")) << run;
  EXPECT_TRUE(
      run.says("3 partitions for system " + std::string(1, sim::letter(sim::other(GetParam())))))
      << run;
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "1");
  EXPECT_EQ(erases(), before);
}

INSTANTIATE_TEST_SUITE_P(Either, VerifyInEither, ::testing::Values(sim::System::a, sim::System::b),
                         system_name);

TEST_F(VerifyTest, DamagedContentIsABadPackage) {
  sim::Bytes package = support::system_package().bytes();
  package.back() ^= 1;
  put_package(package);

  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(run.complains("its content does not match its digest")) << run;
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "2");
}

TEST_F(VerifyTest, ADamagedImageIsNamed) {
  support::PackageFile package = support::system_package();
  package.partitions[1].hash = support::sha512(support::bytes("something else"));
  put_package(package);

  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(run.complains("the image of rootfs does not match its digest")) << run;
}

// The library compares such a digest no further than to its zero byte.
TEST_F(VerifyTest, ADigestThatDiffersBehindAZeroByteIsABadPackage) {
  support::PackageFile package = support::system_package();
  support::PackageEntry& rootfs = package.partitions[1];
  rootfs.data = support::with_zero_in_digest(rootfs.data);
  put_package(package);
  EXPECT_EQ(zozale({"verify"}).status, 0);

  rootfs.hash = support::changed_behind_zero(support::sha512(rootfs.data));
  put_package(package);
  for (const Arguments& command :
       std::vector<Arguments>{{"verify"}, {"install"}, {"install", "--dry-run"}}) {
    const std::uint64_t before = erases();
    const Ended run = zozale(command);
    EXPECT_EQ(run.status, 3) << run;
    EXPECT_TRUE(run.complains("the image of rootfs does not match its digest")) << run;
    EXPECT_EQ(erases(), before) << run;
  }
}

TEST_F(VerifyTest, PartitionsInAnotherOrderThanTheTableAreABadPackage) {
  support::PackageFile package = support::system_package();
  std::swap(package.partitions[0], package.partitions[1]);
  put_package(package);

  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(
      run.complains("is_upgrade_type_valid: upgrade_type: 0, upgrade package partition "
                    "[rootfs] is different from system partition [kernel]"))
      << run;
}

TEST_F(VerifyTest, NoPackageIsABadPackage) {
  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(run.complains("there is no upgrade package")) << run;
  EXPECT_TRUE(run.complains("/cache/ovu_fota_ab/upgrade.package")) << run;
}

TEST_F(VerifyTest, AMissingPartitionIsAnUnfitDevice) {
  put_package(support::system_package());
  sim::Layout layout = sim::test_layout();
  for (sim::PartitionLayout& partition : layout.partitions) {
    partition.name = partition.name == "rootfs2" ? "other" : partition.name;
  }
  device().write_file("/proc/mtd", sim::mtd_text(layout));

  const Ended run = zozale({"verify"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("the partition rootfs2 is missing")) << run;
}

TEST_F(VerifyTest, AnUnknownRunningSystemIsAnUnfitDevice) {
  put_package(support::system_package());
  device().write_file("/proc/cmdline", "quiet\n");

  EXPECT_EQ(zozale({"verify"}).status, 4);
}

TEST_F(VerifyTest, AnUnusableTableIsAnUnfitDevice) {
  put_package(support::system_package());
  device().write_file("/etc_ro/systemPartitionInfo.conf", "[Head]\nmagic=SUPX\n");

  for (const char* command : {"verify", "type"}) {
    const Ended run = zozale({command});
    EXPECT_EQ(run.status, 4) << run;
    EXPECT_TRUE(run.complains("the partition table file cannot be used")) << run;
  }
}

TEST_F(VerifyTest, AFailingReadIsNoFaultOfThePackage) {
  put_package(support::system_package());
  device().clear_counts();
  ASSERT_EQ(zozale({"verify"}).status, 0);
  // The last read is of the last image.
  device().faults().add({sim::Op::read, std::string(support::kPackagePath),
                         device().count(sim::Op::read), EIO, false, std::nullopt});

  const Ended run = zozale({"verify"});

  EXPECT_EQ(device().faults().struck(), 1U);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("the package cannot be read")) << run;
}

TEST_F(VerifyTest, TypeNamesThePartitionsThatAPackageCarries) {
  support::PackageFile package = support::system_package();
  put_package(package);
  EXPECT_EQ(zozale({"type"}).out, "The package carries every system partition (type 0).\n");

  package.upgrade_type = 1;
  package.partitions.resize(2);
  put_package(package);
  EXPECT_EQ(zozale({"type"}).out, "The package carries platform partitions (type 1).\n");

  package = support::system_package();
  package.upgrade_type = 2;
  package.partitions.erase(package.partitions.begin(), package.partitions.begin() + 2);
  put_package(package);
  const nlohmann::json told = zozale({"type", "--json"}).json();
  EXPECT_EQ(told["type"], "OEM partitions");
  EXPECT_EQ(told["partitions"], 1);
}

TEST_F(VerifyTest, TypeOfABadPackageIsRefused) {
  put_package(support::bytes("not a package at all"));
  EXPECT_EQ(zozale({"type"}).status, 3);

  support::PackageFile package = support::system_package();
  package.upgrade_type = 1;  // oemdata is no platform partition
  put_package(package);
  const Ended run = zozale({"type"});
  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(run.complains("upgrade package partition [oemdata] do not exist")) << run;
}

}  // namespace
}  // namespace tool
