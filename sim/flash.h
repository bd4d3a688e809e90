// SPDX-License-Identifier: Apache-2.0
//
// The chip as a driver reaches it: every erase and program is counted, may fail by a fault, and
// may be the one at which the power goes.
#ifndef SIM_FLASH_H
#define SIM_FLASH_H

#include <cstdint>

#include "sim/device.h"

namespace sim {

// Blocks and pages are the partition's. Results are 0 or an errno value.
int flash_erase(Device& device, std::uint32_t partition, std::uint32_t block);
int flash_program(Device& device, std::uint32_t partition, std::uint64_t page,
                  const std::uint8_t* data);

}  // namespace sim

#endif
