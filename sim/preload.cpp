// SPDX-License-Identifier: Apache-2.0
//
// Puts a program on a simulated device before its main() runs: `zozale-sim run` names the device
// in the environment, and the program's children inherit it.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "sim/environment.h"
#include "sim/process.h"

namespace {

constexpr int kCannotStart = 125;

[[noreturn]] void give_up(const char* folder, const char* why) {
  static_cast<void>(std::fprintf(stderr, "zozale-sim: %s: %s\n", folder, why));
  _exit(kCannotStart);
}

// Every program of a device shares its state; a program that outlives the power is told at once.
void start(const char* folder) {
  static auto* const device = new sim::Device(sim::Device::open(folder));
  if (device->power() == sim::Power::cut) {
    _exit(sim::kPowerCutStatus);
  }
  sim::attach(*device);
  if (const char* trace = std::getenv(sim::kTraceVariable)) {
    sim::trace_to(trace);
  }
}

void start_once() {
  static bool started = false;
  const char* folder = started ? nullptr : std::getenv(sim::kDeviceVariable);
  started = true;
  if (folder == nullptr || folder[0] == '\0') {
    return;
  }
  const sim::Errno keep;
  try {
    start(folder);
  } catch (const std::exception& error) {
    give_up(folder, error.what());
  }
  keep.give(0);
}

__attribute__((constructor)) void preload() {
  start_once();
}

}  // namespace

// Constructors of other libraries may use paths before ours ran.
extern "C" void zozale_sim_start() {
  start_once();
}
