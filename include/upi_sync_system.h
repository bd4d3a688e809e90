// SPDX-License-Identifier: Apache-2.0
//
// Copying the running system onto the other one, where their contents differ.
//
// A partition carries no length: its content is what lies before its first erased block.
#ifndef UPI_SYNC_SYSTEM_H
#define UPI_SYNC_SYSTEM_H

#include "upi_mtd.h"

extern "C" {

// Makes the other system a copy of the running one. Returns 0 or -1.
UPI_EXPORT int upi_sync_system(void);

// upgrade_type of the package at its fixed path, or -1 when it cannot be loaded.
UPI_EXPORT int upi_get_upgrade_type(void);

// VEMK_ReadImage(), but -2 when the range lies past the last good block.
UPI_EXPORT int read_image(partition_mtd_info_t* mtd_info, unsigned char* buffer, int start_address,
                          int size);

// SHA-512 of an MTD partition's content into 64 bytes at `hash`: whole blocks up to the first
// erased one. Returns 0 or -1.
UPI_EXPORT int partition_hash(char* partition, int partition_type, unsigned char* hash);

// Returns 0 when two MTD partitions have the same content; -1 when they differ or one cannot be
// read.
UPI_EXPORT int partition_hash_cmp(char* dst_partition, char* src_partition, int partition_type);

}  // extern "C"

#endif
