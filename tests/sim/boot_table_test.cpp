// SPDX-License-Identifier: Apache-2.0
#include "sim/boot_table.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

using sim::BootRow;
using sim::Health;
using sim::kBootTable;
using sim::Note;
using sim::Start;

Health started(const BootRow& row) {
  return row.start == Start::wanted ? row.wanted : row.other;
}
Health left_out(const BootRow& row) {
  return row.start == Start::wanted ? row.other : row.wanted;
}

std::string name(const BootRow& row) {
  return std::string(sim::health_name(row.wanted)) + " / " + sim::health_name(row.other);
}

TEST(BootTable, HasEveryPairInOrder) {
  std::size_t index = 0;
  for (std::size_t wanted = 0; wanted < sim::kHealthCount; ++wanted) {
    for (std::size_t other = 0; other < sim::kHealthCount; ++other) {
      const BootRow& row = kBootTable.at(index++);
      EXPECT_EQ(row.wanted, static_cast<Health>(wanted)) << name(row);
      EXPECT_EQ(row.other, static_cast<Health>(other)) << name(row);
      EXPECT_EQ(&sim::boot_row(row.wanted, row.other), &row);
    }
  }
  EXPECT_EQ(index, kBootTable.size());
}

TEST(BootTable, NeverStartsUnbootableWhenThereIsAChoice) {
  for (const BootRow& row : kBootTable) {
    if (started(row) == Health::unbootable) {
      EXPECT_EQ(left_out(row), Health::unbootable) << name(row);
    }
  }
}

TEST(BootTable, StartsAGoodTargetAlways) {
  for (const BootRow& row : kBootTable) {
    if (row.wanted == Health::successful || row.wanted == Health::bootable) {
      EXPECT_EQ(row.start, Start::wanted) << name(row);
    }
  }
}

// A start of a system that has not proved itself is counted, or nothing else can be started.
TEST(BootTable, CountsEveryStartOfAnUnprovenSystem) {
  for (const BootRow& row : kBootTable) {
    const Health health = started(row);
    if (health == Health::bootable || health == Health::unknown) {
      EXPECT_TRUE(row.note == Note::count || row.note == Note::give_up) << name(row);
    }
    if (health == Health::successful) {
      EXPECT_TRUE(row.note == Note::nothing || row.note == Note::give_up) << name(row);
    }
  }
}

std::string table_as_text() {
  std::ostringstream out;
  out << "| boot target | other system | starts | writes back | why |\n"
      << "|---|---|---|---|---|\n";
  for (const BootRow& row : kBootTable) {
    out << "| " << sim::health_name(row.wanted) << " | " << sim::health_name(row.other) << " | "
        << (row.start == Start::wanted ? "boot target" : "other system") << " | "
        << sim::note_name(row.note) << " | " << row.why << " |\n";
  }
  return out.str();
}

TEST(BootTable, IsTheOneInTheDocumentation) {
  std::ifstream in(BOOT_DECISION_PAGE);
  ASSERT_TRUE(in) << BOOT_DECISION_PAGE;
  std::ostringstream page;
  page << in.rdbuf();
  EXPECT_NE(page.str().find(table_as_text()), std::string::npos) << "the page should hold:\n"
                                                                 << table_as_text();
}

}  // namespace
