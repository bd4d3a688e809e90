// SPDX-License-Identifier: Apache-2.0
//
// The tables of a page that describes records byte by byte.
#ifndef TESTS_PACKAGE_FORMAT_PAGE_H
#define TESTS_PACKAGE_FORMAT_PAGE_H

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace package_test {

struct Field {
  size_t offset;
  size_t size;
  std::string name;

  bool operator==(const Field& other) const {
    return offset == other.offset && size == other.size && name == other.name;
  }
};

void PrintTo(const Field& field, std::ostream* out);

// Fields by the record that they belong to.
using Records = std::map<std::string, std::vector<Field>>;

// The rows "| offset | size | `name` | ..." of a page, each under the heading that stands above it.
Records records_of_page(const char* path);

// Expects that the fields of a record lie one behind the other and end at `size`.
void expect_no_gap(const std::string& record, const std::vector<Field>& fields, size_t size);

}  // namespace package_test

// A record's field as the compiler laid it down; `member` may name a member's member.
#define FIELD(record, member)                                                        \
  package_test::Field {                                                              \
    offsetof(record, member), sizeof(static_cast<record*>(nullptr)->member), #member \
  }

#endif
