// SPDX-License-Identifier: Apache-2.0
#include "zozale/authenticity.h"
#include "zozale/command_line.h"
#include "zozale/flags.h"
#include "zozale/session.h"
#include "zozale/store.h"
#include "zozale/table_file.h"
#include "zozale/verification.h"

namespace zozale::tool {
namespace {

struct Upgrade {
  int result = -1;
  z_upgrade_status_info_t status = {UPGRADE_STATUS_UNKNOWN, 0, 0};

  // A preparation that fails returns 0 like a success: only the status tells them apart.
  bool succeeded() const {
    return result == 0 && status.upgrade_status == UPGRADE_STATUS_UPDATE_SUCCESS;
  }
};

uint64_t image_bytes(const PackageView& package) {
  uint64_t sum = 0;
  for (const PackageEntry& entry : package.partitions) {
    sum += static_cast<uint64_t>(entry.len);
  }
  return sum;
}

Upgrade upgrade_by_library(Session& session, Follower& follower) {
  Upgrade upgrade;
  z_upgrade_flush_status_t flush = {&upgrade.status, nullptr};
  upgrade.result = session.library.run([&flush] { return vemk_dual_upgrade(&flush); }, &follower);
  return upgrade;
}

Failure upgrade_failure(const Library& library, const UpgradeSteps& steps, System target) {
  const std::string place = steps.place().empty() ? "in its preparation, before anything was erased"
                                                  : "while " + steps.place();
  return {kExitFailed,
          {"the installation into " + in_words(target) + " failed " + place,
           "status \"" + upgrade_word(UPGRADE_STATUS_UPDATE_SUCCESS) + "\" at its end",
           "status \"" + upgrade_word(UPGRADE_STATUS_UPDATE_FAIL) + "\"; " + in_words(target) +
               " stays unbootable, " + in_words(other(target)) + " is as it was",
           "put right what the log tells, then run 'zozale install' again: partitions that are "
           "finished are passed over",
           {},
           library.trail().lines()}};
}

void tell_success(const Report& report, const Plan& plan, const UpgradeSteps& steps) {
  const size_t written = steps.count_written();
  if (written == 0) {
    report.say("Nothing was left to write: " + in_words(plan.target) +
               " holds this package already.");
  } else {
    report.say("Installed into " + in_words(plan.target) + ": " + counted(written, "partition") +
               " written, " + std::to_string(plan.items.size() - written) + " up to date, " +
               short_size(plan.bytes()) + ".");
  }
  report.say("To start it: zozale switch " + letter(plan.target) + " --reboot");
}

// An upgrade without partitions writes nothing and yet marks the other system bootable.
void require_partitions(const PackageView& package) {
  if (package.partitions.empty()) {
    throw Failure(kExitBadPackage,
                  {"the package is bad: it carries no partition", "at least one partition",
                   counted(package.extras.size(), "extra file") + " and no partition",
                   "fetch the package again, or make it again with zozale-package"});
  }
}

// Everything that can be found out before the first erase.
Plan prepare(const PackageFile& package, System target, Compare compare) {
  require_partitions(package.view);
  const MtdTable table = MtdTable::read();
  require_usable(read_flags(table));
  Plan plan = plan_install(package.view, target, table, compare);
  require_harmless(plan, *require_table().table);
  return plan;
}

void run_upgrade(Session& session, const PackageFile& package, System target, Display& display) {
  Meter meter(monotonic_seconds);
  VerifySteps verification(meter, display, package.view);
  plan_same_package(meter, package, 1);
  plan_upgrade_work(meter, image_bytes(package.view));
  plan_authentic_outcome(meter, package);
  verify_by_library(session, package, verification, target);
  const Plan plan = prepare(package, target, Compare::kNo);
  require_room(plan);
  require_same_package(session, package, meter, display);
  UpgradeSteps steps(meter, display, plan);
  PartitionWitness witness(steps);
  const Upgrade upgrade = upgrade_by_library(session, witness);
  record_outcome(session.report, plan, steps.written());
  require_authentic_outcome(session, package, {plan, witness, steps.written(), upgrade.succeeded()},
                            meter, display);
  if (!upgrade.succeeded()) {
    throw upgrade_failure(session.library, steps, target);
  }
  meter.finish();
  display.show(meter.reading());
  display.end();
  tell_success(session.report, plan, steps);
}

ExitCode show_plan(Session& session, const PackageFile& package, System target) {
  session.report.say("Comparing the package with " + in_words(target) + " ...");
  check_digests(package);
  check_against_table(package, *require_table().table);
  const Plan plan = prepare(package, target, Compare::kYes);
  tell_plan(session.report, plan);
  require_room(plan);
  session.report.say(plan.all_up_to_date() ? "Nothing would be written."
                                           : "Nothing was written: this was a dry run.");
  return kExitDone;
}

}  // namespace

ExitCode install(Session& session) {
  const bool dry = session.options.dry_run;
  if (!dry) {
    require_store();
  }
  session.report.data()["dry_run"] = dry;
  const PackageFile package = take_package(session);
  // A dry run does not ask the library, which would write its log.
  const System target =
      other(require_running(dry ? running_by_command_line() : session.library.running()));
  session.report.data()["target"] = letter(target);
  if (dry) {
    return show_plan(session, package, target);
  }
  Display display(Display::style_for(session.options.json, session.options.verbose));
  run_upgrade(session, package, target, display);
  return kExitDone;
}

}  // namespace zozale::tool
