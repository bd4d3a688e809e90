// SPDX-License-Identifier: Apache-2.0
#include "trial.h"

#include <algorithm>

#include "tests/support/device_test.h"

namespace cuts {
namespace {

void require(bool holds, const std::string& what) {
  if (!holds) {
    throw Lost(what);
  }
}

void require_finished(const support::ChildEnd& end, const std::string& what) {
  require(!end.power_cut, what + " lost its power once more");
  require(end.exited, what + " was ended by signal " + std::to_string(end.status));
  require(end.status == 0, what + " failed");
}

}  // namespace

std::string Scenario::name() const {
  return operation->name + "/" + sim::letter(running) + "/" + shape->name + "/" + map->name;
}

Trial::Trial(const Scenario& scenario)
    : scenario_(scenario),
      twin_(layout_of(*scenario.shape, *scenario.map)),
      records_(scenario.operation->records(scenario.running)) {
  prepare();
  twin_.device().restore(start_);
  require_finished(support::in_child([this] { return call(); }), "the operation without a cut");
  uncut_ = counted();
  check_done();
}

void Trial::prepare() {
  const sim::System running = scenario_.running;
  twin_.flash(running, release(kRunningRelease));
  twin_.flash(sim::other(running), release(kOtherRelease));
  if (!scenario_.operation->other_is_complete) {
    twin_.partition_of(sim::other(running), "rootfs").wipe();
  }
  twin_.put_package(release(kPackageRelease));
  if (records_.front().valid()) {
    sim::write_records(twin_.device(), records_.front());
  }
  if (scenario_.map->dying) {
    set_dying_blocks(twin_.device());
  }
  twin_.device().nand().clear_rule_breaks();
  twin_.device().power_on(running);
  start_ = twin_.device().snapshot();
}

const Release& Trial::release(std::uint32_t number) {
  const auto found = releases_.find(number);
  return found != releases_.end()
             ? found->second
             : releases_.emplace(number, release_for(*scenario_.shape, number)).first->second;
}

FlashCount Trial::counted() {
  return {twin_.device().count(sim::Op::block_erase), twin_.device().count(sim::Op::page_program)};
}

int Trial::call() {
  return scenario_.operation->call(scenario_.running) == 0 ? 0 : 1;
}

Trial::Result Trial::run(const sim::PowerCut& cut, const std::optional<sim::PowerCut>& second) {
  Result result;
  twin_.remove_log();
  twin_.device().restore(start_);
  cut_operation(cut);
  result.before_cut = counted();
  if (second) {
    cut_recovery(*second);
  }
  result.recovery = recover();
  return result;
}

void Trial::cut_operation(const sim::PowerCut& cut) {
  twin_.device().faults().set_power_cut(cut);
  const support::ChildEnd end = support::in_child([this] { return call(); });
  require(end.power_cut, "the operation did not get as far as the cut");
  require(counted().total() == cut.at, "the cut came at another flash operation");
}

void Trial::cut_recovery(const sim::PowerCut& cut) {
  twin_.device().faults().clear();
  twin_.device().faults().set_power_cut(cut);
  const support::ChildEnd end = support::in_child([this] {
    sim::boot(twin_.device());
    return call();
  });
  require(end.power_cut, "the recovery did not get as far as the second cut");
}

std::uint64_t Trial::recover() {
  twin_.device().faults().clear();
  check_record(sim::read_records(twin_.device()));
  twin_.device().clear_counts();
  check_start(sim::boot(twin_.device()));
  check_record(sim::read_records(twin_.device()));
  check_status();
  const auto finished = erases_of_finished();
  require_finished(support::in_child([this] { return call(); }), "the operation after the cut");
  for (const auto& [name, erases] : finished) {
    require(twin_.device().partition(name).total_erases() == erases,
            name + " was complete after the cut and was erased again");
  }
  const std::uint64_t operations = counted().total();
  check_done();
  return operations;
}

// When the block of the first copy turns bad, the second one is overwritten next: a row of
// docs/reliability.md.
bool Trial::may_lack_record() const {
  return !records_.front().valid() ||
         (scenario_.map->dying && scenario_.operation->overwrites_record);
}

void Trial::check_start(const sim::BootResult& result) {
  const sim::RecordCopies copies = sim::read_records(twin_.device());
  const bool lost = copies.chosen() == nullptr;
  require(!lost || may_lack_record(), "no valid boot flag record is left");
  const bool to_b = !lost && copies.chosen()->record.boot_to() == sim::kBootToB;
  require(result.started == (to_b ? sim::System::b : sim::System::a),
          "the boot target was not started");
  const bool complete = result.started == scenario_.running
                            ? twin_.holds(scenario_.running, release(kRunningRelease))
                            : other_is_complete();
  require(complete, std::string("an incomplete system was started: ") + letter(result.started));
}

void Trial::check_record(const sim::RecordCopies& copies) {
  if (copies.chosen() == nullptr && may_lack_record()) {
    return;
  }
  require(copies.chosen() != nullptr, "no valid boot flag record is left");
  const sim::BootRecord& record = copies.chosen()->record;
  require(std::any_of(records_.begin(), records_.end(),
                      [&](const sim::BootRecord& known) { return same_decision(record, known); }),
          "the boot flag record is neither the old one nor the new one");
  const bool may_start = record.status(sim::other(scenario_.running)) != sim::kStatusUnbootable;
  require(!may_start || other_is_complete(), "an incomplete system is not marked unbootable");
}

// What the store tells is never ahead of the flash.
void Trial::check_status() {
  const auto& status = scenario_.operation->status;
  if (!status) {
    return;
  }
  const int stored = twin_.stored(status->name);
  const sim::System target = sim::other(scenario_.running);
  require(stored == status->working || stored == status->done,
          status->name + " is " + std::to_string(stored));
  require(stored == status->working || twin_.holds(target, release(*scenario_.operation->installs)),
          status->name + " tells of an end before all images are in place");
}

bool Trial::other_is_complete() {
  const sim::System system = sim::other(scenario_.running);
  const auto& installs = scenario_.operation->installs;
  return twin_.holds(system, release(kOtherRelease)) ||
         (installs && twin_.holds(system, release(*installs)));
}

// The partitions that need not be written any more: name and erases so far.
std::map<std::string, std::uint64_t> Trial::erases_of_finished() {
  std::map<std::string, std::uint64_t> finished;
  const auto& installs = scenario_.operation->installs;
  for (const sim::System system : {sim::System::a, sim::System::b}) {
    for (const Image& image : release(installs.value_or(kRunningRelease))) {
      const sim::Partition partition = twin_.partition_of(system, image.name);
      const bool target = installs && system != scenario_.running;
      if (!target || twin_.holds(system, image)) {
        finished[partition.name()] = partition.total_erases();
      }
    }
  }
  return finished;
}

void Trial::check_done() {
  const sim::RecordCopies copies = sim::read_records(twin_.device());
  require(copies.main.valid() && copies.backup.valid(), "a copy of the record is not valid");
  for (const sim::RecordCopy* copy : {&copies.main, &copies.backup}) {
    require(same_decision(copy->record, records_.back()),
            "a copy of the record is not the new one");
  }
  check_contents();
  check_no_rule_broken();
  check_start(sim::boot(twin_.device()));
}

void Trial::check_contents() {
  const sim::System other = sim::other(scenario_.running);
  const Operation& operation = *scenario_.operation;
  require(twin_.holds(scenario_.running, release(kRunningRelease)), "the running system changed");
  require(!operation.other_is_complete ||
              twin_.holds(other, release(operation.installs.value_or(kOtherRelease))),
          "the other system does not hold what it should");
  require(!operation.status || twin_.stored(operation.status->name) == operation.status->done,
          "the status in the store does not tell of the end");
}

void Trial::check_no_rule_broken() {
  require(twin_.device().nand().rule_breaks().total() == 0, "a rule of NAND flash was broken");
}

}  // namespace cuts
