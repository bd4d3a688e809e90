// SPDX-License-Identifier: Apache-2.0
#include "upi_img_interface.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "upi_log.h"

namespace {

__attribute__((cold, noinline)) void say_bad_address(int fd, int offset) {
  UPI_LOG_ERRNO_AS("checkGoodAddress",
                   "Partition file description:%d, BAD address [%d], errno no:", fd, offset);
}

// checkGoodAddress(), small enough to stand in the loop that asks it for every block.
inline int ask_block(int fd, int offset) {
  __kernel_loff_t long_offset = offset;
  const int bad = ioctl(fd, MEMGETBADBLOCK, &long_offset);
  if (bad != 0) {
    say_bad_address(fd, offset);
  }
  return bad;
}

uint32_t physical_address(partition_mtd_info_t* mtd_info, int start_address) {
  int bad_blocks = 0;
  return static_cast<uint32_t>(
      translateToGoodAddress(mtd_info, static_cast<uint32_t>(start_address), &bad_blocks));
}

}  // namespace

int checkGoodAddress(int parti_file_desc, int blockOffset) {
  return ask_block(parti_file_desc, blockOffset);
}

unsigned long translateToGoodAddress(partition_mtd_info_t* mtd_info, unsigned long dwBlockAddress,
                                     int* /*badnum*/) {
  const uint32_t block_size = mtd_info->mtd_blocksize;
  if (block_size == 0) {
    return mtd_info->mtd_totalsize;
  }
  const auto address = static_cast<uint32_t>(dwBlockAddress);
  const uint32_t wanted = upi::divide(address, block_size) * block_size;
  const uint32_t remainder = address - wanted;
  const auto blocks = static_cast<int32_t>(upi::divide(mtd_info->mtd_totalsize, block_size));
  const int fd = mtd_info->parti_file_desc;
  uint32_t physical = 0;
  // Logical address of the last good block met; none yet.
  uint32_t logical = 0U - block_size;
  for (int32_t i = 0; i < blocks; ++i, physical += block_size) {
    if (ask_block(fd, static_cast<int>(physical)) == 0) {
      logical += block_size;
    } else {
      UPI_LOG("Index:%d, bad block!", i);
    }
    if (logical == wanted) {
      return physical + remainder;
    }
  }
  return physical + remainder;
}

int VEMK_ReadImage(partition_mtd_info_t* mtd_info, unsigned char* buffer, int start_address,
                   int size) {
  return upi::read_logical(UPI_FUNCTION, mtd_info, buffer, start_address, size) == 0 ? 0 : -1;
}

int VEMK_WriteBlock(partition_mtd_info_t* mtd_info, int start_address, unsigned char* buffer) {
  if (buffer == nullptr || mtd_info == nullptr) {
    UPI_LOG("Input error, mtd_info point:%p , buffer point:%p", static_cast<void*>(mtd_info),
            static_cast<void*>(buffer));
    return -1;
  }
  const uint32_t address = physical_address(mtd_info, start_address);
  const uint32_t block_size = mtd_info->mtd_blocksize;
  const int fd = mtd_info->parti_file_desc;
  if (address >= mtd_info->mtd_totalsize) {
    UPI_LOG("Start address[%d] out of partition total size[%d]!", static_cast<int>(address),
            static_cast<int>(mtd_info->mtd_totalsize));
    return -1;
  }
  erase_info_user range = {address, block_size};
  if (ioctl(fd, MEMERASE, &range) < 0) {
    UPI_LOG_ERRNO("Ioctl [MEMERASE] error, error: ");
    return -1;
  }
  if (lseek(fd, static_cast<off_t>(address), SEEK_SET) < 0) {
    UPI_LOG_ERRNO("Lseek error, error: ");
    return -1;
  }
  const ssize_t written = write(fd, buffer, block_size);
  if (written != static_cast<ssize_t>(block_size)) {
    UPI_LOG_ERRNO("Write flash error, write len[%d] != blocksize[%d], error: ",
                  static_cast<int>(written), static_cast<int>(block_size));
    return -1;
  }
  return 0;
}

namespace upi {

int read_logical(const char* speaker, partition_mtd_info_t* mtd_info, unsigned char* buffer,
                 int start_address, int size) {
  if (buffer == nullptr || mtd_info == nullptr) {
    UPI_LOG_AS(speaker, "Input error, mtd_info:%p , buffer:%p", static_cast<void*>(mtd_info),
               static_cast<void*>(buffer));
    return -1;
  }
  const uint32_t address = physical_address(mtd_info, start_address);
  const uint32_t end = address + static_cast<uint32_t>(size);
  if (address >= mtd_info->mtd_totalsize || end > mtd_info->mtd_totalsize) {
    UPI_LOG_AS(speaker,
               "Start address (%d) or new start address (%d) out of partition total size (%d)!",
               static_cast<int>(address), static_cast<int>(end),
               static_cast<int>(mtd_info->mtd_totalsize));
    return kOutOfImage;
  }
  if (lseek(mtd_info->parti_file_desc, static_cast<off_t>(address), SEEK_SET) < 0) {
    UPI_LOG_ERRNO_AS(speaker, "Lseek error, error:");
    return -1;
  }
  const ssize_t got = read(mtd_info->parti_file_desc, buffer, static_cast<size_t>(size));
  if (got < 0 || got < size) {
    UPI_LOG_LINES_AS(speaker,
                     "Read len (%d) < need len (%d)!\n"
                     "VEMK_ReadImage fail\n",
                     static_cast<int>(got), size);
    return -1;
  }
  return 0;
}

}  // namespace upi
