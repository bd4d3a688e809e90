// SPDX-License-Identifier: Apache-2.0
//
// The tables of docs/package-format.md against the records.
#include <cstddef>
#include <map>

#include "format_page.h"
#include "support.h"
#include "upi_upgrade_package.h"

namespace package_test {
namespace {

Records records_of_code() {
  using Head = upgrade_package_head_info_t;
  using Partition = partition_head_info_t;
  using Extra = extra_head_info_t;
  return {{"upgrade_package_head_info_t",
           {FIELD(Head, magic_word), FIELD(Head, upgrade_package_version), FIELD(Head, plat),
            FIELD(Head, upgrade_package_type), FIELD(Head, upgrade_type),
            FIELD(Head, partition_num), FIELD(Head, extra_num), FIELD(Head, hash_type),
            FIELD(Head, block_size), FIELD(Head, version_src), FIELD(Head, version_dst),
            FIELD(Head, hash), FIELD(Head, reserve)}},
          {"partition_head_info_t",
           {FIELD(Partition, name), FIELD(Partition, len), FIELD(Partition, offset),
            FIELD(Partition, partition_type), FIELD(Partition, zipped), FIELD(Partition, reserve),
            FIELD(Partition, hash)}},
          {"extra_head_info_t",
           {FIELD(Extra, name), FIELD(Extra, len), FIELD(Extra, offset), FIELD(Extra, reserve_1),
            FIELD(Extra, hash), FIELD(Extra, reserve_2)}}};
}

TEST(FormatPage, ListsEveryFieldOfEveryRecord) {
  EXPECT_EQ(records_of_page(PACKAGE_FORMAT_PAGE), records_of_code());
}

TEST(FormatPage, LeavesNoByteOut) {
  const std::map<std::string, size_t> sizes = {
      {"upgrade_package_head_info_t", sizeof(upgrade_package_head_info_t)},
      {"partition_head_info_t", sizeof(partition_head_info_t)},
      {"extra_head_info_t", sizeof(extra_head_info_t)}};
  for (const auto& [record, fields] : records_of_page(PACKAGE_FORMAT_PAGE)) {
    expect_no_gap(record, fields, sizes.at(record));
  }
}

TEST(FormatPage, StatesTheSizesAndTheLimit) {
  const std::string page = read_bytes(PACKAGE_FORMAT_PAGE);
  const auto stated = [&page](const std::string& text) { EXPECT_THAT(page, HasSubstr(text)); };
  stated("| 0 | " + std::to_string(sizeof(upgrade_package_head_info_t)) + " | head |");
  stated("| 256 | " + std::to_string(sizeof(partition_head_info_t)) + " × `partition_num` |");
  stated("| " + std::to_string(sizeof(extra_head_info_t)) + " × `extra_num` |");
  stated("1 to " + std::to_string(kMaxPackageEntries) + "; 0 or less means none");
}

}  // namespace
}  // namespace package_test
