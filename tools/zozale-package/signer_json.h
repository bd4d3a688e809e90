// SPDX-License-Identifier: Apache-2.0
//
// A package's signer as both tools tell it to programs.
#ifndef ZOZALE_PACKAGE_SIGNER_JSON_H
#define ZOZALE_PACKAGE_SIGNER_JSON_H

#include <nlohmann/json.hpp>

#include "common/signature.h"

namespace zozale {

// "subject", "issuer", "serial", "valid_from", "valid_until", "trusted_by", "signed_at" and
// "checked_at"; the last two may be null.
nlohmann::ordered_json signer_json(const Signer& signer);

}  // namespace zozale

#endif
