// SPDX-License-Identifier: Apache-2.0
#include "zozale/flags.h"

#include <cerrno>
#include <cstring>

#include "zozale/failure.h"

namespace zozale::tool {
namespace {

std::optional<FlagCopy> read_copy(const Flash& flash, uint32_t index) {
  if (index >= flash.good_blocks()) {
    return std::nullopt;
  }
  FlagCopy copy;
  copy.block = flash.physical(index);
  if (!flash.read_good(index, reinterpret_cast<uint8_t*>(&copy.record), sizeof(copy.record))) {
    throw Failure(kExitFailed,
                  {"cannot read block " + std::to_string(copy.block) + " of the flags partition",
                   "292 bytes", strerror(errno), "check the kernel's log for the flash driver"});
  }
  return copy;
}

const FlagCopy* valid_or_null(const std::optional<FlagCopy>& copy) {
  return copy && copy->valid() ? &*copy : nullptr;
}

const FlagCopy* rewritable_or_null(const std::optional<FlagCopy>& copy) {
  return copy && copy->boot_magic_fits() ? &*copy : nullptr;
}

}  // namespace

const FlagCopy* Flags::read() const {
  const FlagCopy* copy = valid_or_null(main);
  return copy != nullptr ? copy : valid_or_null(backup);
}

const FlagCopy* Flags::rewritten() const {
  const FlagCopy* copy = rewritable_or_null(main);
  return copy != nullptr ? copy : rewritable_or_null(backup);
}

bool Flags::agree() const {
  return valid_or_null(main) != nullptr && valid_or_null(backup) != nullptr &&
         memcmp(&main->record, &backup->record, sizeof(main->record)) == 0;
}

Flags read_flags(const MtdTable& table) {
  const Flash flash(table.require("flags"));
  Flags flags;
  flags.blocks = flash.blocks();
  flags.good_blocks = flash.good_blocks();
  flags.main = read_copy(flash, 0);
  flags.backup = read_copy(flash, 1);
  return flags;
}

void require_usable(const Flags& flags) {
  if (flags.read() == nullptr) {
    throw Failure(kExitDeviceUnfit,
                  {"the flags partition holds no valid boot flag record",
                   "a record in one of its first two good blocks", "none",
                   "run 'zozale doctor' to see both copies, 'zozale init-flags' to write a fresh "
                   "record"});
  }
  if (!flags.rewritten()->valid()) {
    throw Failure(kExitDeviceUnfit,
                  {"the main copy of the boot flag record is damaged in a way that the next change "
                   "would spread to both copies",
                   "both magic words in the main copy", "only the first of the two",
                   "run 'zozale init-flags --force' to write a fresh record, then set what "
                   "'zozale status' shows now"});
  }
}

}  // namespace zozale::tool
