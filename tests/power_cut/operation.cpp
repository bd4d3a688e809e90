// SPDX-License-Identifier: Apache-2.0
#include "operation.h"

#include <stdexcept>

#include "vemk_fota_ab_upgrade.h"

namespace cuts {
namespace {

using sim::BootRecord;
using sim::System;
using Records = std::vector<BootRecord>;

int code(System system) {
  return system == System::a ? DUAL_SYSTEM : DUAL_SYSTEM2;
}

void set_fota_status(BootRecord& record, std::uint32_t status) {
  constexpr std::size_t kFotaStatusOffset = 8;
  record.set_word(kFotaStatusOffset, status);
}

// The running system has proved itself; the other one may be booted, or must not be.
BootRecord settled(System running, std::int32_t status_of_other) {
  BootRecord record = sim::factory_record();
  record.set_boot_to(running);
  record.set_status(running, sim::kStatusSuccessful);
  record.set_status(sim::other(running), status_of_other);
  return record;
}

Records of_rewriting(System running) {
  return {settled(running, sim::kStatusBootable), settled(running, sim::kStatusUnbootable),
          settled(running, sim::kStatusBootable)};
}

Records of_switching(System running) {
  BootRecord after = settled(running, sim::kStatusBootable);
  after.set_boot_to(sim::other(running));
  set_fota_status(after, 1);
  return {settled(running, sim::kStatusBootable), after};
}

Records of_marking(System running) {
  BootRecord before = settled(running, sim::kStatusUnbootable);
  before.set_status(running, sim::kStatusBootable);
  return {before, settled(running, sim::kStatusUnbootable)};
}

Records of_acknowledging(System running) {
  BootRecord before = settled(running, sim::kStatusUnbootable);
  set_fota_status(before, 1);
  return {before, settled(running, sim::kStatusUnbootable)};
}

Records of_initialising(System running) {
  return {settled(running, sim::kStatusBootable), sim::factory_record()};
}

// No record is left, or none was ever written.
Records of_initialising_blank_flags(System /*running*/) {
  return {BootRecord{}, sim::factory_record()};
}

int upgrade(System /*running*/) {
  return vemk_dual_upgrade(nullptr);
}
int synchronise(System /*running*/) {
  return vemk_dual_sync_system();
}
int switch_over(System running) {
  return vemk_dual_set_boot_to_system(code(sim::other(running)), 0);
}
int mark_successful(System running) {
  return vemk_dual_set_system_status(code(running), DUALSYSTEM_STATUS_SUCCESSFUL);
}
int acknowledge(System /*running*/) {
  return vemk_dual_set_fota_status_for_nv(0);
}
int initialise(System /*running*/) {
  return vemk_init_flag_partition();
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> kOperations = {
      {"upgrade", of_rewriting, upgrade, true, false, kPackageRelease,
       StoredStatus{"fota_ab_upgrade_status", UPGRADE_STATUS_UPDATING,
                    UPGRADE_STATUS_UPDATE_SUCCESS}},
      {"sync_system", of_rewriting, synchronise, true, false, kRunningRelease,
       StoredStatus{"fota_ab_aa_sync_status", SYNC_STATUS_SYNCING, SYNC_STATUS_SUCCESS}},
      {"set_boot_to_system", of_switching, switch_over},
      {"set_system_status", of_marking, mark_successful, false},
      {"set_fota_status_for_nv", of_acknowledging, acknowledge, false},
      {"init_flag_partition", of_initialising, initialise, true, true},
      {"init_flag_partition_blank", of_initialising_blank_flags, initialise, true, true},
  };
  return kOperations;
}

const Operation& operation_named(const std::string& name) {
  std::string known;
  for (const Operation& operation : operations()) {
    if (operation.name == name) {
      return operation;
    }
    known += " " + operation.name;
  }
  throw std::runtime_error("operation: found \"" + name + "\", expected one of:" + known);
}

bool same_decision(const BootRecord& one, const BootRecord& other) {
  return one.valid() == other.valid() && one.boot_to() == other.boot_to() &&
         one.fota_status() == other.fota_status() &&
         one.status(System::a) == other.status(System::a) &&
         one.status(System::b) == other.status(System::b);
}

}  // namespace cuts
