// SPDX-License-Identifier: Apache-2.0
//
// What the revocation lists beside trusted certificates take out of trust.
#ifndef ZOZALE_TOOLS_COMMON_REVOCATION_H
#define ZOZALE_TOOLS_COMMON_REVOCATION_H

#include "common/certificate.h"

namespace zozale {

// Looks every certificate of the chain up in every list of its issuer, whatever the lists' dates:
// an issuer without a list has revoked nothing. Throws Refused for a certificate that a list names,
// UnfitTrust for a list of one of the issuers that cannot be used.
void require_not_revoked(STACK_OF(X509) * chain, const CertificateFile& trust);

}  // namespace zozale

#endif
