// SPDX-License-Identifier: Apache-2.0
//
// Whether a certificate leads to one that is trusted.
#ifndef ZOZALE_TOOLS_COMMON_TRUST_H
#define ZOZALE_TOOLS_COMMON_TRUST_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "common/certificate.h"
#include "common/check_time.h"

namespace zozale {

struct TimeToCheck {
  CheckTime::Kind kind = CheckTime::Kind::kClock;
  std::optional<time_t> time;  // nothing: certificates may have expired
};

// Every certificate of `trust` vouches for itself and for what it issued; `carried` may stand
// between. No key and no digest on the way may be weaker than 112 bits, no authority be for another
// purpose, no certificate be revoked. Returns the subject of the certificate that vouches. Throws
// Refused, or UnfitTrust when a revocation list cannot be used.
std::string require_trusted(X509* certificate, const std::vector<OpenSslPtr<X509>>& carried,
                            const CertificateFile& trust, const TimeToCheck& when);

}  // namespace zozale

#endif
