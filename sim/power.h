// SPDX-License-Identifier: Apache-2.0
//
// The moment at which the power goes.
#ifndef SIM_POWER_H
#define SIM_POWER_H

#include <functional>

#include "sim/device.h"

namespace sim {

// Exit status of a process whose power was cut.
constexpr int kPowerCutStatus = 76;

// What happens to the process when the power goes: by default it ends at once with
// kPowerCutStatus, no destructor, no atexit handler, no flush. Null: the default again. A handler
// that returns leaves a device on which every flash operation fails with EIO until power_on().
void on_power_cut(std::function<void()> handler);

// For the simulator: marks the device and does what was set.
void lose_power(Device& device);

}  // namespace sim

#endif
