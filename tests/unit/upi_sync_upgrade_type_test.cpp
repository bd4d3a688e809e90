// SPDX-License-Identifier: Apache-2.0
//
// The query of the package's upgrade type.
#include <cerrno>

#include "expected_log.h"
#include "upgrade_test.h"
#include "upi_sync_system.h"
#include "upi_upgrade_package.h"

namespace {

using sim::Op;
using support::pattern;

class UpgradeTypeTest : public UpgradeTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(g_upgrade_package_info, nullptr) << "a package was left loaded";
    EXPECT_EQ(device().count(Op::write), 0U);
    UpgradeTest::TearDown();
  }

  static LibraryRun type() {
    return run_library([] { return vemk_dual_get_upgrade_type(); });
  }
  void expect_type(const support::PackageFile& package, int wanted) {
    put_package(package);
    EXPECT_EQ(type().result, wanted);
    EXPECT_EQ(run_library([] { return upi_get_upgrade_type(); }).result, wanted);
  }
};

TEST_F(UpgradeTypeTest, IsTheHeads) {
  expect_type(support::system_package(), 0);
  expect_type(platform_package({{"rootfs", pattern(3)}}), 1);
  support::PackageFile oem = platform_package({{"oemdata", pattern(3)}});
  oem.upgrade_type = 2;
  expect_type(oem, 2);
}

TEST_F(UpgradeTypeTest, IsAnyNumberWhenThePackageHasNoPartition) {
  support::PackageFile package;
  for (const int number : {9, -7, -1, 0x7FFFFFFF}) {
    package.upgrade_type = number;
    expect_type(package, number);
  }
}

TEST_F(UpgradeTypeTest, LoadsAndReleasesThePackageAndNothingElse) {
  const support::PackageFile package = support::system_package();
  put_package(package);
  const LibraryRun run = type();

  ExpectedLog log(device(), run);
  EXPECT_EQ(run.log, log.init_upgrade_package_info(package).lines());
  const std::string path(support::kPackagePath);
  EXPECT_EQ(run.made(Op::open, path).size(), 1U);
  EXPECT_EQ(run.made(Op::close, path).size(), 1U);
  EXPECT_TRUE(run.store.empty());
}

TEST_F(UpgradeTypeTest, WithoutAPackageIsUnknown) {
  const LibraryRun run = type();
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(),
            (support::LogLine{"upi_get_upgrade_type", "Init upgrade package info fail"}));
}

TEST_F(UpgradeTypeTest, OfADamagedPackageIsUnknown) {
  support::PackageFile package = support::system_package();
  package.upgrade_type = 3;
  expect_type(package, -1);
  package.magic = "FOTB";
  expect_type(package, -1);
  device().write_file(support::kPackagePath, std::string(255, 'F'));
  EXPECT_EQ(type().result, -1);
}

// A query that fails leaves what a later one needs.
TEST_F(UpgradeTypeTest, CanBeAskedAgainAfterAFailure) {
  put_package(support::system_package());
  device().faults().add({Op::open, std::string(support::kPackagePath), 1, EACCES});
  EXPECT_EQ(type().result, -1);
  EXPECT_EQ(type().result, 0);
}

}  // namespace
