// SPDX-License-Identifier: Apache-2.0
#include "life.h"

#include <string>

#include "vemk_fota_ab_upgrade.h"

namespace fleet {
namespace {

using sim::System;

// A client that needs more has met something that trying again does not mend.
constexpr int kMostTries = 60;

int code(System system) {
  return system == System::a ? DUAL_SYSTEM : DUAL_SYSTEM2;
}

[[noreturn]] void give_up(const std::string& what) {
  throw DeviceLost(what + " did not end in " + std::to_string(kMostTries) + " tries");
}

}  // namespace

Life::Life(std::uint64_t seed, std::uint64_t number)
    : random_(seed, "device " + std::to_string(number)),
      hardware_(make_hardware(random_)),
      release_(make_release(hardware_, {}, random_)),
      device_(hardware_, release_, random_, report_) {
  report_.devices = 1;
  report_.bad_blocks = count_bad(device_.twin().device());
}

void Life::live() {
  constexpr std::uint64_t kFewest = 3;
  leave_factory();
  for (std::uint64_t left = kFewest + random_.below(4); left > 0; --left) {
    update();
    if (random_.once_in(2)) {
      synchronise();
    }
  }
  report_.died_blocks = count_bad(device_.twin().device()) - report_.bad_blocks;
}

void Life::leave_factory() {
  sim::write_records(device_.twin().device(), sim::factory_record());
  set_wear(device_.twin().device(), hardware_, random_);
  device_.start();
  settle_on(device_.running());
}

void Life::update() {
  constexpr std::uint64_t kDead = 8;
  release_ = make_release(hardware_, release_, random_);
  const bool comes_up = !random_.once_in(kDead);
  const System target = install({release_, comes_up});
  if (comes_up) {
    settle_on(target);
    ++report_.switches;
  } else {
    try_dead_release(target);
    settle_on(sim::other(target));
    ++report_.fall_backs;
  }
}

// Returns the system that holds it.
System Life::install(const Installed& next) {
  device_.twin().put_package(next.release);
  for (int tries = 1; tries <= kMostTries; ++tries) {
    if (rewrite_once([] { return vemk_dual_upgrade(nullptr); }, next)) {
      device_.settle(sim::other(device_.running()));
      report_.count_update(static_cast<std::uint64_t>(tries));
      return sim::other(device_.running());
    }
  }
  give_up("an update");
}

// A call that failed may have done its work all the same; only 0 and the record together count.
bool Life::rewrite_once(const std::function<int()>& function, const Installed& next) {
  const System target = sim::other(device_.running());
  device_.rewrite(target, next);
  return call(function) && sim::other(device_.running()) == target &&
         has_status(target, sim::kStatusBootable);
}

// Until the device was switched to a release that does not come up, and came back.
void Life::try_dead_release(System target) {
  for (int tries = 1; tries <= kMostTries; ++tries) {
    if (call([&] { return vemk_dual_set_boot_to_system(code(target), 1); })) {
      device_.start();
      return;
    }
  }
  give_up("a switch");
}

// The wanted system runs, is marked successful, and the switch is acknowledged. A system that loses
// its power too often before it is marked is given up by the boot loader, and tried again.
void Life::settle_on(System wanted) {
  for (int tries = 1; tries <= kMostTries; ++tries) {
    if (device_.running() != wanted) {
      take_over(wanted);
    } else if (acknowledged()) {
      return;
    } else {
      acknowledge();
    }
  }
  give_up("a switch");
}

// A stale copy of the record may have come to count, in which the new system is not bootable yet.
void Life::take_over(System wanted) {
  if (has_status(wanted, sim::kStatusUnbootable)) {
    call([] { return vemk_dual_upgrade(nullptr); });
  }
  call([&] { return vemk_dual_set_boot_to_system(code(wanted), 1); });
  device_.start();
}

// With one copy of the record left, the next change of it could lose both: a start mends it.
bool Life::call(const std::function<int()>& function) {
  if (!device_.record()) {
    mend_record();
  }
  const bool done = device_.call(function);
  if (device_.record() && !device_.both_copies_are_valid()) {
    device_.start();
  }
  return done;
}

// Both copies were lost: the record is made anew, and the system that does not run is not trusted.
void Life::mend_record() {
  ++report_.mended_records;
  device_.call([] { return vemk_init_flag_partition(); });
  const int other = code(sim::other(device_.running()));
  device_.call([&] { return vemk_dual_set_system_status(other, DUALSYSTEM_STATUS_UNBOOTABLE); });
}

void Life::acknowledge() {
  const int running = code(device_.running());
  if (call([&] { return vemk_dual_set_system_status(running, DUALSYSTEM_STATUS_SUCCESSFUL); })) {
    call([] { return vemk_dual_set_fota_status_for_nv(0); });
  }
}

bool Life::acknowledged() {
  const auto record = device_.record();
  return record && record->fota_status() == 0 &&
         record->status(device_.running()) == sim::kStatusSuccessful;
}

// Twice: a bad-block query that fails can make two contents look equal; the second run compares
// anew.
void Life::synchronise() {
  const auto sync = [] { return vemk_dual_sync_system(); };
  for (int tries = 1; tries <= kMostTries; ++tries) {
    const Installed* const running = device_.held(device_.running());
    if (running == nullptr) {
      throw DeviceLost("the running system changed");
    }
    const Installed copied = *running;
    if (rewrite_once(sync, copied) && rewrite_once(sync, copied)) {
      device_.settle(sim::other(device_.running()));
      ++report_.syncs;
      return;
    }
  }
  give_up("a synchronisation");
}

bool Life::has_status(System system, std::int32_t status) {
  const auto record = device_.record();
  return record && record->status(system) == status;
}

}  // namespace fleet
