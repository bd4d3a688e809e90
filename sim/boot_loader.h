// SPDX-License-Identifier: Apache-2.0
//
// The boot loader of the simulated device: the other side of the boot flag record.
#ifndef SIM_BOOT_LOADER_H
#define SIM_BOOT_LOADER_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/boot_table.h"
#include "sim/device.h"

namespace sim {

// The boot flag record as it lies on flash: 292 bytes, 32-bit little-endian words.
constexpr std::uint32_t kRecordSize = 292;
constexpr std::uint32_t kRecordMagic = 0x464C4147;
constexpr std::uint32_t kBootToA = 0x875A;
constexpr std::uint32_t kBootToB = 0x986B;
constexpr std::int32_t kStatusBootable = 0xB0AB;
constexpr std::int32_t kStatusSuccessful = 0x5CCF;
constexpr std::int32_t kStatusUnbootable = 0xBABE;

struct BootRecord {
  std::array<std::uint8_t, kRecordSize> bytes{};

  std::uint32_t word(std::size_t offset) const;
  void set_word(std::size_t offset, std::uint32_t value);

  bool valid() const;  // both magic words
  std::uint32_t boot_to() const { return word(4); }
  std::uint32_t fota_status() const { return word(8); }
  std::int32_t status(System system) const;
  std::int32_t attempts(System system) const;
  void set_boot_to(System system);
  void set_fota_status(std::uint32_t status) { set_word(8, status); }
  void set_status(System system, std::int32_t status);
  void set_attempts(System system, std::int32_t attempts);
};

// One copy of the record: where it was found and what it says. No block: there is no such copy.
struct RecordCopy {
  std::optional<std::uint32_t> block;
  BootRecord record;
  bool valid() const { return block.has_value() && record.valid(); }
};

struct RecordCopies {
  RecordCopy main;    // in the first good block of "flags"
  RecordCopy backup;  // in the second
  // Main wins when both are valid; null when neither is.
  const RecordCopy* chosen() const;
};

// Reads both copies; none when the device has no "flags" partition.
RecordCopies read_records(Device& device);

// A record as a factory writes it: A boots next, both bootable, no attempt made.
BootRecord factory_record();
// Writes a record as a block of its own into the first two good blocks of "flags".
void write_records(Device& device, const BootRecord& record);

// A system as the boot table sees it.
Health system_health(const BootRecord& record, System system, int most_attempts);

struct BootResult {
  System started = System::a;
  std::optional<System> wanted;  // the record's boot target, when there is one
  const BootRow* row = nullptr;  // the row of the table that decided; null without a valid record
  std::string why;               // one sentence for a person
  bool record_written = false;   // attempts counted, or a copy that was bad or old made equal
};

// What boot() would do now; writes nothing.
BootResult next_boot(Device& device);

// Starts the device once: reads the record, decides, writes back what the decision counts, and
// brings the device up in the system of its choice (Device::power_on).
BootResult boot(Device& device);

// Starts the device again and again as a watchdog would, as long as a system is chosen that does
// not come up. Returns the boots made, the last one first come up; when `limit` boots did not
// bring it up, the last result is of a system that does not come up.
struct BootHistory {
  std::vector<BootResult> boots;
  bool up = false;
};
BootHistory boot_until_up(Device& device, const std::vector<System>& dead, int limit = 20);

}  // namespace sim

#endif
