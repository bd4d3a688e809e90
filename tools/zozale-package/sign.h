// SPDX-License-Identifier: Apache-2.0
//
// Signing a package.
#ifndef ZOZALE_PACKAGE_SIGN_H
#define ZOZALE_PACKAGE_SIGN_H

#include <optional>
#include <string>

#include "common/finding.h"
#include "common/signature.h"

namespace zozale {

struct SignPlan {
  std::string package;
  std::string key;              // PEM
  std::string certificate;      // PEM: the signer's, then any that stand between it and the trusted
  std::string chain;            // PEM: more of these; may be empty
  std::string passphrase_file;  // its first line opens the key; empty: ask on the terminal
  std::string out;              // empty: beside the package
};

struct SignResult {
  // Empty when the package is bad; an error then says why, and nothing was signed.
  std::optional<Signer> signer;
  std::string out;
  Findings findings;
};

// Checks the package, signs it, checks the signature as a device does that trusts the signer's
// certificate, and puts it at its place, whole or not at all. Throws Error when a file cannot be
// read or written or the key cannot be used, Refused when no device would take the signature.
SignResult sign_package(const SignPlan& plan);

}  // namespace zozale

#endif
