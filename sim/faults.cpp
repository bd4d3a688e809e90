// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "sim/fault_memory.h"

namespace sim {
namespace {

constexpr std::array<const char*, kOpCount> kOpNames = {
    "open",          "close",     "read",       "write",          "lseek",        "fsync",
    "MEMGETINFO",    "MEMERASE",  "MEMERASE64", "MEMGETBADBLOCK", "protect-lift", "protect-restore",
    "other-request", "fopen",     "fclose",     "stream-read",    "stream-write", "access",
    "stat",          "mkdir",     "rename",     "unlink",         "block-erase",  "page-program",
    "malloc",        "store-get", "store-set",  "store-save",     "reboot"};

constexpr std::array<const char*, 4> kCutNames = {"before", "after", "torn", "unstable"};

template <typename Enum, std::size_t N>
std::optional<Enum> find_name(const std::array<const char*, N>& names, std::string_view name) {
  const auto* const found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    return std::nullopt;
  }
  return static_cast<Enum>(found - names.begin());
}

bool starts_with(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool is_place(const FaultSlot& slot, std::string_view partition, std::string_view path) {
  const std::string_view where = slot.where;
  if (where.empty() || where == partition || where == path) {
    return true;
  }
  return where.back() == '*' && starts_with(path, where.substr(0, where.size() - 1));
}

// Counts the operation; true when it is one that the fault strikes.
bool strikes(FaultSlot& slot) {
  ++slot.seen;
  if (slot.seen < slot.at || (slot.seen > slot.at && slot.forever == 0)) {
    return false;
  }
  slot.struck = 1;
  return true;
}

bool transfers(Op op) {
  return op == Op::read || op == Op::write || op == Op::stream_read;
}

std::size_t index(Op op) {
  return static_cast<std::size_t>(op);
}

}  // namespace

const char* op_name(Op op) {
  return kOpNames.at(index(op));
}
std::optional<Op> op_from_name(std::string_view name) {
  return find_name<Op>(kOpNames, name);
}
const char* cut_name(CutKind kind) {
  return kCutNames.at(static_cast<std::size_t>(kind));
}
std::optional<CutKind> cut_from_name(std::string_view name) {
  return find_name<CutKind>(kCutNames, name);
}

void Faults::add(const Fault& fault) {
  if (memory_->held == kMaxFaults) {
    throw std::runtime_error("a device holds at most " + std::to_string(kMaxFaults) + " faults");
  }
  if (fault.at == 0) {
    throw std::runtime_error("a fault's operations count from 1");
  }
  if (fault.bytes && !transfers(fault.op)) {
    throw std::runtime_error(std::string("a fault of ") + op_name(fault.op) +
                             " cannot be a short transfer");
  }
  if (!fault.bytes && fault.error <= 0) {
    throw std::runtime_error("a fault needs an errno above 0");
  }
  FaultSlot slot{};
  if (fault.where.size() >= sizeof slot.where) {
    throw std::runtime_error("fault on \"" + fault.where + "\": the place is too long");
  }
  slot.op = static_cast<std::uint8_t>(fault.op);
  std::memcpy(slot.where, fault.where.data(), fault.where.size());
  slot.at = fault.at;
  slot.error = fault.error;
  slot.forever = fault.forever ? 1 : 0;
  slot.has_bytes = fault.bytes.has_value() ? 1 : 0;
  slot.bytes = fault.bytes.value_or(0);
  memory_->slots[memory_->held++] = slot;
  ++memory_->of_kind[index(fault.op)];
}

void Faults::set_power_cut(const PowerCut& cut) {
  constexpr std::uint32_t kMiddle = 0xFFFFFFFF;
  if (cut.at == 0) {
    throw std::runtime_error("a power cut's flash operations count from 1");
  }
  CutSlot& slot = memory_->cut;
  slot.armed = 1;
  slot.kind = static_cast<std::uint8_t>(cut.kind);
  slot.left = cut.at;
  slot.byte = cut.byte.value_or(kMiddle);
  slot.page = cut.page.value_or(kMiddle);
}

void Faults::clear() {
  *memory_ = Memory{};
}

std::size_t Faults::struck() const {
  return static_cast<std::size_t>(
      std::count_if(memory_->slots.begin(), memory_->slots.begin() + memory_->held,
                    [](const FaultSlot& slot) { return slot.struck != 0; }));
}

template <typename Matches>
Struck Faults::meet_those(Op op, Matches matches) {
  Struck result;
  if (!any(op)) {
    return result;
  }
  for (std::uint32_t i = 0; i < memory_->held; ++i) {
    FaultSlot& slot = memory_->slots.at(i);
    if (slot.op != static_cast<std::uint8_t>(op) || !matches(slot) || !strikes(slot) || result) {
      continue;
    }
    result.error = slot.has_bytes != 0 ? 0 : slot.error;
    result.bytes = slot.has_bytes != 0 ? std::optional(slot.bytes) : std::nullopt;
  }
  return result;
}

Struck Faults::meet(Op op, std::string_view partition, std::string_view path) {
  return meet_those(op, [&](const FaultSlot& slot) { return is_place(slot, partition, path); });
}

Struck Faults::meet_caller(Op op, std::string_view object) {
  return meet_those(op, [object](const FaultSlot& slot) {
    return object.find(slot.where) != std::string_view::npos;
  });
}

bool Faults::any(Op op) const {
  return memory_->of_kind[index(op)] != 0;
}

bool Faults::any(Op op, std::string_view path) const {
  return std::any_of(memory_->slots.begin(), memory_->slots.begin() + memory_->held,
                     [op, path](const FaultSlot& slot) {
                       return slot.op == static_cast<std::uint8_t>(op) && is_place(slot, {}, path);
                     });
}

std::optional<PowerCut> Faults::meet_flash_operation() {
  CutSlot& slot = memory_->cut;
  if (slot.armed == 0 || --slot.left > 0) {
    return std::nullopt;
  }
  slot.armed = 0;
  PowerCut cut;
  cut.kind = static_cast<CutKind>(slot.kind);
  cut.byte = slot.byte;
  cut.page = slot.page;
  return cut;
}

static_assert(std::is_trivially_copyable_v<Faults::Memory>);

}  // namespace sim
