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

// Two and three in a row, at the beginning, behind the first block and at the end, that turn bad
// while they are erased, or of which each fails to be programmed.
std::vector<Defect> dying_in_a_row(std::uint32_t blocks);

// All but the last two bad from the beginning, and one of these turns bad while it is erased, or
// fails to be programmed: there is no other left to go to.
std::vector<Defect> dying_at_the_end(std::uint32_t blocks);

// Of each of these blocks: worn out, turning bad while it is erased, and each of its pages failing
// to be programmed, beyond correction (with other bytes at each read, or the same), or unstable.
std::vector<Defect> dying(const std::vector<std::uint32_t>& blocks, std::uint32_t pages);

#endif
