// SPDX-License-Identifier: Apache-2.0
//
// Names and sums that both forms of the report use.
#ifndef SIM_REPORT_NAMES_H
#define SIM_REPORT_NAMES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/device.h"

namespace sim {

const char* power_name(Power power);
// "A", "B" or the number.
std::string target_name(std::uint32_t boot_to);
// "bootable", "successful", "unbootable" or the number.
std::string status_name(std::int32_t status);
std::vector<std::pair<std::string, std::uint64_t>> named_breaks(const RuleBreaks& breaks);
// Most erases of any block.
std::uint32_t worst_block(const Partition& partition);

}  // namespace sim

#endif
