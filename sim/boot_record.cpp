// SPDX-License-Identifier: Apache-2.0
//
// The boot flag record on flash, by the boot loader's own means: it reads and writes the chip, not
// the kernel's device, and no write protection holds it back.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "sim/boot_loader.h"
#include "sim/device_state.h"
#include "sim/flash.h"

namespace sim {
namespace {

constexpr const char* kFlags = "flags";
constexpr std::size_t kStatusOffset = 12;  // of A; B's status and attempts follow A's
constexpr std::size_t kAttemptsOffset = 16;
constexpr std::size_t kSystemSize = 8;
constexpr std::size_t kEnvMagicOffset = 28;
constexpr std::size_t kDualTypeOffset = 32;
constexpr std::uint32_t kDualTypeAb = 0xABAB;

std::size_t of_system(std::size_t offset, System system) {
  return offset + (system == System::b ? kSystemSize : 0);
}

RecordCopy read_copy(Device& device, const Partition& flags, std::uint32_t block) {
  RecordCopy copy;
  copy.block = block;
  const std::uint64_t first = device.state().partitions.at(flags.number()).first_block;
  const std::size_t length = std::min<std::size_t>(kRecordSize, flags.block_size());
  copy.record.bytes.fill(0xFF);
  device.nand().read((first + block) * flags.block_size(), copy.record.bytes.data(), length);
  return copy;
}

void write_copy(Device& device, const Partition& flags, std::uint32_t block,
                const BootRecord& record) {
  const Geometry& geometry = device.nand().geometry();
  Bytes image(flags.block_size(), 0xFF);
  std::memcpy(image.data(), record.bytes.data(),
              std::min<std::size_t>(record.bytes.size(), image.size()));
  int error = flash_erase(device, flags.number(), block);
  for (std::uint32_t page = 0; error == 0 && page < geometry.pages_per_block; ++page) {
    const std::uint64_t on_partition = std::uint64_t{block} * geometry.pages_per_block + page;
    error = flags.is_bad(block)
                ? EIO
                : flash_program(device, flags.number(), on_partition,
                                image.data() + std::size_t{page} * geometry.page_size);
  }
}

// The block of the copy to be written next; none when both copies are done. The main copy comes
// first, but the only valid copy comes last: it must stand until the other one does.
std::optional<std::uint32_t> next_to_write(const RecordCopies& now, const BootRecord& record,
                                           const std::set<std::uint32_t>& tried) {
  const bool backup_first = now.main.valid() && !now.backup.valid();
  const RecordCopy& first = backup_first ? now.backup : now.main;
  const RecordCopy& second = backup_first ? now.main : now.backup;
  for (const RecordCopy* copy : {&first, &second}) {
    if (copy->block && copy->record.bytes != record.bytes && tried.count(*copy->block) == 0) {
      return copy->block;
    }
  }
  return std::nullopt;
}

}  // namespace

std::uint32_t BootRecord::word(std::size_t offset) const {
  return static_cast<std::uint32_t>(bytes.at(offset)) |
         static_cast<std::uint32_t>(bytes.at(offset + 1)) << 8U |
         static_cast<std::uint32_t>(bytes.at(offset + 2)) << 16U |
         static_cast<std::uint32_t>(bytes.at(offset + 3)) << 24U;
}

void BootRecord::set_word(std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

bool BootRecord::valid() const {
  return word(0) == kRecordMagic && word(kEnvMagicOffset) == kRecordMagic;
}

std::int32_t BootRecord::status(System system) const {
  return static_cast<std::int32_t>(word(of_system(kStatusOffset, system)));
}

std::int32_t BootRecord::attempts(System system) const {
  return static_cast<std::int32_t>(word(of_system(kAttemptsOffset, system)));
}

void BootRecord::set_boot_to(System system) {
  set_word(4, system == System::a ? kBootToA : kBootToB);
}

void BootRecord::set_status(System system, std::int32_t status) {
  set_word(of_system(kStatusOffset, system), static_cast<std::uint32_t>(status));
}

void BootRecord::set_attempts(System system, std::int32_t attempts) {
  set_word(of_system(kAttemptsOffset, system), static_cast<std::uint32_t>(attempts));
}

BootRecord factory_record() {
  BootRecord record;
  record.set_word(0, kRecordMagic);
  record.set_boot_to(System::a);
  record.set_status(System::a, kStatusBootable);
  record.set_status(System::b, kStatusBootable);
  record.set_word(kEnvMagicOffset, kRecordMagic);
  record.set_word(kDualTypeOffset, kDualTypeAb);
  return record;
}

const RecordCopy* RecordCopies::chosen() const {
  if (main.valid()) {
    return &main;
  }
  return backup.valid() ? &backup : nullptr;
}

RecordCopies read_records(Device& device) {
  RecordCopies copies;
  const auto number = device.find_partition(kFlags);
  if (!number) {
    return copies;
  }
  const Partition flags = device.partition(*number);
  for (std::uint32_t block = 0; block < flags.blocks() && !copies.backup.block; ++block) {
    if (flags.is_bad(block)) {
      continue;
    }
    RecordCopy& next = copies.main.block ? copies.backup : copies.main;
    next = read_copy(device, flags, block);
  }
  return copies;
}

// Every block is tried once: one that turns bad on the way makes the next good one take its place,
// one that fails otherwise stays as it is.
void write_records(Device& device, const BootRecord& record) {
  if (!device.find_partition(kFlags)) {
    return;
  }
  const Partition flags = device.partition(kFlags);
  std::set<std::uint32_t> tried;
  while (const auto block = next_to_write(read_records(device), record, tried)) {
    write_copy(device, flags, *block, record);
    tried.insert(*block);
  }
}

}  // namespace sim
