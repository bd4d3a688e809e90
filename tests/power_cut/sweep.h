// SPDX-License-Identifier: Apache-2.0
//
// Every power cut of a scenario, one after the other.
#ifndef TESTS_POWER_CUT_SWEEP_H
#define TESTS_POWER_CUT_SWEEP_H

#include <cstdint>
#include <functional>
#include <string>

#include "cut_name.h"
#include "trial.h"

namespace cuts {

struct SweepOptions {
  std::uint64_t seed = 1;
  std::uint64_t second_every = 4;  // a second cut after one first cut in so many; 0: none
  bool every_word = false;         // tear the boot flag record behind each of its words, too
};

struct Tally {
  std::uint64_t scenarios = 0;
  std::uint64_t flash_operations = 0;  // of the runs without a cut
  std::uint64_t cuts = 0;              // of every kind at every one of them
  std::uint64_t word_cuts = 0;
  std::uint64_t second_cuts = 0;
  std::uint64_t failures = 0;

  std::uint64_t tried() const { return cuts + word_cuts + second_cuts; }
  Tally& operator+=(const Tally& that);
};

// Told of every failure: the cut's name, or the scenario's, and what was lost.
using OnFailure = std::function<void(const std::string& name, const std::string& what)>;

// Tries the scenario; that each cut was tried is checked, too.
Tally sweep(const Scenario& scenario, const SweepOptions& options, const OnFailure& on_failure);

}  // namespace cuts

#endif
