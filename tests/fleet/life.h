// SPDX-License-Identifier: Apache-2.0
//
// The life of one device of a fleet, and the update client on it.
#ifndef TESTS_FLEET_LIFE_H
#define TESTS_FLEET_LIFE_H

#include <cstdint>
#include <functional>

#include "device_in_use.h"

namespace fleet {

class Life {
 public:
  Life(std::uint64_t seed, std::uint64_t number);

  // Several releases, one after the other. Throws DeviceLost; report() tells how far it came.
  void live();
  const Report& report() const { return report_; }

 private:
  void leave_factory();
  void update();
  sim::System install(const Installed& next);
  void take_over(sim::System wanted);
  void try_dead_release(sim::System target);
  void settle_on(sim::System wanted);
  void acknowledge();
  bool call(const std::function<int()>& function);
  void mend_record();
  void synchronise();
  bool rewrite_once(const std::function<int()>& function, const Installed& next);
  bool has_status(sim::System system, std::int32_t status);
  bool acknowledged();

  cuts::Random random_;
  Report report_;
  Hardware hardware_;
  cuts::Release release_;  // the newest
  DeviceInUse device_;
};

}  // namespace fleet

#endif
