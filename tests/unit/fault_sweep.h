// SPDX-License-Identifier: Apache-2.0
//
// Lets every operation of a kind fail once, one run each.
#ifndef TESTS_UNIT_FAULT_SWEEP_H
#define TESTS_UNIT_FAULT_SWEEP_H

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "upgrade_test.h"

class FaultSweepTest : public UpgradeTest,
                       public ::testing::WithParamInterface<std::tuple<sim::System, sim::Op>> {
 protected:
  // A small device in which GetParam()'s system runs.
  FaultSweepTest();

  // Runs `call` with the first, second, third ... operation of GetParam()'s kind failing, each time
  // on the device as it is now, until one run meets no fault. `check` looks at each run that met
  // one; a run in which a descriptor number was closed twice, or anything but the log and the
  // package of a load that failed was left open, is a failure already.
  void sweep(const std::function<int()>& call, const std::function<void(const LibraryRun&)>& check);

  // What the running system's partitions hold.
  std::vector<sim::Bytes> running_contents();
  // Nothing of the record has changed but the target's status.
  void expect_only_the_target_marked();

 private:
  bool run_with_fault(std::uint64_t at, const std::function<int()>& call,
                      const std::function<void(const LibraryRun&)>& check);
  static void expect_descriptors(const LibraryRun& run);
};

// Operations that may fail, for both running systems.
std::vector<sim::Op> failing_operations();
std::string sweep_name(const ::testing::TestParamInfo<std::tuple<sim::System, sim::Op>>& sweep);

#endif
