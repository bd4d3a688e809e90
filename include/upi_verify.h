// SPDX-License-Identifier: Apache-2.0
//
// Verification of the upgrade package.
#ifndef UPI_VERIFY_H
#define UPI_VERIFY_H

#include "upi_upgrade_package.h"

extern "C" {

// Verifies the package: its content digest, then every image's, then that the target system has
// every partition. Writes nothing but the upgrade status. Returns 0 or -1.
UPI_EXPORT int upi_verify(void);

// Its stages, for a loaded package; each returns 0 or -1.
UPI_EXPORT int verify(void);
UPI_EXPORT int verify_upgrade_package_hash(upgrade_package_info_t* package_info);
UPI_EXPORT int verify_partition_info(void);
UPI_EXPORT int verify_partition_package(partition_head_info_t* partition_info);
UPI_EXPORT int verify_partition_mtd(int target, partition_head_info_t* partition_info);

}  // extern "C"

#endif
