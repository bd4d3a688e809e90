// SPDX-License-Identifier: Apache-2.0
//
// What boots next: the whole decision of the boot loader as one constant table.
#ifndef SIM_BOOT_TABLE_H
#define SIM_BOOT_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "sim/layout.h"

namespace sim {

// A system as the decision sees it: its status and whether start attempts are left.
enum class Health : std::uint8_t {
  successful,  // has booted successfully; attempts do not matter
  bootable,    // bootable, attempts left
  unknown,     // a status that nobody defined, attempts left
  used_up,     // bootable or unknown, no attempt left
  unbootable,  // must not be booted
};
constexpr std::size_t kHealthCount = 5;
const char* health_name(Health health);

enum class Start : std::uint8_t { wanted, other };

// What is written back to the record before the system is started.
enum class Note : std::uint8_t {
  nothing,     // attempts of a successful system go back to 0
  count,       // one attempt of the started system
  give_up,     // the other system becomes the boot target, the wanted one's attempts go back to 0,
               // and the attempt is counted unless the started system is successful
  new_round,   // both systems' attempts go back to 0, then one attempt of the started system
  take_turns,  // the other system becomes the boot target, for the next start
};
const char* note_name(Note note);

struct BootRow {
  Health wanted;  // the boot target
  Health other;
  Start start;
  Note note;
  const char* why;
};

// Every pair of states, wanted first, in the order of Health.
extern const std::array<BootRow, kHealthCount * kHealthCount> kBootTable;

const BootRow& boot_row(Health wanted, Health other);

}  // namespace sim

#endif
