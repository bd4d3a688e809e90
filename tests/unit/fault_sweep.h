// SPDX-License-Identifier: Apache-2.0
//
// Lets every request of an operation fail once, one run each, and holds each run against what the
// operation has to do then.
#ifndef TESTS_UNIT_FAULT_SWEEP_H
#define TESTS_UNIT_FAULT_SWEEP_H

#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "defects.h"
#include "fault_places.h"
#include "tests/reference/library.h"
#include "upgrade_test.h"

// An operation of the library, and the same restated.
struct Operation {
  std::string name;
  std::function<int()> call;
  std::function<int(reference::Library&)> restated;
};

// Blocks of each partition, but the flags' 10, of a device with a defect.
constexpr std::uint32_t kDefectiveBlocks = 6;

class FaultSweep : public UpgradeTest {
 protected:
  FaultSweep();

  // A small device in which a system runs, the other one marked successful, all partitions full.
  // While B runs, every partition has bad blocks.
  void use_small_device(sim::System running);
  // The same with a defect in one partition, by its name in "/proc/mtd", and no other bad block.
  void use_defective_device(sim::System running, const std::string& mtd_name, const Defect& defect);

  // What happens to the device before each run, besides going back to where the sweep began.
  void before_each(const std::function<void()>& prepare) { prepare_ = prepare; }
  // The log is closed before each run of the library, so that the run opens it, and `settle` takes
  // out of each message what the log's writer says behind it.
  void with_fresh_log(const std::function<void(std::string&)>& settle) { settle_ = settle; }

  // Runs the operation on the device as it is now, with a fault or none, both ways, and expects the
  // same results, diagnostics, requests, store values, flash and descriptors, and no memory kept.
  // `check` looks at the library's run, on the device as the library left it.
  using Check = std::function<void(const LibraryRun&)>;
  void expect_same(const Operation& operation, const std::optional<sim::Fault>& fault = {},
                   const Check& check = {});

  // Does that for the operation's every request of a kind. Each must be met by its fault.
  using Faults = std::function<std::vector<sim::Fault>(const FaultPlace&)>;
  void sweep(const Operation& operation, sim::Op op, const Faults& faults, const Check& check = {});
  // The same for every kind of request that it makes. Returns how many kinds these were.
  std::size_t sweep_all(const Operation& operation, const Faults& faults, const Check& check = {});

  // Expects the other system's status to be the only change of the record, and the running
  // system's partitions to be as they were when the sweep began.
  void expect_only_the_target_touched();

  int start_status() { return start_status_; }

 private:
  // Everything that is to be the same.
  struct Seen {
    LibraryRun run;
    std::vector<std::string> requests;
    std::vector<std::string> left_open;
    std::vector<std::pair<std::string, std::string>> saved;
    std::vector<bool> is_protected;
    sim::Bytes chip;
    std::uint64_t allocations = 0;
    bool struck = false;
  };
  void use_system(const sim::Layout& layout, const std::function<void()>& before_filling);
  void begin_here();
  void go_back(const std::optional<sim::Fault>& fault);
  void look_around(Seen& seen);
  Seen run_library_with(const Operation& operation, const std::optional<sim::Fault>& fault);
  Seen run_restated_with(const Operation& operation, const std::optional<sim::Fault>& fault,
                         const LibraryRun& like);
  void expect_equal(const Seen& found, const Seen& wanted);
  void expect_struck(const Operation& operation, const sim::Fault& fault, const Check& check);
  std::vector<FaultPlace> places_of(const Operation& operation, sim::Op op);
  void sweep_places(const Operation& operation, const std::vector<FaultPlace>& places,
                    const Faults& faults, const Check& check);
  std::vector<sim::Bytes> running_contents();

  sim::Device::Snapshot start_;
  bool begun_ = false;
  int start_status_ = 0;
  std::vector<sim::Bytes> running_;
  std::function<void()> prepare_;
  std::function<void(std::string&)> settle_;
};

// Every errno while A runs, one while B does.
std::vector<sim::Fault> faults_for(sim::System running, const FaultPlace& place);

// Kinds of requests that may fail, but those that the operation makes none of.
std::vector<sim::Op> failing_operations(const std::vector<sim::Op>& never_made = {});
// A kind's name without what a test's name may not hold.
std::string op_test_name(sim::Op op);
// "ARunsSync".
std::string run_name(sim::System running, const std::string& operation);
std::string sweep_name(const ::testing::TestParamInfo<std::tuple<sim::System, sim::Op>>& sweep);

#endif
