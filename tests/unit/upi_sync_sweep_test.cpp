// SPDX-License-Identifier: Apache-2.0
//
// A synchronisation in which any one operation fails: what it says is what is on flash.
#include <algorithm>
#include <tuple>

#include "fault_sweep.h"
#include "upi_sync_system.h"

namespace {

using support::pattern;

const Operation kSync = {"Sync", [] { return vemk_dual_sync_system(); },
                         [](reference::Library& library) { return library.sync(); }};

class SyncTruthTest : public FaultSweep {
 protected:
  // The kernel ends early, the root file systems are equal, the OEM's data fill their partition.
  void make_systems_differ() {
    const std::size_t room = running_of("kernel").good().size();
    running_of("kernel").flash(pattern(std::min<std::size_t>(room, 3000), 5));
    target_of("rootfs").flash(running_of("rootfs").good());
  }

  // Good blocks up to the first erased one; behind it anything may be left.
  static sim::Bytes content(const sim::Partition& partition) {
    const sim::Bytes good = partition.good();
    const sim::Bytes erased(partition.block_size(), 0xFF);
    std::size_t end = 0;
    while (end < good.size() && !std::equal(erased.begin(), erased.end(), &good[end])) {
      end += erased.size();
    }
    return {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(end)};
  }
  bool systems_are_equal() {
    const std::vector<std::string> names = {"kernel", "rootfs", "oemdata"};
    return std::all_of(names.begin(), names.end(), [this](const std::string& name) {
      return content(target_of(name)) == content(running_of(name));
    });
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

class SyncSweepTest : public SyncTruthTest,
                      public ::testing::WithParamInterface<std::tuple<sim::System, sim::Op>> {
 protected:
  SyncSweepTest() {
    use_small_device(std::get<0>(GetParam()));
    make_systems_differ();
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

// --- Blocks that are bad or die. ---

class SyncDefectTest : public SyncTruthTest, public ::testing::WithParamInterface<sim::System> {
 protected:
  void try_each(const std::string& mtd_name, const std::vector<Defect>& defects) {
    for (const Defect& defect : defects) {
      SCOPED_TRACE(mtd_name + ": " + defect.name);
      use_defective_device(GetParam(), mtd_name, defect);
      make_systems_differ();
      expect_same(kSync, {}, [this](const LibraryRun& run) { expect_truth(run); });
    }
  }

  void break_page_of_running_kernel(sim::PageDefect page_defect) {
    use_defective_device(GetParam(), mtd_name(GetParam(), "kernel"),
                         {"page 1", false, [page_defect](sim::Partition& kernel) {
                            kernel.set_page_defects(0, 1, page_defect);
                          }});
    make_systems_differ();
  }
};

INSTANTIATE_TEST_SUITE_P(Running, SyncDefectTest, ::testing::Values(sim::System::a, sim::System::b),
                         [](const auto& system) {
                           return std::string(1, sim::letter(system.param));
                         });

TEST_P(SyncDefectTest, InTheTarget) {
  for (const char* const name : {"kernel", "oemdata"}) {
    const std::string mtd = mtd_name(sim::other(GetParam()), name);
    try_each(mtd, born_bad(kDefectiveBlocks));
    try_each(mtd, dying({0, 1, 2, kDefectiveBlocks - 1}, 4));
    try_each(mtd, dying_in_a_row(kDefectiveBlocks));
  }
}

// A page of the running system that is misread is copied as it reads; see the next tests.
TEST_P(SyncDefectTest, InTheRunningSystem) {
  for (const char* const name : {"kernel", "oemdata"}) {
    const std::string mtd = mtd_name(GetParam(), name);
    try_each(mtd, born_bad(kDefectiveBlocks));
    for (const Defect& defect : dying({0, 1, kDefectiveBlocks - 1}, 4)) {
      SCOPED_TRACE(mtd + ": " + defect.name);
      use_defective_device(GetParam(), mtd, defect);
      make_systems_differ();
      expect_same(kSync, {}, [&](const LibraryRun& run) {
        expect_only_the_target_touched();
        if (!defect.misread) {
          expect_truth(run);
        }
      });
    }
  }
}

// The kernel tells of no error, but no read of the page gives what another gave.
TEST_P(SyncDefectTest, APageOfTheRunningSystemBeyondCorrectionFailsTheSync) {
  break_page_of_running_kernel(sim::kPageUnreadable);
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said("sync_partition", "after sync, hash is different"));
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
}

// The comparison reads the page as the copy did.
TEST_P(SyncDefectTest, APageOfTheRunningSystemThatIsMisreadIsCopiedWrong) {
  break_page_of_running_kernel(sim::kPageMisread);
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_EQ(content(target_of("kernel")).size(), content(running_of("kernel")).size());
  EXPECT_NE(content(target_of("kernel")), content(running_of("kernel")));
}

TEST_P(SyncDefectTest, InTheFlags) {
  try_each("flags", born_bad(10));
  try_each("flags", dying({0, 1, 2, 9}, 4));
  try_each("flags", dying_in_a_row(10));
  try_each("flags", dying_at_the_end(10));
}

}  // namespace
