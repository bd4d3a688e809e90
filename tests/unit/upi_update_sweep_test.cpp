// SPDX-License-Identifier: Apache-2.0
//
// An upgrade in which any one operation fails: what it says is what is on flash.
#include <string>
#include <tuple>

#include "fault_sweep.h"
#include "upi_update.h"

namespace {

const Operation kUpgrade = {"Upgrade", [] { return vemk_dual_upgrade(nullptr); },
                            [](reference::Library& library) { return library.upgrade(); }};

class UpdateTruthTest : public FaultSweep {
 protected:
  // In their whole blocks; a block behind an image may have kept what it held.
  bool images_are_there() {
    for (const support::PackageEntry& entry : package_.partitions) {
      sim::Bytes found = target_of(entry.name).good();
      found.resize(std::size_t{2} * target_of(entry.name).block_size());
      if (found != filled_up(entry.data, found.size())) {
        return false;
      }
    }
    return true;
  }

  void expect_truth(const LibraryRun& run) {
    const std::string status = run.store.back().second;
    if (status == std::to_string(UPGRADE_STATUS_UPDATE_SUCCESS)) {
      EXPECT_TRUE(images_are_there());
      EXPECT_EQ(run.result, run.told_of("Update boot to system fail. ") ? -1 : 0);
    } else {
      EXPECT_EQ(status, std::to_string(UPGRADE_STATUS_UPDATE_FAIL));
      EXPECT_TRUE(run.result == -1 || run.told_of("Prepare for update fail!"));
      EXPECT_NE(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
    }
    if (run.result == 0 && status == std::to_string(UPGRADE_STATUS_UPDATE_SUCCESS)) {
      EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
    }
    if (target_status() == DUALSYSTEM_STATUS_SUCCESSFUL) {
      EXPECT_FALSE(run.told_of("mtd_erase_partition func begin!")) << "erased and not marked";
    }
  }

  // The first image ends with a block, the last ones within one.
  const support::PackageFile package_ = support::system_package(2100);
};

class UpdateSweepTest : public UpdateTruthTest,
                        public ::testing::WithParamInterface<std::tuple<sim::System, sim::Op>> {
 protected:
  UpdateSweepTest() {
    use_small_device(std::get<0>(GetParam()));
    put_package(package_);
  }
};

TEST_P(UpdateSweepTest, TellsTheTruthAndCanBeRunAgain) {
  const auto faults = [](const FaultPlace& place) {
    return faults_for(std::get<0>(GetParam()), place);
  };
  sweep(kUpgrade, std::get<1>(GetParam()), faults, [&](const LibraryRun& run) {
    expect_truth(run);
    expect_only_the_target_touched();
    EXPECT_EQ(run_library(kUpgrade.call).result, 0);
    EXPECT_TRUE(images_are_there());
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  });
}

INSTANTIATE_TEST_SUITE_P(Of, UpdateSweepTest,
                         ::testing::Combine(::testing::Values(sim::System::a, sim::System::b),
                                            ::testing::ValuesIn(failing_operations())),
                         sweep_name);

// --- Blocks that are bad or die. ---

class UpdateDefectTest : public UpdateTruthTest, public ::testing::WithParamInterface<sim::System> {
 protected:
  void try_each(const std::string& mtd_name, const std::vector<Defect>& defects) {
    for (const Defect& defect : defects) {
      SCOPED_TRACE(mtd_name + ": " + defect.name);
      use_defective_device(GetParam(), mtd_name, defect);
      put_package(package_);
      expect_same(kUpgrade, {}, [this](const LibraryRun& run) { expect_truth(run); });
    }
  }
  std::string of_target(const char* name) { return mtd_name(sim::other(GetParam()), name); }
};

INSTANTIATE_TEST_SUITE_P(Running, UpdateDefectTest,
                         ::testing::Values(sim::System::a, sim::System::b), [](const auto& system) {
                           return std::string(1, sim::letter(system.param));
                         });

TEST_P(UpdateDefectTest, InTheTarget) {
  for (const char* const name : {"kernel", "oemdata"}) {
    try_each(of_target(name), born_bad(kDefectiveBlocks));
    try_each(of_target(name), dying({0, 1, 2, kDefectiveBlocks - 1}, 4));
    try_each(of_target(name), dying_in_a_row(kDefectiveBlocks));
  }
}

TEST_P(UpdateDefectTest, InTheFlags) {
  try_each("flags", born_bad(10));
  try_each("flags", dying({0, 1, 2, 9}, 4));
  try_each("flags", dying_in_a_row(10));
  try_each("flags", dying_at_the_end(10));
}

}  // namespace
