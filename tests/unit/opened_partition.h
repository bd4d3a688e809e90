// SPDX-License-Identifier: Apache-2.0
//
// A partition of the simulated device, opened for the flash functions as a host would open it.
#ifndef TESTS_UNIT_OPENED_PARTITION_H
#define TESTS_UNIT_OPENED_PARTITION_H

#include <fcntl.h>
#include <unistd.h>

#include "sim/device.h"
#include "upi_mtd.h"

namespace unit {

class OpenedPartition {
 public:
  explicit OpenedPartition(const sim::Partition& partition) {
    info_.mtd_totalsize = static_cast<std::uint32_t>(partition.size());
    info_.mtd_blocksize = partition.block_size();
    info_.parti_file_desc = ::open(partition.node().c_str(), O_RDWR);
  }
  ~OpenedPartition() { ::close(info_.parti_file_desc); }
  OpenedPartition(const OpenedPartition&) = delete;
  OpenedPartition& operator=(const OpenedPartition&) = delete;

  partition_mtd_info_t* info() { return &info_; }
  int fd() const { return info_.parti_file_desc; }

 private:
  partition_mtd_info_t info_{};
};

}  // namespace unit

#endif
