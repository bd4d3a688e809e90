// SPDX-License-Identifier: Apache-2.0
//
// How `zozale-sim run` speaks to the library that it preloads.
#ifndef SIM_ENVIRONMENT_H
#define SIM_ENVIRONMENT_H

namespace sim {

// The device folder; without it the preloaded library does nothing.
constexpr const char* kDeviceVariable = "ZOZALE_SIM_DEVICE";
// A file that each call on the device is appended to; optional.
constexpr const char* kTraceVariable = "ZOZALE_SIM_TRACE";

}  // namespace sim

#endif
