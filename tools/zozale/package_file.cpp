// SPDX-License-Identifier: Apache-2.0
#include "zozale/package_file.h"

#include <unistd.h>

#include "common/certificate.h"
#include "common/text.h"
#include "zozale-package/check.h"
#include "zozale/content.h"
#include "zozale/failure.h"
#include "zozale/terms.h"

namespace zozale::tool {
namespace {

InputFile open_file() {
  if (access(UPGRADE_PACKAGE_PATH, F_OK) != 0) {
    throw Failure(kExitBadPackage, {"there is no upgrade package", UPGRADE_PACKAGE_PATH,
                                    "no such file", "put the package there"});
  }
  return InputFile(UPGRADE_PACKAGE_PATH);
}

CertificateFile require_trusted_certificates(const std::string& path) {
  try {
    return read_certificates(path);
  } catch (const Error& error) {
    throw Failure(kExitDeviceUnfit,
                  {error.what(), "trusted certificates in PEM in " + printable(path), "none to use",
                   "put the certificates that packages are signed under there"});
  }
}

Authentic require_authentic(const InputFile& file, const PackageStart& start,
                            const Demands& demands) {
  const CertificateFile trust = require_trusted_certificates(demands.trust);
  try {
    return require_signature(file, start, demands.signature_file(file.path()), trust, demands.time);
  } catch (const UnfitTrust& unfit) {
    throw Failure(kExitDeviceUnfit,
                  {unfit.what(), "revocation lists made by the authorities in the file",
                   "one that cannot be relied on",
                   "put the list there that the authority has made, with its certificate"});
  }
}

std::string in_one_line(const Finding& finding) {
  return finding.field + (finding.value.empty() ? "" : " " + finding.value) + ": " + finding.text;
}

// Extra files do not matter to a device: it neither reads nor checks them.
bool concerns_device(const Finding& finding) {
  return finding.field.compare(0, 6, "extra[") != 0;
}

std::vector<std::string> lines_of(const Findings& findings, Severity severity) {
  std::vector<std::string> lines;
  for (const Finding& finding : findings) {
    if (finding.severity == severity && concerns_device(finding)) {
      lines.push_back(in_one_line(finding));
    }
  }
  return lines;
}

// The warnings of a package without errors.
std::vector<std::string> require_sound(const Findings& findings) {
  std::vector<std::string> errors = lines_of(findings, Severity::kError);
  if (errors.empty()) {
    return lines_of(findings, Severity::kWarning);
  }
  const std::string first = errors.front();
  errors.erase(errors.begin());
  throw Failure(
      kExitBadPackage,
      {"the package is bad: " + first, "a package in which 'zozale-package check' finds no error",
       counted(errors.size() + 1, "error"),
       "fetch the package again, or make it again with zozale-package", errors});
}

// A digest that the package states, and what it is of.
struct StatedDigest {
  std::string what;
  uint64_t offset;
  uint64_t len;
  Digest digest;
};

std::vector<StatedDigest> stated_digests(const PackageView& view) {
  std::vector<StatedDigest> all = {
      {"its content", kHeadSize, view.file_size - kHeadSize, view.content_hash()}};
  for (const PackageEntry& entry : view.partitions) {
    all.push_back({"the image of " + printable(entry.name), static_cast<uint64_t>(entry.offset),
                   static_cast<uint64_t>(entry.len), entry.hash});
  }
  return all;
}

Digest digest_of(const PackageFile& package, const StatedDigest& stated) {
  return hash_range(package.file, stated.offset, stated.len).digest();
}

Failure damage(const StatedDigest& stated, const Digest& found) {
  return {kExitBadPackage,
          {"the package is damaged: " + stated.what + " does not match its digest",
           hex(stated.digest), hex(found), "fetch the package again"}};
}

}  // namespace

PackageFile open_package(const Demands& demands) {
  InputFile file = open_file();
  const PackageStart start(file);
  std::optional<Authentic> authentic;
  if (demands.signature_asked()) {
    authentic = require_authentic(file, start, demands);
  }
  PackageReading reading = read_package(start);
  if (!reading.package) {
    require_sound(reading.findings);
  }
  PackageView view = std::move(*reading.package);
  require_plat(view, demands);
  require_version(view, demands);
  std::vector<std::string> warnings = require_sound(check_structure(view, nullptr));
  return {std::move(file), std::move(view), std::move(warnings), std::move(authentic)};
}

void check_digests(const PackageFile& package) {
  for (const StatedDigest& stated : stated_digests(package.view)) {
    const Digest found = digest_of(package, stated);
    if (found != stated.digest) {
      throw damage(stated, found);
    }
  }
}

void check_zero_byte_digests(const PackageFile& package) {
  for (const StatedDigest& stated : stated_digests(package.view)) {
    if (!has_zero_byte(stated.digest)) {
      continue;
    }
    const Digest found = digest_of(package, stated);
    if (found != stated.digest && equal_for_library(found, stated.digest)) {
      throw damage(stated, found);
    }
  }
}

void check_against_table(const PackageFile& package, const PartitionTable& table) {
  require_sound(check_structure(package.view, &table));
}

Json to_json(const PackageView& package) {
  return {{"path", UPGRADE_PACKAGE_PATH},
          {"bytes", package.file_size},
          {"type", upgrade_type_word(package.head.upgrade_type)},
          {"version", package.head.upgrade_package_version},
          {"plat", package.head.plat},
          {"version_from", field_text(package.head.version_src)},
          {"version_to", field_text(package.head.version_dst)}};
}

}  // namespace zozale::tool
