// SPDX-License-Identifier: Apache-2.0
//
// What a device looks like, for people and for programs.
#ifndef SIM_REPORT_H
#define SIM_REPORT_H

#include <string>

#include "sim/boot_loader.h"
#include "sim/device.h"

namespace sim {

// `zozale-sim show` as text, and as JSON (schema: docs/simulator.md).
std::string device_text(Device& device);
std::string device_json(Device& device);

// One boot as a sentence: what was found, what starts, and why.
std::string boot_text(const BootResult& result);

}  // namespace sim

#endif
