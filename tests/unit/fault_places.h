// SPDX-License-Identifier: Apache-2.0
//
// What can go wrong in a call, thing by thing: every request that it makes, with every error that
// the kernel has for it.
//
// Left out is what these calls cannot meet: EBADF, since no descriptor is used that was not opened;
// EAGAIN, of descriptors that do not block; ENOSPC, EDQUOT, EFBIG and ETXTBSY on files, of which
// the log alone is written (work_files_sweep_test.cpp); ENAMETOOLONG on nodes, of at most 15
// characters; ESTALE and its like, of file systems on a network.
#ifndef TESTS_UNIT_FAULT_PLACES_H
#define TESTS_UNIT_FAULT_PLACES_H

#include <cstdint>
#include <string>
#include <vector>

#include "sim/attach.h"

// Operations of one kind at one place of the device, and how many of them a call makes.
struct FaultPlace {
  sim::Op op = sim::Op::open;
  std::string where;  // partition or path; of the store: empty
  std::uint64_t count = 0;
};

// Every place that these calls of the library touch, but those of the log.
std::vector<FaultPlace> touched_places(const std::vector<sim::Call>& calls);
bool is_of_the_log(const sim::Call& call);

// Everything that can happen to one operation at a place: each errno, and for transfers each kind
// of short count. `at` is left open.
std::vector<sim::Fault> faults_at(const FaultPlace& place);
// The same with one errno for all: enough where each has been tried on the other system, of which
// nothing but the names differs.
std::vector<sim::Fault> one_error_at(const FaultPlace& place);

std::string described(const sim::Fault& fault);

#endif
