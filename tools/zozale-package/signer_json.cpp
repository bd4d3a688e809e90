// SPDX-License-Identifier: Apache-2.0
#include "signer_json.h"

namespace zozale {
namespace {

using Json = nlohmann::ordered_json;

Json text_or_null(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json();
}

}  // namespace

Json signer_json(const Signer& signer) {
  return {{"subject", signer.subject},
          {"issuer", signer.issuer},
          {"serial", signer.serial},
          {"valid_from", signer.valid_from},
          {"valid_until", signer.valid_until},
          {"trusted_by", signer.anchor},
          {"signed_at", text_or_null(signer.signed_at)},
          {"checked_at", text_or_null(signer.checked_at)}};
}

}  // namespace zozale
