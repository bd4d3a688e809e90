// SPDX-License-Identifier: Apache-2.0
//
// A device in which one system runs and the other is to be rewritten.
#ifndef TESTS_UNIT_UPGRADE_TEST_H
#define TESTS_UNIT_UPGRADE_TEST_H

#include <string>
#include <vector>

#include "library_run.h"
#include "tests/support/device_test.h"
#include "tests/support/package_file.h"
#include "vemk_fota_ab_upgrade.h"

// Status of a system in the copy of the record that counts; 0 when none does.
int status_in_record(sim::Device& device, sim::System system);

class UpgradeTest : public support::DeviceTest {
 protected:
  // Both copies of the record as a factory writes them.
  UpgradeTest() { write_flags(); }

  // The same on a device of another layout.
  void use_layout(const sim::Layout& layout);
  void run_system(sim::System system) { device().set_running(system); }

  // The system that is not running: its number, its code, its MTD name of a table name.
  sim::System target() { return sim::other(device().running()); }
  int target_number() { return target() == sim::System::a ? 1 : 2; }
  int target_code() { return code(target()); }
  std::string target_name(const std::string& table_name) { return mtd_name(target(), table_name); }
  sim::Partition target_of(const std::string& table_name) {
    return partition(target_name(table_name));
  }
  sim::Partition running_of(const std::string& table_name) {
    return partition(mtd_name(device().running(), table_name));
  }

  static int code(sim::System system) {
    return system == sim::System::a ? DUAL_SYSTEM : DUAL_SYSTEM2;
  }
  static std::string mtd_name(sim::System system, const std::string& table_name) {
    return system == sim::System::a ? table_name : table_name + "2";
  }

  int target_status() { return status_in_record(device(), target()); }
  // Whether both copies hold `wanted`, apart from the target's status, for which `status` stands.
  void expect_flags(int status);

  void put_package(const support::PackageFile& package);
  // A package of some of the platform's partitions.
  static support::PackageFile platform_package(std::vector<support::PackageEntry> partitions);

  // Fills every partition of both systems with bytes of its own that reach to its end.
  void fill_systems();
  // Bytes that good blocks hold after `data` was written to an erased partition.
  static sim::Bytes filled_up(sim::Bytes data, std::size_t size);
  void expect_image(sim::Partition partition, const sim::Bytes& data);

  LibraryRun upgrade(z_upgrade_flush_status_t* flush_status = nullptr);
  LibraryRun sync();
};

#endif
