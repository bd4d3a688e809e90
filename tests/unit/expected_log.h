// SPDX-License-Identifier: Apache-2.0
//
// The diagnostics that a call on a device without bad blocks leaves behind when all goes well, put
// together function by function.
#ifndef TESTS_UNIT_EXPECTED_LOG_H
#define TESTS_UNIT_EXPECTED_LOG_H

#include <cstddef>
#include <string>
#include <vector>

#include "library_run.h"
#include "sim/device.h"
#include "tests/support/captured.h"
#include "tests/support/package_file.h"

class ExpectedLog {
 public:
  // Descriptor numbers in messages are those of `run`'s opens of MTD nodes, taken one after
  // another: the log also tells in which order the nodes must have been opened.
  ExpectedLog(sim::Device& device, const LibraryRun& run);

  const std::vector<support::LogLine>& lines() const { return lines_; }
  // The run opened nothing that the log has not told of.
  bool all_opens_taken() const { return next_open_ == opens_.size(); }

  ExpectedLog& say(const std::string& function, const std::string& message);
  ExpectedLog& begin(const std::string& function);
  ExpectedLog& end(const std::string& function);

  // --- Each what one function says. ---

  ExpectedLog& check_image_hash();
  ExpectedLog& get_partition_mtd_info(const std::string& mtd_name);
  ExpectedLog& init_system_partition_info();
  ExpectedLog& init_upgrade_package_info(const support::PackageFile& package);
  ExpectedLog& is_partition_exist(int target, const std::string& name);
  ExpectedLog& mtd_erase_partition(int target, const std::string& name);
  ExpectedLog& mtd_find(const std::string& mtd_name, int type = 0);
  ExpectedLog& upi_flush_upgrade_status(int status, const char* status_name, int total,
                                        int updated);
  ExpectedLog& upi_get_current_system();
  // `a` and `b`: the statuses of both systems afterwards. Both copies stand in blocks 0 and 1.
  ExpectedLog& upi_set_system_status(int system, int status, int a, int b);
  ExpectedLog& write_mtd_partition_data();

  // Descriptor of the last node that was opened, and of the next one, on the partition `mtd_name`.
  int last_fd() const { return last_fd_; }
  int open_fd(const std::string& mtd_name);
  // Descriptor that writing to the package's target goes to.
  ExpectedLog& writes_to(int fd);

 private:
  ExpectedLog& show_table(const char* kind, const std::vector<sim::TableEntry>& entries);
  ExpectedLog& show_package_head(const support::PackageFile& package);
  ExpectedLog& show_package_partitions(const support::PackageFile& package);
  ExpectedLog& show_package_extras(const support::PackageFile& package);

  sim::Device& device_;
  std::vector<sim::Call> opens_;
  std::size_t next_open_ = 0;
  int last_fd_ = -1;
  int write_fd_ = -1;
  std::vector<support::LogLine> lines_;
};

#endif
