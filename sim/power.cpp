// SPDX-License-Identifier: Apache-2.0
#include "sim/power.h"

#include <unistd.h>

#include <utility>

namespace sim {
namespace {

std::function<void()>& handler() {
  static std::function<void()> current;
  return current;
}

}  // namespace

void on_power_cut(std::function<void()> next) {
  handler() = std::move(next);
}

void lose_power(Device& device) {
  device.set_power(Power::cut);
  if (!handler()) {
    _exit(kPowerCutStatus);
  }
  handler()();
}

}  // namespace sim
