// SPDX-License-Identifier: Apache-2.0
#include "device_in_use.h"

#include <algorithm>

#include "tests/support/device_test.h"

namespace fleet {
namespace {

using sim::System;

// What the process of a start tells by its exit status: an incomplete system was started.
constexpr int kIncomplete = 2;

sim::PowerCut random_cut(cuts::Random& random, std::uint64_t longest, std::uint32_t page_size) {
  sim::PowerCut cut;
  cut.at = 1 + random.below(longest);
  cut.kind = static_cast<sim::CutKind>(random.below(4));
  if (cut.kind == sim::CutKind::torn) {
    cut.byte = static_cast<std::uint32_t>(random.below(page_size));
  }
  return cut;
}

sim::Fault random_fault(cuts::Random& random) {
  static const std::vector<sim::Op> kOps = {
      sim::Op::open,         sim::Op::read,        sim::Op::write,
      sim::Op::lseek,        sim::Op::memgetinfo,  sim::Op::memerase,
      sim::Op::memerase64,   sim::Op::fopen,       sim::Op::memgetbadblock,
      sim::Op::protect_lift, sim::Op::block_erase, sim::Op::protect_restore,
      sim::Op::page_program, sim::Op::store_set,   sim::Op::store_save};
  constexpr std::uint64_t kDoublings = 7;
  sim::Fault fault;
  fault.op = kOps.at(static_cast<std::size_t>(random.below(kOps.size())));
  fault.at = 1 + random.below(std::uint64_t{1} << random.below(kDoublings));
  return fault;
}

bool same_images(const cuts::Release& one, const cuts::Release& other) {
  return std::equal(
      one.begin(), one.end(), other.begin(), other.end(),
      [](const cuts::Image& a, const cuts::Image& b) { return a.digest == b.digest; });
}

}  // namespace

DeviceInUse::DeviceInUse(const Hardware& hardware, const cuts::Release& release,
                         cuts::Random& random, Report& report)
    : random_(random), report_(report), twin_(hardware.layout) {
  for (const System system : {System::a, System::b}) {
    twin_.flash(system, release);
    known(system) = {{release, true}};
  }
}

std::optional<sim::BootRecord> DeviceInUse::record() {
  const sim::RecordCopies copies = sim::read_records(twin_.device());
  return copies.chosen() == nullptr ? std::nullopt : std::optional(copies.chosen()->record);
}

bool DeviceInUse::both_copies_are_valid() {
  const sim::RecordCopies copies = sim::read_records(twin_.device());
  return copies.main.valid() && copies.backup.valid();
}

// In one call of two the power is to go, in one of three something is to fail; not every call gets
// that far.
void DeviceInUse::set_troubles() {
  constexpr std::uint64_t kShortest = 8;
  constexpr std::uint64_t kDoublings = 6;
  const std::uint64_t longest = kShortest << random_.below(kDoublings);
  if (random_.once_in(2)) {
    twin_.device().faults().set_power_cut(
        random_cut(random_, longest, twin_.device().nand().geometry().page_size));
  }
  if (random_.once_in(3)) {
    twin_.device().faults().add(random_fault(random_));
  }
}

bool DeviceInUse::call(const std::function<int()>& function) {
  ++report_.calls;
  set_troubles();
  const support::ChildEnd end = support::in_child([&] { return function() == 0 ? 0 : 1; });
  report_.faults += twin_.device().faults().struck();
  twin_.device().faults().clear();
  if (end.power_cut) {
    ++report_.cuts;
    start();
    return false;
  }
  if (!end.exited) {
    throw DeviceLost("the library was ended by signal " + std::to_string(end.status));
  }
  return end.status == 0;
}

void DeviceInUse::start() {
  twin_.remove_log();
  while (!boot_once()) {
    ++report_.boot_cuts;
  }
}

// False when the power went on the way.
bool DeviceInUse::boot_once() {
  constexpr std::uint64_t kLongest = 12;
  if (random_.once_in(4)) {
    twin_.device().faults().set_power_cut(
        random_cut(random_, kLongest, twin_.device().nand().geometry().page_size));
  }
  const support::ChildEnd end = support::in_child([&] { return boot_until_up(); });
  twin_.device().faults().clear();
  if (!end.power_cut && end.status == kIncomplete) {
    throw DeviceLost("an incomplete system was started");
  }
  if (!end.power_cut && (!end.exited || end.status != 0)) {
    throw DeviceLost("no system came up");
  }
  return !end.power_cut;
}

int DeviceInUse::boot_until_up() {
  std::vector<System> dead;
  for (const System system : {System::a, System::b}) {
    const Installed* installed = held(system);
    if (installed == nullptr || !installed->comes_up) {
      dead.push_back(system);
    }
  }
  const sim::BootHistory history = sim::boot_until_up(twin_.device(), dead);
  for (const sim::BootResult& result : history.boots) {
    if (held(result.started) == nullptr) {
      return kIncomplete;
    }
  }
  return history.up ? 0 : 1;
}

void DeviceInUse::rewrite(System system, const Installed& next) {
  const Installed& newest = known(system).back();
  if (newest.comes_up != next.comes_up || !same_images(newest.release, next.release)) {
    known(system).push_back(next);
  }
}

void DeviceInUse::settle(System system) {
  std::vector<Installed>& settled = known(system);
  settled.erase(settled.begin(), settled.end() - 1);
  if (held(system) == nullptr) {
    throw DeviceLost(std::string("bootable and not complete: ") + sim::letter(system));
  }
}

const Installed* DeviceInUse::held(System system) {
  const std::vector<Installed>& all = known(system);
  const auto found = std::find_if(all.begin(), all.end(), [&](const Installed& installed) {
    return twin_.holds(system, installed.release);
  });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace fleet
