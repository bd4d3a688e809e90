// SPDX-License-Identifier: Apache-2.0
//
// The view of a raw partition without its bad blocks: logical addresses are byte offsets counted
// over good blocks only. Nothing is cached: every access asks the kernel for the bad blocks anew.
#ifndef UPI_IMG_INTERFACE_H
#define UPI_IMG_INTERFACE_H

#include "upi_mtd.h"

extern "C" {

// Returns 0 when the block at byte offset `blockOffset` is good, non-zero when it is bad or cannot
// be asked about.
UPI_EXPORT int checkGoodAddress(int parti_file_desc, int blockOffset);

// Physical byte address of a logical one. An address past the last good block yields one at or
// past the partition's end. `badnum` is left alone.
UPI_EXPORT unsigned long translateToGoodAddress(partition_mtd_info_t* mtd_info,
                                                unsigned long dwBlockAddress, int* badnum);

// Reads `size` bytes at a logical address, physically contiguous from there on: a read that runs
// past the end of its block goes on in the next one, good or bad. Returns 0, or -1 when the range
// leaves the partition, or nothing or too little could be read.
UPI_EXPORT int VEMK_ReadImage(partition_mtd_info_t* mtd_info, unsigned char* buffer,
                              int start_address, int size);

// Erases the block at a logical, block-aligned address and writes mtd_blocksize bytes to it; they
// are not read back. Returns 0 or -1.
UPI_EXPORT int VEMK_WriteBlock(partition_mtd_info_t* mtd_info, int start_address,
                               unsigned char* buffer);

}  // extern "C"

namespace upi {

// Result of read_logical() when the range lies past the last good block.
constexpr int kOutOfImage = -2;

// VEMK_ReadImage()'s body, speaking as `speaker`. Returns 0, -1, or kOutOfImage.
int read_logical(const char* speaker, partition_mtd_info_t* mtd_info, unsigned char* buffer,
                 int start_address, int size);

}  // namespace upi

#endif
