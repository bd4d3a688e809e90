// SPDX-License-Identifier: Apache-2.0
//
// Operations that only read the package, in which any one request fails.
#include "operations.h"
#include "upi_public.h"

namespace {

class PackageSweepTest : public FaultSweep, public ::testing::WithParamInterface<sim::System> {
 protected:
  PackageSweepTest() {
    use_small_device(GetParam());
    support::PackageFile package = support::system_package(2100);
    package.partitions[0].data = support::pattern(9000, 3);  // read in three pieces
    package.extras = {{"notes", support::pattern(20)}, {"more", support::pattern(30)}};
    put_package(package);
  }

  void expect_untouched(const LibraryRun& run) {
    EXPECT_EQ(device().flash_operations(), 0U);
    EXPECT_EQ(target_status(), start_status());
    expect_only_the_target_touched();
    EXPECT_TRUE(run.result == 0 || run.result == -1);
  }
};

INSTANTIATE_TEST_SUITE_P(Running, PackageSweepTest,
                         ::testing::Values(sim::System::a, sim::System::b), [](const auto& system) {
                           return std::string(1, sim::letter(system.param));
                         });

TEST_P(PackageSweepTest, VerificationTellsTheTruth) {
  const std::size_t kinds = sweep_all(kVerify, faults_at, [this](const LibraryRun& run) {
    expect_untouched(run);
    EXPECT_EQ(run.store.back().second,
              std::to_string(run.result == 0 ? UPGRADE_STATUS_VERIFY_SUCCESS
                                             : UPGRADE_STATUS_VERIFY_FAIL));
    EXPECT_EQ(run_library(kVerify.call).result, 0);
  });
  // open, close, read, lseek, stat, fopen, fclose, stream_read, malloc, store_set, store_save
  EXPECT_EQ(kinds, 11U);
}

TEST_P(PackageSweepTest, TheUpgradeTypeIsReadOrNot) {
  const std::size_t kinds = sweep_all(kUpgradeType, faults_at, [this](const LibraryRun& run) {
    expect_untouched(run);
    EXPECT_TRUE(run.store.empty());
    EXPECT_EQ(run_library(kUpgradeType.call).result, 0);
  });
  EXPECT_EQ(kinds, 9U);
}

}  // namespace
