// SPDX-License-Identifier: Apache-2.0
#include "demands.h"

#include "common/refused.h"

namespace zozale {
namespace {

template <typename Check>
void add_refusal(const std::string& field, const Check& check, Findings& findings) {
  try {
    check();
  } catch (const Refused& refusal) {
    const Fault& fault = refusal.fault();
    add_error(findings, field, fault.found,
              fault.what + "; expected: " + fault.expected + "; " + fault.next);
    for (const std::string& also : refusal.also()) {
      add_error(findings, field, "", also);
    }
  }
}

}  // namespace

std::string Demands::signature_file(const std::string& package) const {
  return signature.empty() ? signature_path(package) : signature;
}

Authentic require_signature(const ByteSource& package, const PackageStart& start,
                            const std::string& signature, const CertificateFile& trust,
                            const CheckTime& when) {
  const std::string bytes = read_signature(signature);
  const Digest digest = start.hash_with_rest_of(package).digest();
  return {digest, check_signature(bytes, digest, trust, when)};
}

void require_version(const PackageView& package, const Demands& demands) {
  const int32_t version = package.head.upgrade_package_version;
  if (version < demands.min_version.value_or(version)) {
    const std::string found = std::to_string(version);
    const std::string wanted = std::to_string(*demands.min_version);
    throw Refused(
        {"the package is too old: its version is " + found + ", at least " + wanted + " is wanted",
         "a package version of " + wanted + " or more", found,
         "fetch a newer package, or give a lower --min-version"});
  }
}

void require_plat(const PackageView& package, const Demands& demands) {
  const int32_t plat = package.head.plat;
  if (plat != demands.plat.value_or(plat)) {
    const std::string found = std::to_string(plat);
    const std::string wanted = std::to_string(*demands.plat);
    throw Refused({"the package is for another device: its platform is " + found + ", " + wanted +
                       " is wanted",
                   "platform " + wanted, found, "fetch the package that was made for this device"});
  }
}

DemandsReading check_demands(const InputFile& package, const Demands& demands) {
  DemandsReading reading;
  const PackageStart start(package);
  if (demands.signature_asked()) {
    const CertificateFile trust = read_certificates(demands.trust);
    add_refusal(
        "signature",
        [&] {
          reading.signer = require_signature(package, start, demands.signature_file(package.path()),
                                             trust, demands.time)
                               .signer;
        },
        reading.findings);
  }
  const PackageReading head = read_package(start);
  if (head.package) {
    add_refusal(
        "head.upgrade_package_version", [&] { require_version(*head.package, demands); },
        reading.findings);
    add_refusal(
        "head.plat", [&] { require_plat(*head.package, demands); }, reading.findings);
  }
  return reading;
}

}  // namespace zozale
