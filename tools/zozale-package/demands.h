// SPDX-License-Identifier: Apache-2.0
//
// What a person may ask of a package beside that it is sound: who made it, how new it is, what it
// is for.
#ifndef ZOZALE_PACKAGE_DEMANDS_H
#define ZOZALE_PACKAGE_DEMANDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "common/certificate.h"
#include "common/check_time.h"
#include "common/file.h"
#include "common/finding.h"
#include "common/sha512.h"
#include "common/signature.h"
#include "package_view.h"

namespace zozale {

struct Demands {
  std::string trust;      // file of trusted certificates; empty: no signature is asked for
  std::string signature;  // file; empty: beside the package
  CheckTime time;         // when the signer's certificate has to be valid
  std::optional<int32_t> min_version;
  std::optional<int32_t> plat;

  bool signature_asked() const { return !trust.empty(); }
  // The signature's file, for a package at `package`.
  std::string signature_file(const std::string& package) const;
};

// A package whose signature was checked.
struct Authentic {
  Digest digest;  // of every byte of it
  Signer signer;
};

// Reads the package behind its start and checks the signature in `signature`, a file, against the
// certificates. Throws Refused, or Error when a file cannot be read.
Authentic require_signature(const ByteSource& package, const PackageStart& start,
                            const std::string& signature, const CertificateFile& trust,
                            const CheckTime& when);

// Compares the head's upgrade_package_version, and its plat, with what is asked for, if anything
// is. Throws Refused.
void require_version(const PackageView& package, const Demands& demands);
void require_plat(const PackageView& package, const Demands& demands);

struct DemandsReading {
  std::optional<Signer> signer;  // when a signature was asked for and is good
  Findings findings;
};

// All of it, each refusal as an error about "signature", "head.upgrade_package_version" or
// "head.plat". A head that cannot be read is passed over. Throws Error when a file cannot be read.
DemandsReading check_demands(const InputFile& package, const Demands& demands);

}  // namespace zozale

#endif
