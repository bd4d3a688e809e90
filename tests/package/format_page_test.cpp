// SPDX-License-Identifier: Apache-2.0
//
// The tables of docs/package-format.md against the records.
#include <cstddef>
#include <map>
#include <optional>
#include <sstream>

#include "common/text_scanner.h"
#include "support.h"
#include "upi_upgrade_package.h"

namespace package_test {
namespace {

struct Field {
  size_t offset;
  size_t size;
  std::string name;

  bool operator==(const Field& other) const {
    return offset == other.offset && size == other.size && name == other.name;
  }
};

void PrintTo(const Field& field, std::ostream* out) {
  *out << field.offset << " " << field.size << " " << field.name;
}

using Records = std::map<std::string, std::vector<Field>>;

#define FIELD(record, member)                                 \
  Field {                                                     \
    offsetof(record, member), sizeof(record::member), #member \
  }

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

#undef FIELD

// "| 4 | 8 | `name` | ..." or nothing.
std::optional<Field> field_of_row(const std::string& line) {
  zozale::TextScanner row(line);
  row.literal("|");
  const auto offset = row.integer();
  row.literal(" |");
  const auto size = row.integer();
  row.literal(" | `");
  const auto name = row.word(line.size());
  if (!offset || !size || !name || name->back() != '`') {
    return std::nullopt;
  }
  return Field{static_cast<size_t>(*offset), static_cast<size_t>(*size),
               name->substr(0, name->size() - 1)};
}

// The rows of the tables below headings that name a record, "### some_type_t".
Records records_of_page() {
  std::istringstream page(read_bytes(PACKAGE_FORMAT_PAGE));
  Records records;
  std::string heading;
  for (std::string line; std::getline(page, line);) {
    if (line[0] == '#') {
      heading = line.substr(line.find(' ') + 1);
    }
    const std::optional<Field> field = field_of_row(line);
    if (field && heading.size() > 2 && heading.substr(heading.size() - 2) == "_t") {
      records[heading].push_back(*field);
    }
  }
  return records;
}

TEST(FormatPage, ListsEveryFieldOfEveryRecord) {
  EXPECT_EQ(records_of_page(), records_of_code());
}

TEST(FormatPage, LeavesNoByteOut) {
  const std::map<std::string, size_t> sizes = {
      {"upgrade_package_head_info_t", sizeof(upgrade_package_head_info_t)},
      {"partition_head_info_t", sizeof(partition_head_info_t)},
      {"extra_head_info_t", sizeof(extra_head_info_t)}};
  for (const auto& [record, fields] : records_of_page()) {
    size_t end = 0;
    for (const Field& field : fields) {
      EXPECT_EQ(field.offset, end) << record << " " << field.name;
      end += field.size;
    }
    EXPECT_EQ(end, sizes.at(record)) << record;
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
