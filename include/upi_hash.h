// SPDX-License-Identifier: Apache-2.0
//
// SHA-512 of file ranges and of flash images. Digests are 64 raw bytes.
#ifndef UPI_HASH_H
#define UPI_HASH_H

#include "upi_mtd.h"

// Argument `hash_type` below; every value computes SHA-512.
enum HASH_TYPE : int { HASH_TYPE_SHA_512 = 0, HASH_TYPE_SHA_256 = 1 };

extern "C" {

// Digest of `len` bytes from `offset` of an open file; a length of 0 stands for the file's whole
// size. Reads at most `read_size_per_time` bytes at once, 4096 for 0 and for values above 4095.
// A range that runs past the end of the file never completes. Returns 0, or -1 on an error.
UPI_EXPORT int get_hash_SHA512_from_fd(int fd, unsigned int offset, unsigned int len,
                                       unsigned int read_size_per_time, unsigned char* digest);

// The same in reads of 4096 bytes, whatever `hash_type` and `read_size_per_time` say.
UPI_EXPORT int get_hash_from_fd(int hash_type, int fd, unsigned int offset, unsigned int len,
                                unsigned int read_size_per_time, unsigned char* digest);

// The same of a named file, and of all of it; -1 also when it cannot be opened.
UPI_EXPORT int get_hash_from_file_path_segment(int hash_type, const char* file_path,
                                               unsigned int offset, unsigned int len,
                                               unsigned char* digest);
UPI_EXPORT int get_hash_from_file_path_all(int hash_type, const char* file_path,
                                           unsigned char* digest);

// Compares the digest of the first `len` bytes of a partition's good blocks with `digest`. Returns
// 0 when they are equal, -1 when they differ or the partition cannot be read.
UPI_EXPORT int check_image_hash(partition_mtd_info_t* mtd_info, int len, char* digest);

}  // extern "C"

#endif
