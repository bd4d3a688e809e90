// SPDX-License-Identifier: Apache-2.0
//
// Operations that more than one sweep runs.
#ifndef TESTS_UNIT_OPERATIONS_H
#define TESTS_UNIT_OPERATIONS_H

#include "fault_sweep.h"
#include "upi_fotaflag_partition.h"
#include "vemk_fota_ab_upgrade.h"

inline const Operation kVerify = {"Verify", [] { return vemk_dual_verify(); },
                                  [](reference::Library& library) { return library.verify(); }};
inline const Operation kUpgradeType = {
    "UpgradeType", [] { return vemk_dual_get_upgrade_type(); },
    [](reference::Library& library) { return library.upgrade_type(); }};

inline const Operation kSetBootToSystem = {
    "SetBootToSystem", [] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 0); },
    [](reference::Library& library) { return library.set_boot_to_system(DUAL_SYSTEM2, 0); }};
inline const Operation kSetSystemStatus = {
    "SetSystemStatus",
    [] { return vemk_dual_set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_UNBOOTABLE); },
    [](reference::Library& library) {
      return library.set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_UNBOOTABLE);
    }};
inline const Operation kSetFotaStatus = {
    "SetFotaStatus", [] { return vemk_dual_set_fota_status_for_nv(1); },
    [](reference::Library& library) { return library.set_fota_status(1); }};
inline const Operation kInitFlags = {
    "InitFlags", [] { return vemk_init_flag_partition(); },
    [](reference::Library& library) { return library.init_flag_partition(); }};

#endif
