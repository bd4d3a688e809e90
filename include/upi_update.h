// SPDX-License-Identifier: Apache-2.0
//
// Installation of the upgrade package into the system that is not running.
#ifndef UPI_UPDATE_H
#define UPI_UPDATE_H

#include "upi_export.h"
#include "vemk_fota_ab_upgrade.h"

extern "C" {

// Where progress goes: the argument of the last upgrade. The record stays its caller's.
extern UPI_EXPORT z_upgrade_flush_status_t* g_flush_status;

// The whole upgrade. Returns 0, or -1. A failed preparation returns 0 when the target could be
// marked unbootable; it shows as UPGRADE_STATUS_UPDATE_FAIL only.
UPI_EXPORT int upi_update(z_upgrade_flush_status_t* p_flush_status);

// Reports to the store, the caller's record and its callback. A size of -1 is left as it was.
UPI_EXPORT void upi_flush_upgrade_status(int update_status, int total_size, int updated_size);

// Name of an upgrade_status_s_type value, "UPGRADE_STATUS_UNKNOWN" for any other; a constant.
UPI_EXPORT char* update_status_to_string(int status);

}  // extern "C"

#endif
