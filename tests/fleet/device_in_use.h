// SPDX-License-Identifier: Apache-2.0
//
// A device out in the world: whatever it does, the power may go or something may fail.
#ifndef TESTS_FLEET_DEVICE_IN_USE_H
#define TESTS_FLEET_DEVICE_IN_USE_H

#include <array>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "hardware.h"
#include "report.h"
#include "sim/boot_loader.h"
#include "tests/power_cut/random.h"
#include "tests/power_cut/twin_device.h"

namespace fleet {

// A device that does not come back, or holds other than it says.
struct DeviceLost : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Installed {
  cuts::Release release;
  bool comes_up = true;
};

class DeviceInUse {
 public:
  // Both systems hold `release`; it is off.
  DeviceInUse(const Hardware& hardware, const cuts::Release& release, cuts::Random& random,
              Report& report);

  // Calls the library on the device in a process of its own. True when it returned 0. When the
  // power goes, the device is started again. Throws DeviceLost.
  bool call(const std::function<int()>& function);
  // Starts the device until it is up, whatever happens on the way. Throws DeviceLost.
  void start();

  sim::System running() { return twin_.device().running(); }
  std::optional<sim::BootRecord> record();  // none: no copy is valid
  bool both_copies_are_valid();
  cuts::TwinDevice& twin() { return twin_; }

  // A system is about to be rewritten: until settle() it may hold what it did or `next`.
  void rewrite(sim::System system, const Installed& next);
  void settle(sim::System system);
  // What a system holds, all of it; null when it holds nothing whole.
  const Installed* held(sim::System system);

 private:
  // What a system may hold.
  std::vector<Installed>& known(sim::System system) {
    return known_.at(static_cast<std::size_t>(system));
  }

  void set_troubles();
  bool boot_once();
  int boot_until_up();

  cuts::Random& random_;
  Report& report_;
  cuts::TwinDevice twin_;
  std::array<std::vector<Installed>, 2> known_;
};

}  // namespace fleet

#endif
