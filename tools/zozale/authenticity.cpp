// SPDX-License-Identifier: Apache-2.0
#include "zozale/authenticity.h"

#include <sys/stat.h>

#include "common/text.h"
#include "upi_public.h"
#include "zozale-package/signer_json.h"
#include "zozale/content.h"

namespace zozale::tool {
namespace {

const char* const kFolder = "/cache/ovu_fota_ab";
const char* const kAnotherFile = "another file, or one that was written to";
const char* const kFindWriter =
    "find out what writes to " UPGRADE_PACKAGE_PATH " and end it, then run the command again";

void warn_if_others_write(Session& session, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    session.report.warn("others than its owner can write to " + printable(path) +
                        ": they can exchange what is checked; take that right from them");
  }
}

void tell_signer(Session& session, const Signer& signer) {
  session.report.data()["signature"] = signer_json(signer);
  session.report.say("Signed by " + signer.subject + ", trusted by " + signer.anchor + ".");
}

Failure exchange_failure(const std::string& found) {
  return {kExitExchanged,
          {"the package was exchanged after it was checked", "the file that was checked, unchanged",
           found, std::string("nothing was erased; ") + kFindWriter}};
}

// What is not as it was checked; empty when all is.
std::string difference(const PackageFile& package, Meter& meter, Display& display) {
  if (!package.file.is_unchanged()) {
    return kAnotherFile;
  }
  if (!package.authentic) {
    return "";
  }
  meter.forget_bad_blocks();
  meter.begin_step(Work::kRead, "checking the package again", "", package.file.size());
  Sha512 hash;
  for_each_chunk(package.file, 0, package.file.size(), [&](const uint8_t* bytes, size_t count) {
    hash.update(bytes, count);
    meter.advance(count);
    display.show(meter.reading());
  });
  meter.end_step();
  if (hash.digest() != package.authentic->digest) {
    return "other content, with the SHA-512 " + hex(hash.digest());
  }
  return package.file.is_unchanged() ? "" : kAnotherFile;
}

std::string wrong_partitions(const PackageFile& package, const Outcome& outcome) {
  const std::vector<PackageEntry>& entries = package.view.partitions;
  const std::vector<std::string>& names = outcome.partitions;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i >= entries.size() || names[i] != entries[i].name) {
      return "the partition " + printable(names[i]) + " written out of its turn";
    }
  }
  const bool too_few = outcome.succeeded && names.size() < entries.size();
  return too_few
             ? counted(names.size(), "partition") + " written of " + std::to_string(entries.size())
             : "";
}

// Compares whole digests, where the library stops at a zero byte. Bytes behind the image of a
// partition that the library passed over were there before.
std::string wrong_content(const PlanItem& item, const Digest& wanted, bool written) {
  const Flash flash(MtdTable::read().require(item.mtd));
  if (image_digest(flash, item.bytes) != wanted) {
    return "another image in " + printable(item.mtd) + ", or one that cannot be read";
  }
  return written && !is_erased_behind(flash, item.bytes)
             ? "more than the image in " + printable(item.mtd)
             : "";
}

std::string wrong_contents(const PackageFile& package, const Outcome& outcome, Meter& meter,
                           Display& display) {
  for (size_t i = 0; i < outcome.plan.items.size(); ++i) {
    const PlanItem& item = outcome.plan.items[i];
    meter.begin_step(Work::kRead, "checking the origin of what is in", item.mtd, item.bytes);
    display.show(meter.reading());
    std::string found = wrong_content(item, package.view.partitions[i].hash, outcome.written.at(i));
    if (!found.empty()) {
      return found;
    }
    meter.end_step();
  }
  return "";
}

// What cannot be looked at counts as wrong.
std::string wrong_outcome(const PackageFile& package, const Outcome& outcome, Meter& meter,
                          Display& display) {
  try {
    std::string found = wrong_partitions(package, outcome);
    found = found.empty() ? difference(package, meter, display) : found;
    return found.empty() && outcome.succeeded ? wrong_contents(package, outcome, meter, display)
                                              : found;
  } catch (const Error& error) {
    return error.what();
  }
}

std::string take_target_back(Library& library, System target) {
  const int code = code_of(target);
  if (library.run([code] {
        return vemk_dual_set_system_status(code, DUALSYSTEM_STATUS_UNBOOTABLE);
      }) != 0) {
    return in_words(target) + " COULD NOT be marked unbootable: do not switch to it; ";
  }
  return in_words(target) + " was marked unbootable; ";
}

}  // namespace

PackageFile take_package(Session& session) {
  const Demands& demands = session.options.demands;
  if (demands.signature_asked()) {
    session.report.say("Checking the signature of the package ...");
  }
  PackageFile package = open_package(demands);
  session.report.data()["package"] = to_json(package.view);
  if (package.authentic) {
    tell_signer(session, package.authentic->signer);
    warn_if_others_write(session, demands.trust);
    warn_if_others_write(session, UPGRADE_PACKAGE_PATH);
    warn_if_others_write(session, kFolder);
  }
  for (const std::string& warning : package.warnings) {
    session.report.warn(warning);
  }
  return package;
}

void require_unchanged(const PackageFile& package) {
  if (!package.file.is_unchanged()) {
    throw exchange_failure(kAnotherFile);
  }
}

void plan_same_package(Meter& meter, const PackageFile& package, int passes) {
  for (int pass = 0; package.authentic && pass < passes; ++pass) {
    meter.plan(Work::kRead, package.file.size());
  }
}

void require_same_package(const PackageFile& package, Meter& meter, Display& display) {
  const std::string found = difference(package, meter, display);
  if (!found.empty()) {
    throw exchange_failure(found);
  }
}

void PartitionWitness::on_line(const LogLine& line) {
  if (const auto name = between(line.message, "Update parition:", "")) {
    names_.emplace_back(*name);
  }
  next_.on_line(line);
}

void plan_authentic_outcome(Meter& meter, const PackageFile& package) {
  if (package.authentic) {
    plan_same_package(meter, package, 1);
    for (const PackageEntry& entry : package.view.partitions) {
      meter.plan(Work::kRead, static_cast<uint64_t>(entry.len));
    }
  }
}

void require_authentic_outcome(Session& session, const PackageFile& package, const Outcome& outcome,
                               Meter& meter, Display& display) {
  if (!package.authentic) {
    return;
  }
  const std::string found = wrong_outcome(package, outcome, meter, display);
  if (!found.empty()) {
    display.end();
    const System target = outcome.plan.target;
    throw Failure(kExitExchanged,
                  {"the package was exchanged while it was installed",
                   "the package that was checked, and its images, in " + in_words(target), found,
                   take_target_back(session.library, target) + kFindWriter});
  }
}

}  // namespace zozale::tool
