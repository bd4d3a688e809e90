// SPDX-License-Identifier: Apache-2.0
#include "defects.h"

namespace {

Defect bad_row(std::uint32_t first, std::uint32_t count) {
  return {"blocks " + std::to_string(first) + " to " + std::to_string(first + count - 1) + " bad",
          true, [=](sim::Partition& partition) {
            for (std::uint32_t block = first; block < first + count; ++block) {
              partition.set_bad(block);
            }
          }};
}

Defect erase_defect(std::uint32_t block, sim::EraseDefect defect, const char* what) {
  return {"block " + std::to_string(block) + what, false,
          [=](sim::Partition& partition) { partition.set_erase_defect(block, defect); }};
}

Defect page_defect(std::uint32_t block, std::uint32_t page, std::uint8_t defect, const char* what) {
  return {"page " + std::to_string(page) + " of block " + std::to_string(block) + what, false,
          [=](sim::Partition& partition) { partition.set_page_defects(block, page, defect); },
          defect == sim::kPageMisread};
}

Defect unstable_page(std::uint32_t block, std::uint32_t page) {
  return {"page " + std::to_string(page) + " of block " + std::to_string(block) + " unstable",
          false, [=](sim::Partition& partition) { partition.set_page_unstable(block, page); }};
}

// The same of each block of a row.
Defect in_a_row(std::uint32_t first, std::uint32_t count, Defect (*of_block)(std::uint32_t)) {
  const std::string others = "in a row of " + std::to_string(count) + ", ";
  return {others + of_block(first).name, false, [=](sim::Partition& partition) {
            for (std::uint32_t block = first; block < first + count; ++block) {
              of_block(block).apply(partition);
            }
          }};
}

Defect turns_bad_fails(std::uint32_t block) {
  return erase_defect(block, sim::EraseDefect::turns_bad_fails, " turns bad, fails");
}

Defect turns_bad_passes(std::uint32_t block) {
  return erase_defect(block, sim::EraseDefect::turns_bad_passes, " turns bad, passes");
}

Defect fails_program(std::uint32_t block) {
  return page_defect(block, 1, sim::kPageFailsProgram, " fails to program");
}

}  // namespace

std::vector<Defect> born_bad(std::uint32_t blocks) {
  std::vector<Defect> defects;
  for (std::uint32_t block = 0; block < blocks; ++block) {
    defects.push_back(bad_row(block, 1));
  }
  for (const std::uint32_t count : {2U, 3U}) {
    for (const std::uint32_t first : {0U, (blocks - count) / 2, blocks - count}) {
      defects.push_back(bad_row(first, count));
    }
  }
  defects.push_back(bad_row(0, blocks - 1));
  defects.push_back(bad_row(1, blocks - 1));
  defects.push_back(bad_row(0, blocks));
  return defects;
}

std::vector<Defect> dying(const std::vector<std::uint32_t>& blocks, std::uint32_t pages) {
  std::vector<Defect> defects;
  for (const std::uint32_t block : blocks) {
    defects.push_back(erase_defect(block, sim::EraseDefect::worn, " worn out"));
    defects.push_back(turns_bad_fails(block));
    defects.push_back(turns_bad_passes(block));
    for (std::uint32_t page = 0; page < pages; ++page) {
      defects.push_back(page_defect(block, page, sim::kPageFailsProgram, " fails to program"));
      defects.push_back(page_defect(block, page, sim::kPageUnreadable, " unreadable"));
      defects.push_back(page_defect(block, page, sim::kPageMisread, " misread"));
      defects.push_back(unstable_page(block, page));
    }
  }
  return defects;
}

std::vector<Defect> dying_in_a_row(std::uint32_t blocks) {
  std::vector<Defect> defects;
  for (const std::uint32_t count : {2U, 3U}) {
    for (const std::uint32_t first : {0U, 1U, blocks - count}) {
      defects.push_back(in_a_row(first, count, turns_bad_fails));
      defects.push_back(in_a_row(first, count, turns_bad_passes));
      defects.push_back(in_a_row(first, count, fails_program));
    }
  }
  return defects;
}

std::vector<Defect> dying_at_the_end(std::uint32_t blocks) {
  std::vector<Defect> defects;
  const Defect all_but_two = bad_row(0, blocks - 2);
  for (const std::uint32_t block : {blocks - 2, blocks - 1}) {
    for (const auto of_block : {turns_bad_fails, turns_bad_passes, fails_program}) {
      const Defect dies = of_block(block);
      defects.push_back({all_but_two.name + ", " + dies.name, true, [=](sim::Partition& partition) {
                           all_but_two.apply(partition);
                           dies.apply(partition);
                         }});
    }
  }
  return defects;
}
