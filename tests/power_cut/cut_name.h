// SPDX-License-Identifier: Apache-2.0
//
// The name of a power cut, by which it can be tried again alone:
//
//   OPERATION/SYSTEM/GEOMETRY/BAD-BLOCKS/AT/KIND[/AT/KIND]
//
// where AT counts flash operations from 1, KIND is "before", "after", "torn@BYTE" or "unstable",
// and the second pair is a cut in the recovery from the first.
#ifndef TESTS_POWER_CUT_CUT_NAME_H
#define TESTS_POWER_CUT_CUT_NAME_H

#include <optional>
#include <string>

#include "sim/faults.h"
#include "trial.h"

namespace cuts {

struct NamedCut {
  Scenario scenario;
  sim::PowerCut first;
  std::optional<sim::PowerCut> second;
};

std::string name_of(const NamedCut& cut);
// Throws std::runtime_error that names the part, what was found and what was expected.
NamedCut parse_cut(const std::string& name);

// "A" or "B".
sim::System parse_system(const std::string& name);

}  // namespace cuts

#endif
