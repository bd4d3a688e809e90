// SPDX-License-Identifier: Apache-2.0
//
// What can be wrong with a partition's blocks.
#ifndef TESTS_UNIT_DEFECTS_H
#define TESTS_UNIT_DEFECTS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/device.h"

struct Defect {
  std::string name;
  // Born with it: the partition is filled afterwards.
  bool born = false;
  std::function<void(sim::Partition&)> apply;
  bool misread = false;  // what reads wrong reads wrong the same way each time
};

// One block bad from the beginning, wherever it lies; two and three in a row at the beginning, in
// the middle and at the end; all but one; all.
std::vector<Defect> born_bad(std::uint32_t blocks);

// Of each of these blocks: worn out, turning bad while it is erased, and each of its pages failing
// to be programmed, beyond correction (with other bytes at each read, or the same), or unstable.
std::vector<Defect> dying(const std::vector<std::uint32_t>& blocks, std::uint32_t pages);

#endif
