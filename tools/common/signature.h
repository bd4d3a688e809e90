// SPDX-License-Identifier: Apache-2.0
//
// The signature of a package: a detached CMS signature in DER in a file of its own, over the
// SHA-512 of the whole package.
#ifndef ZOZALE_TOOLS_COMMON_SIGNATURE_H
#define ZOZALE_TOOLS_COMMON_SIGNATURE_H

#include <optional>
#include <string>

#include "common/certificate.h"
#include "common/check_time.h"
#include "common/sha512.h"

namespace zozale {

// Room for a signer or two with long chains.
constexpr size_t kMaxSignatureSize = 64UL * 1024;

// Where a package's signature lies unless something else is said: beside it, with ".p7s" behind
// its name.
std::string signature_path(const std::string& package);

struct Signer {
  std::string subject;
  std::string issuer;
  std::string serial;  // hexadecimal
  std::string valid_from;
  std::string valid_until;
  std::string anchor;                     // subject of the trusted certificate that vouches for it
  std::optional<std::string> signed_at;   // as the signer says
  std::optional<std::string> checked_at;  // when the certificates had to be valid
};

// The bytes of the file. Throws Refused when there is none or it cannot be a signature by
// its size, Error when it cannot be read.
std::string read_signature(const std::string& path);

// Whether the signature is one over a package with this digest, made by a signer whose certificate
// is for signing packages and leads to one of the trusted ones, all of them valid at the time. Of
// several signers one is enough. Revocation lists among the trusted certificates count whatever
// their dates. Throws Refused, or UnfitTrust when one of these lists cannot be used.
Signer check_signature(const std::string& signature, const Digest& package,
                       const CertificateFile& trust, const CheckTime& when);

}  // namespace zozale

#endif
