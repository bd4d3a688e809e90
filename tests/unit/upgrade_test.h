// SPDX-License-Identifier: Apache-2.0
//
// A device in which one system runs and the other is to be rewritten.
#ifndef TESTS_UNIT_UPGRADE_TEST_H
#define TESTS_UNIT_UPGRADE_TEST_H

#include <cstddef>
#include <functional>
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

  // The protection of an MTD partition was lifted and restored once, on the descriptor that was
  // opened for it.
  void expect_protection_bracket(const LibraryRun& run, const std::string& name);

  // Lets the library's allocations fail one by one, a run each on the device as it is now, until
  // one makes it say `line`; that run. A failure of the test when none does.
  LibraryRun run_out_of_memory(const std::function<int()>& call, const support::LogLine& line);

  // A name of this length, and a device with these MTD partitions besides the flags and a table of
  // this one entry.
  static std::string long_name(std::size_t length);
  void use_names(const std::string& table_name, const std::vector<std::string>& mtd_names);

  LibraryRun upgrade(z_upgrade_flush_status_t* flush_status = nullptr);
  LibraryRun sync();
};

#endif
