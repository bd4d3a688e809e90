// SPDX-License-Identifier: Apache-2.0
//
// What a plan must be for a device to take the package, found out before anything is written.
#ifndef ZOZALE_PACKAGE_PLAN_RULES_H
#define ZOZALE_PACKAGE_PLAN_RULES_H

#include <vector>

#include "common/file.h"
#include "common/finding.h"
#include "plan.h"

namespace zozale {

// The plan's files, opened, in the plan's order.
struct PlanFiles {
  std::vector<InputFile> partitions;
  std::vector<InputFile> extras;
};

// Counts, names, texts and the partition table, which is read if the plan names one. Throws Error
// when the table cannot be read.
Findings check_plan(const PackagePlan& plan);

// Sizes of the files and of the package that they make.
Findings check_plan_sizes(const PackagePlan& plan, const PlanFiles& files);

}  // namespace zozale

#endif
