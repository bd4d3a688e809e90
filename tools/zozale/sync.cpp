// SPDX-License-Identifier: Apache-2.0
#include "common/text.h"
#include "zozale/command_line.h"
#include "zozale/flags.h"
#include "zozale/session.h"
#include "zozale/steps.h"
#include "zozale/store.h"
#include "zozale/table_file.h"

namespace zozale::tool {
namespace {

Failure sync_failure(const Library& library, const SyncSteps& steps, System target) {
  const std::string place = steps.place().empty() ? "in its preparation, before anything was erased"
                                                  : "while " + steps.place();
  return {kExitFailed,
          {"the synchronisation of " + in_words(target) + " failed " + place,
           "a copy of " + in_words(other(target)),
           in_words(target) + " stays unbootable",
           "put right what the log tells, then run 'zozale sync' again: partitions that are equal "
           "are passed over",
           {},
           library.trail().lines()}};
}

// The library counts this as a success: the copy is complete, but nothing will boot it.
Failure marking_failure(const Library& library, System target) {
  return {kExitFailed,
          {in_words(target) + " was synchronised but could not be marked bootable",
           "the status \"bootable\" in the boot flag record",
           "the record could not be written",
           "run 'zozale mark " + letter(target) + " bootable'; if that fails too, 'zozale doctor'",
           {},
           library.trail().lines()}};
}

void tell_success(const Report& report, const Plan& plan, const SyncSteps& steps) {
  const size_t written = steps.count_written();
  if (written == 0) {
    report.say("Nothing was left to copy: " + in_words(plan.target) + " equals " +
               in_words(other(plan.target)) + " already.");
    return;
  }
  report.say("Synchronised " + in_words(plan.target) + ": " + counted(written, "partition") +
             " copied, " + std::to_string(plan.items.size() - written) + " equal already.");
}

void run_sync(Session& session, const Plan& plan, Display& display) {
  Meter meter(monotonic_seconds);
  plan_sync_work(meter, plan.bytes());
  SyncSteps steps(meter, display, plan);
  const int result = session.library.run([] { return vemk_dual_sync_system(); }, &steps);
  record_outcome(session.report, plan, steps.written());
  if (result != 0) {
    throw sync_failure(session.library, steps, plan.target);
  }
  if (session.library.trail().mentions("set target system bootable fail")) {
    throw marking_failure(session.library, plan.target);
  }
  meter.finish();
  display.show(meter.reading());
  display.end();
  tell_success(session.report, plan, steps);
}

Plan prepare(Session& session, System target) {
  const MtdTable flash = MtdTable::read();
  require_usable(read_flags(flash));
  const PartitionTable table = require_harmless_table();
  const Compare compare = session.options.dry_run ? Compare::kYes : Compare::kNo;
  session.report.say("Reading the partitions of " + in_words(other(target)) + " ...");
  Plan plan = plan_sync(table, target, flash, compare);
  require_harmless(plan, table);
  for (const std::string& warning : sync_warnings(plan)) {
    session.report.warn(warning);
  }
  return plan;
}

}  // namespace

ExitCode sync(Session& session) {
  const bool dry = session.options.dry_run;
  if (!dry) {
    require_store();
  }
  // A dry run does not ask the library, which would write its log.
  const System target =
      other(require_running(dry ? running_by_command_line() : session.library.running()));
  session.report.data()["dry_run"] = dry;
  session.report.data()["target"] = letter(target);
  const Plan plan = prepare(session, target);
  if (dry) {
    tell_plan(session.report, plan);
    require_room(plan);
    session.report.say(plan.all_up_to_date() ? "Nothing would be copied."
                                             : "Nothing was written: this was a dry run.");
    return kExitDone;
  }
  require_room(plan);
  Display display(Display::style_for(session.options.json, session.options.verbose));
  run_sync(session, plan, display);
  return kExitDone;
}

}  // namespace zozale::tool
