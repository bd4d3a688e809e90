// SPDX-License-Identifier: Apache-2.0
//
// One power cut: an operation that loses its power, the start after it, the operation once more,
// and what has to hold after each.
#ifndef TESTS_POWER_CUT_TRIAL_H
#define TESTS_POWER_CUT_TRIAL_H

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "operation.h"
#include "shapes.h"
#include "sim/boot_loader.h"
#include "twin_device.h"

namespace cuts {

struct Scenario {
  const Operation* operation;
  sim::System running;
  const Shape* shape;
  const BadMap* map;
  std::string name() const;  // "upgrade/A/512x4/first"
};

// Something that a power cut must not lead to.
struct Lost : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Flash operations of a run.
struct FlashCount {
  std::uint64_t erases = 0;
  std::uint64_t programs = 0;
  std::uint64_t total() const { return erases + programs; }
};

class Trial {
 public:
  // Makes the device and runs the operation once without a cut. Throws Lost when that fails.
  explicit Trial(const Scenario& scenario);

  // Flash operations of the operation without a cut.
  const FlashCount& uncut() const { return uncut_; }

  // What a cut taught.
  struct Result {
    FlashCount before_cut;       // the one that was cut included
    std::uint64_t recovery = 0;  // flash operations of the start and the operation after the cut
  };
  // Cuts the operation, then the recovery when `second` is given, and recovers. Throws Lost.
  Result run(const sim::PowerCut& cut, const std::optional<sim::PowerCut>& second = std::nullopt);

 private:
  void prepare();
  const Release& release(std::uint32_t number);

  FlashCount counted();
  int call();
  void cut_operation(const sim::PowerCut& cut);
  void cut_recovery(const sim::PowerCut& cut);

  bool may_lack_record() const;
  void check_start(const sim::BootResult& result);
  void check_record(const sim::RecordCopies& copies);
  void check_status();
  bool other_is_complete();
  std::uint64_t recover();
  void check_done();
  void check_contents();
  void check_no_rule_broken();

  std::map<std::string, std::uint64_t> erases_of_finished();

  Scenario scenario_;
  TwinDevice twin_;
  std::map<std::uint32_t, Release> releases_;
  std::vector<sim::BootRecord> records_;
  sim::Device::Snapshot start_;
  FlashCount uncut_;
};

}  // namespace cuts

#endif
