// SPDX-License-Identifier: Apache-2.0
//
// A synchronisation in which any one operation fails: what it says is what is on flash.
#include <tuple>

#include "fault_sweep.h"
#include "upi_sync_system.h"

namespace {

using support::pattern;

const Operation kSync = {"Sync", [] { return vemk_dual_sync_system(); },
                         [](reference::Library& library) { return library.sync(); }};

class SyncSweepTest : public FaultSweep,
                      public ::testing::WithParamInterface<std::tuple<sim::System, sim::Op>> {
 protected:
  SyncSweepTest() {
    use_small_device(std::get<0>(GetParam()));
    running_of("kernel").flash(pattern(3000, 5));
    target_of("rootfs").flash(running_of("rootfs").raw());
  }

  // Up to the erased block that ends the kernel; behind it anything may be left.
  bool systems_are_equal() {
    sim::Bytes kernel = target_of("kernel").good();
    kernel.resize(std::size_t{2} * target_of("kernel").block_size());
    return kernel == filled_up(pattern(3000, 5), kernel.size()) &&
           target_of("rootfs").raw() == running_of("rootfs").raw() &&
           target_of("oemdata").raw() == running_of("oemdata").raw();
  }

  void expect_truth(const LibraryRun& run) {
    EXPECT_EQ(run.store.back().second, run.result == 0 ? "0" : "-1");
    const int status = target_status();
    if (run.result == 0) {
      EXPECT_TRUE(systems_are_equal());
      EXPECT_EQ(status == DUALSYSTEM_STATUS_BOOTABLE,
                !run.told_of("set target system bootable fail"));
    } else {
      EXPECT_NE(status, DUALSYSTEM_STATUS_BOOTABLE);
    }
    if (status == DUALSYSTEM_STATUS_SUCCESSFUL) {
      EXPECT_FALSE(run.told_of("erase_partition func begin!")) << "erased and not marked";
    }
  }
};

TEST_P(SyncSweepTest, TellsTheTruthAndCanBeRunAgain) {
  const auto faults = [](const FaultPlace& place) {
    return faults_for(std::get<0>(GetParam()), place);
  };
  sweep(kSync, std::get<1>(GetParam()), faults, [&](const LibraryRun& run) {
    expect_truth(run);
    expect_only_the_target_touched();
    EXPECT_EQ(run_library(kSync.call).result, 0);
    EXPECT_TRUE(systems_are_equal());
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  });
}

INSTANTIATE_TEST_SUITE_P(Of, SyncSweepTest,
                         ::testing::Combine(::testing::Values(sim::System::a, sim::System::b),
                                            ::testing::ValuesIn(failing_operations(
                                                {sim::Op::access, sim::Op::stat, sim::Op::mkdir}))),
                         sweep_name);

}  // namespace
