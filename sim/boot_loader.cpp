// SPDX-License-Identifier: Apache-2.0
#include "sim/boot_loader.h"

#include <algorithm>

namespace sim {

Health system_health(const BootRecord& record, System system, int most_attempts) {
  const std::int32_t status = record.status(system);
  if (status == kStatusSuccessful) {
    return Health::successful;
  }
  if (status == kStatusUnbootable) {
    return Health::unbootable;
  }
  if (record.attempts(system) >= most_attempts) {
    return Health::used_up;
  }
  return status == kStatusBootable ? Health::bootable : Health::unknown;
}

namespace {

// A boot target that is neither system counts as A.
System target(const BootRecord& record) {
  return record.boot_to() == kBootToB ? System::b : System::a;
}

void count_attempt(BootRecord& record, System system) {
  const std::int32_t before = std::max(record.attempts(system), 0);
  record.set_attempts(system, before + 1);
}

void give_up(BootRecord& record, System given_up, System started) {
  record.set_boot_to(started);
  record.set_attempts(given_up, 0);
  if (record.status(started) != kStatusSuccessful) {
    count_attempt(record, started);
  }
}

void new_round(BootRecord& record, System started) {
  record.set_attempts(System::a, 0);
  record.set_attempts(System::b, 0);
  count_attempt(record, started);
}

// What the record says after the decision.
BootRecord noted(BootRecord record, const BootRow& row, System wanted, System started) {
  switch (row.note) {
    case Note::nothing:
      break;
    case Note::count:
      count_attempt(record, started);
      break;
    case Note::give_up:
      give_up(record, wanted, started);
      break;
    case Note::new_round:
      new_round(record, started);
      break;
    case Note::take_turns:
      record.set_boot_to(other(wanted));
      break;
  }
  if (record.status(started) == kStatusSuccessful) {
    record.set_attempts(started, 0);
  }
  return record;
}

BootResult without_record(const RecordCopies& copies) {
  BootResult result;
  result.started = System::a;
  result.why = copies.main.block ? "no valid boot flag record was found: A is the default"
                                 : "\"flags\" has no good block: A is the default";
  return result;
}

// Both copies hold the record, byte for byte.
bool both_hold(const RecordCopies& copies, const BootRecord& record) {
  return copies.main.record.bytes == record.bytes &&
         (!copies.backup.block || copies.backup.record.bytes == record.bytes);
}

struct Decision {
  BootResult result;
  BootRecord record;  // as it is to stand on flash
};

Decision decide(Device& device) {
  const RecordCopies copies = read_records(device);
  const RecordCopy* copy = copies.chosen();
  if (copy == nullptr) {
    return {without_record(copies), {}};
  }
  const int most = device.layout().boot_attempts;
  const System wanted = target(copy->record);
  const BootRow& row = boot_row(system_health(copy->record, wanted, most),
                                system_health(copy->record, other(wanted), most));
  Decision decision;
  decision.result.wanted = wanted;
  decision.result.row = &row;
  decision.result.started = row.start == Start::wanted ? wanted : other(wanted);
  decision.result.why = row.why;
  decision.record = noted(copy->record, row, wanted, decision.result.started);
  decision.result.record_written = !both_hold(copies, decision.record);
  return decision;
}

}  // namespace

BootResult next_boot(Device& device) {
  return decide(device).result;
}

BootResult boot(Device& device) {
  device.set_power(Power::on);
  const Decision decision = decide(device);
  if (decision.result.record_written) {
    write_records(device, decision.record);
  }
  device.power_on(decision.result.started);
  return decision.result;
}

BootHistory boot_until_up(Device& device, const std::vector<System>& dead, int limit) {
  BootHistory history;
  while (!history.up && static_cast<int>(history.boots.size()) < limit) {
    history.boots.push_back(boot(device));
    history.up = std::find(dead.begin(), dead.end(), history.boots.back().started) == dead.end();
  }
  return history;
}

}  // namespace sim
