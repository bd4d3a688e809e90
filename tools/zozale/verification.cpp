// SPDX-License-Identifier: Apache-2.0
#include "zozale/verification.h"

#include "common/text.h"
#include "upi_public.h"
#include "zozale/authenticity.h"
#include "zozale/failure.h"
#include "zozale/mtd.h"
#include "zozale/store.h"

namespace zozale::tool {
namespace {

const char* const kSeeLog = "the log lines above tell more";

Failure table_failure(const Library& library) {
  return {kExitDeviceUnfit,
          {"the partition table file cannot be used",
           SYSTEM_PARTITION_TABLE_PATH " in order",
           "missing or refused by the library",
           "run 'zozale doctor' to see what is wrong with it",
           {},
           library.trail().lines()}};
}

Failure reading_failure(const Library& library) {
  return {kExitFailed,
          {"the package cannot be read",
           "every byte of " UPGRADE_PACKAGE_PATH " readable",
           "a read that failed",
           "check the file system and the kernel's log",
           {},
           library.trail().lines()}};
}

Failure digest_failure(const VerifySteps& steps) {
  const std::string what =
      steps.image().empty() ? "its content" : "the image of " + printable(steps.image());
  return {kExitBadPackage,
          {"the package is damaged: " + what + " does not match its digest",
           "the SHA-512 that the package states",
           "another one; both stand in the log file",
           "fetch the package again",
           {},
           {"digests differ: " + what}}};
}

Failure refusal(const Library& library) {
  return {kExitBadPackage,
          {"the library refuses the package",
           "a package for this device's partitions, undamaged",
           kSeeLog,
           "fetch the package that was made for this device, or make it again",
           {},
           library.trail().lines()}};
}

bool reading_failed(const FailureTrail& trail) {
  return trail.mentions("Get file content failed") || trail.mentions("Lseek failed") ||
         trail.mentions("Read data from file error") || trail.mentions("Open upgrade package file");
}

// Throws when a partition of the package is not there.
void require_partitions(const PackageView& package, System target) {
  const MtdTable table = MtdTable::read();
  for (const PackageEntry& entry : package.partitions) {
    table.require(mtd_name(entry.name, target));
  }
}

[[noreturn]] void explain(const Library& library, const PackageFile& package,
                          const VerifySteps& steps, System target) {
  require_unchanged(package);
  const FailureTrail& trail = library.trail();
  if (trail.mentions("verify_partition_mtd: ")) {
    require_partitions(package.view, target);
  }
  if (trail.mentions("init system partition info fail")) {
    throw table_failure(library);
  }
  if (reading_failed(trail)) {
    throw reading_failure(library);
  }
  throw steps.digest_differs() ? digest_failure(steps) : refusal(library);
}

}  // namespace

void verify_by_library(Session& session, const PackageFile& package, VerifySteps& steps,
                       System target) {
  check_zero_byte_digests(package);
  if (session.library.run([] { return vemk_dual_verify(); }, &steps) != 0) {
    explain(session.library, package, steps, target);
  }
}

ExitCode verify(Session& session) {
  require_store();
  const PackageFile package = take_package(session);
  const System running = require_running(session.library.running());
  Meter meter(monotonic_seconds);
  Display display(Display::style_for(session.options.json, session.options.verbose));
  VerifySteps steps(meter, display, package.view);
  plan_same_package(meter, package, 1);
  verify_by_library(session, package, steps, other(running));
  require_same_package(session, package, meter, display);
  meter.finish();
  display.show(meter.reading());
  display.end();
  session.report.say("The package is good: " + short_size(package.view.file_size) + ", " +
                     counted(package.view.partitions.size(), "partition") + " for " +
                     in_words(other(running)) + ".");
  return kExitDone;
}

ExitCode show_type(Session& session) {
  const PackageFile package = open_package();
  const int type = session.library.run([] { return vemk_dual_get_upgrade_type(); });
  const bool refused = !session.library.trail().lines().empty();
  if (type == -1 && refused) {
    throw session.library.trail().mentions("init system partition info fail")
        ? table_failure(session.library)
        : refusal(session.library);
  }
  session.report.data()["type"] = upgrade_type_word(type);
  session.report.data()["partitions"] = package.view.partitions.size();
  session.report.say("The package carries " + upgrade_type_word(type) + " (type " +
                     std::to_string(type) + ").");
  return kExitDone;
}

}  // namespace zozale::tool
