// SPDX-License-Identifier: Apache-2.0
//
// The faults of a device as they lie in its shared state.
#ifndef SIM_FAULT_MEMORY_H
#define SIM_FAULT_MEMORY_H

#include <array>
#include <cstdint>

#include "sim/faults.h"

namespace sim {

struct FaultSlot {
  std::uint8_t op;
  std::uint8_t forever;
  std::uint8_t has_bytes;
  std::uint8_t struck;
  std::int32_t error;
  std::uint64_t at;
  std::uint64_t seen;  // matching operations so far
  std::uint32_t bytes;
  char where[116];
};

struct CutSlot {
  std::uint8_t armed;
  std::uint8_t kind;
  std::uint64_t left;  // flash operations up to and with the one that is cut
  std::uint32_t byte;  // past the end: in the middle
  std::uint32_t page;
};

struct Faults::Memory {
  std::array<std::uint32_t, kOpCount> of_kind;  // faults held of each kind
  std::uint32_t held;
  CutSlot cut;
  std::array<FaultSlot, kMaxFaults> slots;
};

}  // namespace sim

#endif
