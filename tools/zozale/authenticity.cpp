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

Digest digest_again(const PackageFile& package, Meter& meter, Display& display) {
  meter.forget_bad_blocks();
  meter.begin_step(Work::kRead, "checking the package again", "", package.file.size());
  Sha512 hash;
  for_each_chunk(package.file, 0, package.file.size(), [&](const uint8_t* bytes, size_t count) {
    hash.update(bytes, count);
    meter.advance(count);
    display.show(meter.reading());
  });
  meter.end_step();
  return hash.digest();
}

// What is not as it was checked; empty when all is. Throws Error when the file cannot be read; one
// that is cut meanwhile is another file.
std::string difference(const PackageFile& package, Meter& meter, Display& display) {
  if (!package.file.is_unchanged()) {
    return kAnotherFile;
  }
  if (!package.authentic) {
    return "";
  }
  try {
    const Digest digest = digest_again(package, meter, display);
    if (digest != package.authentic->digest) {
      return "other content, with the SHA-512 " + hex(digest);
    }
  } catch (const Error&) {
    if (package.file.is_unchanged()) {
      throw;
    }
  }
  return package.file.is_unchanged() ? "" : kAnotherFile;
}

// Why what an upgrade has done is not taken.
struct Objection {
  ExitCode code;
  Trouble trouble;
};

Objection exchanged(const std::string& found) {
  return {kExitExchanged,
          {"the package was exchanged while it was installed",
           "the package that was checked, and its images, in the system that was written", found,
           kFindWriter}};
}

Objection not_checkable(const std::string& found) {
  return {kExitFailed,
          {"what was installed cannot be checked", "the package and what was written readable",
           found, "check the flash and the kernel's log, then run 'zozale install' again"}};
}

Objection not_erased(const PlanItem& item) {
  return {
      kExitFailed,
      {printable(item.mtd) + " holds more than its image: a block behind it could not be erased",
       "erased blocks behind the image", "data behind it, and an erasing failure in the log",
       "mark the block that the log names as bad, then run 'zozale install' again"}};
}

// The library passes over a partition that holds its image, whatever lies behind.
Objection left_over(const PlanItem& item, const Flash& flash) {
  return {kExitFailed,
          {printable(item.mtd) + " holds more than its image, and did before this installation",
           "erased blocks behind the image", "data behind it that nobody has signed",
           "lift the partition's write protection and erase it, as 'flash_erase " + flash.node() +
               " 0 0' does, then run 'zozale install' again, which writes it anew"}};
}

std::string wrong_partitions(const PackageFile& package, const Outcome& outcome) {
  const std::vector<PackageEntry>& entries = package.view.partitions;
  const std::vector<std::string>& names = outcome.witness.names();
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

std::optional<Objection> object_to_more(const PlanItem& item, const Flash& flash,
                                        const Outcome& outcome, size_t index) {
  if (!outcome.written.at(index)) {
    return left_over(item, flash);
  }
  return outcome.witness.erase_failed(index)
             ? not_erased(item)
             : exchanged("more than the image in " + printable(item.mtd));
}

// Compares whole digests, where the library stops at a zero byte.
std::optional<Objection> object_to_content(const PlanItem& item, const Digest& wanted,
                                           const Outcome& outcome, size_t index) {
  const Flash flash(MtdTable::read().require(item.mtd));
  const std::optional<Digest> found = image_digest(flash, item.bytes);
  const std::optional<bool> erased = is_erased_behind(flash, item.bytes);
  if (!found || !erased) {
    return not_checkable(printable(item.mtd) + " cannot be read");
  }
  if (*found != wanted) {
    return exchanged("another image in " + printable(item.mtd));
  }
  return *erased ? std::nullopt : object_to_more(item, flash, outcome, index);
}

std::optional<Objection> object_to_contents(const PackageFile& package, const Outcome& outcome,
                                            Meter& meter, Display& display) {
  for (size_t i = 0; i < outcome.plan.items.size(); ++i) {
    const PlanItem& item = outcome.plan.items[i];
    meter.begin_step(Work::kRead, "checking the origin of what is in", item.mtd, item.bytes);
    display.show(meter.reading());
    if (auto objection = object_to_content(item, package.view.partitions[i].hash, outcome, i)) {
      return objection;
    }
    meter.end_step();
  }
  return std::nullopt;
}

std::optional<Objection> object(const PackageFile& package, const Outcome& outcome, Meter& meter,
                                Display& display) {
  std::string found = wrong_partitions(package, outcome);
  found = found.empty() ? difference(package, meter, display) : found;
  if (!found.empty()) {
    return exchanged(found);
  }
  return outcome.succeeded ? object_to_contents(package, outcome, meter, display) : std::nullopt;
}

// What cannot be looked at is not taken, for whatever reason.
std::optional<Objection> object_or_fail(const PackageFile& package, const Outcome& outcome,
                                        Meter& meter, Display& display) {
  try {
    return object(package, outcome, meter, display);
  } catch (const std::exception& error) {
    return not_checkable(error.what());
  }
}

// Neither the boot loader nor who follows the store is to take the target for installed.
std::string take_target_back(Library& library, System target) {
  const auto take_back = [code = code_of(target)] {
    upi_set_upgrade_status(UPGRADE_STATUS_UPDATE_FAIL);
    return vemk_dual_set_system_status(code, DUALSYSTEM_STATUS_UNBOOTABLE);
  };
  int result = -1;
  try {
    result = library.run(take_back);
  } catch (const std::exception&) {
    // Without room for following what the library says it can still be called.
    result = take_back();
  }
  return in_words(target) + (result == 0
                                 ? " was marked unbootable; "
                                 : " COULD NOT be marked unbootable: do not switch to it; ");
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

void require_same_package(Session& session, const PackageFile& package, Meter& meter,
                          Display& display) {
  const std::string found = difference(package, meter, display);
  if (!found.empty()) {
    session.library.run([] {
      upi_set_upgrade_status(UPGRADE_STATUS_VERIFY_FAIL);
      return 0;
    });
    throw exchange_failure(found);
  }
}

void PartitionWitness::on_line(const LogLine& line) {
  if (const auto name = between(line.message, "Update parition:", "")) {
    names_.emplace_back(*name);
    erase_failed_.push_back(false);
  }
  if (!names_.empty() && between(line.message, "Mtd, erasing failure at ", "")) {
    erase_failed_.back() = true;
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
  auto objection = object_or_fail(package, outcome, meter, display);
  if (objection) {
    objection->trouble.next.insert(0, take_target_back(session.library, outcome.plan.target));
    display.end();
    throw Failure(objection->code, objection->trouble);
  }
}

}  // namespace zozale::tool
