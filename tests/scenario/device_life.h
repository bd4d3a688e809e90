// SPDX-License-Identifier: Apache-2.0
//
// A device in the field and the update client on it, who knows only what a host can know: the
// results, the status in the store, the boot flag record through the library.
#ifndef TESTS_SCENARIO_DEVICE_LIFE_H
#define TESTS_SCENARIO_DEVICE_LIFE_H

#include <map>
#include <string>
#include <vector>

#include "tests/unit/upgrade_test.h"

class DeviceLife : public UpgradeTest {
 protected:
  using Images = std::map<std::string, sim::Bytes>;  // by table name

  // A device whose partitions have bad blocks, other ones in each, the flags too; system A holds
  // `installed_` and runs, B is erased; the record as vemk_init_flag_partition() writes it.
  void leave_factory();

  // Images of a release; they differ from release to release and in length.
  static Images release(std::uint32_t number);
  static support::PackageFile package_of(const Images& images);

  // --- What the client does, each with what it checks. ---

  void receive(const Images& images);
  void verify();
  void install();
  void switch_over();      // reboots into the system that did not run
  void mark_successful();  // and acknowledges the switch
  void synchronise();
  void reboot();  // stays in the system that runs

  // Receive, verify, install, switch, mark, reboot.
  void whole_upgrade(const Images& images);

  static int upgrade_status();
  static int sync_status();

  // --- What is on flash. ---

  void expect_system(sim::System system, const Images& images);
  bool holds(sim::System system, const Images& images);
  std::uint64_t erases_of(sim::System system, const std::string& name) {
    return partition(mtd_name(system, name)).total_erases();
  }

  Images installed_;  // what the running system holds
};

#endif
