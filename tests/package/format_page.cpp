// SPDX-License-Identifier: Apache-2.0
#include "format_page.h"

#include <optional>
#include <sstream>

#include "common/text_scanner.h"
#include "support.h"

namespace package_test {
namespace {

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

}  // namespace

void PrintTo(const Field& field, std::ostream* out) {
  *out << field.offset << " " << field.size << " " << field.name;
}

Records records_of_page(const char* path) {
  std::istringstream page(read_bytes(path));
  Records records;
  std::string heading;
  for (std::string line; std::getline(page, line);) {
    if (line[0] == '#') {
      heading = line.substr(line.find(' ') + 1);
    }
    const std::optional<Field> field = field_of_row(line);
    if (field) {
      records[heading].push_back(*field);
    }
  }
  return records;
}

void expect_no_gap(const std::string& record, const std::vector<Field>& fields, size_t size) {
  size_t end = 0;
  for (const Field& field : fields) {
    EXPECT_EQ(field.offset, end) << record << " " << field.name;
    end += field.size;
  }
  EXPECT_EQ(end, size) << record;
}

}  // namespace package_test
