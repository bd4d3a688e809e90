// SPDX-License-Identifier: Apache-2.0
//
// Lays a package out in a file: head, tables, the images one behind the other, the extra files
// likewise, and what the content digest needs as padding.
#ifndef ZOZALE_PACKAGE_PACKAGE_WRITER_H
#define ZOZALE_PACKAGE_PACKAGE_WRITER_H

#include <cstdint>
#include <vector>

#include "common/file.h"
#include "common/finding.h"
#include "common/sha512.h"
#include "create.h"
#include "plan.h"
#include "plan_rules.h"
#include "upi_upgrade_package.h"

namespace zozale {

class PackageWriter {
 public:
  // The plan and the files must have passed their rules.
  PackageWriter(const PackagePlan& plan, const PlanFiles& files, OutputFile& out);

  // Writes everything. Throws Error when reading or writing fails. The package is good unless
  // findings() then holds an error.
  CreatedPackage write();

  const Findings& findings() const { return findings_; }

 private:
  void write_partitions();
  void write_extras();
  void write_tables();
  void pad_content();
  void write_head();
  // Appends the file and returns the hash of its bytes.
  Sha512 copy(const InputFile& file);
  uint64_t pad_image(size_t index, Sha512& hash, uint64_t len);
  void append_padding(uint64_t count);

  const PackagePlan& plan_;
  const PlanFiles& files_;
  OutputFile& out_;
  std::vector<partition_head_info_t> partitions_;
  std::vector<extra_head_info_t> extras_;
  Digest content_hash_{};
  CreatedPackage package_;
  Findings findings_;
};

}  // namespace zozale

#endif
