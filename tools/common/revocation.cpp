// SPDX-License-Identifier: Apache-2.0
#include "common/revocation.h"

#include <openssl/err.h>

#include "common/refused.h"
#include "common/text.h"

namespace zozale {
namespace {

bool is_of(const X509_CRL* list, const X509_NAME* issuer) {
  return X509_NAME_cmp(X509_CRL_get_issuer(list), issuer) == 0;
}

std::vector<X509*> certificates_of(STACK_OF(X509) * chain, const CertificateFile& trust) {
  std::vector<X509*> all;
  all.reserve(static_cast<size_t>(sk_X509_num(chain)) + trust.certificates.size());
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    all.push_back(sk_X509_value(chain, i));
  }
  for (const OpenSslPtr<X509>& certificate : trust.certificates) {
    all.push_back(certificate.get());
  }
  return all;
}

// Why nobody vouches for the list; empty when one of the certificates does. An issuer that has
// changed its key has several.
std::string doubt_of_origin(X509_CRL* list, const std::vector<X509*>& certificates) {
  std::string doubt = "there is no certificate of its issuer";
  for (X509* certificate : certificates) {
    if (!is_of(list, X509_get_subject_name(certificate))) {
      continue;
    }
    if (X509_CRL_verify(list, X509_get0_pubkey(certificate)) != 1) {
      doubt = "its signature is not its issuer's";
    } else if ((X509_get_key_usage(certificate) & KU_CRL_SIGN) == 0) {
      doubt = "its issuer's certificate lacks the key usage CRL Sign";
    } else {
      doubt.clear();
      break;
    }
  }
  ERR_clear_error();
  return doubt;
}

// Of the extensions that change what a list means. One that covers a part only of the issuer's
// certificates still revokes what it names.
bool is_understood(X509_EXTENSION* extension) {
  const int kind = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
  return X509_EXTENSION_get_critical(extension) == 0 || kind == NID_issuing_distribution_point ||
         kind == NID_delta_crl || kind == NID_authority_key_identifier;
}

// A list of what others have issued names the issuer beside each certificate.
bool is_of_others(X509_CRL* list) {
  const OpenSslPtr<ISSUING_DIST_POINT> point(static_cast<ISSUING_DIST_POINT*>(
      X509_CRL_get_ext_d2i(list, NID_issuing_distribution_point, nullptr, nullptr)));
  return point != nullptr && point->indirectCRL != 0;
}

std::string doubt_of_meaning(X509_CRL* list) {
  for (int i = 0; i < X509_CRL_get_ext_count(list); ++i) {
    if (!is_understood(X509_CRL_get_ext(list, i))) {
      return "it has a critical extension that is not understood";
    }
  }
  return is_of_others(list) ? "it is an indirect list" : "";
}

void require_usable(X509_CRL* list, const std::string& doubt, const CertificateFile& trust) {
  if (!doubt.empty()) {
    throw UnfitTrust("cannot use the revocation list of " + name_text(X509_CRL_get_issuer(list)) +
                     " in " + in_quotes(trust.path) + ": " + doubt);
  }
}

void require_unnamed(X509_CRL* list, X509* certificate, const CertificateFile& trust) {
  X509_REVOKED* entry = nullptr;
  if (X509_CRL_get0_by_cert(list, &entry, certificate) == 1) {
    throw Refused({"the certificate of " + subject_of(certificate) + " is revoked",
                   "one that no list in " + in_quotes(trust.path) + " names",
                   "serial number " + serial_of(certificate), "sign the package with another key"});
  }
}

}  // namespace

void require_not_revoked(STACK_OF(X509) * chain, const CertificateFile& trust) {
  const std::vector<X509*> certificates = certificates_of(chain, trust);
  for (const OpenSslPtr<X509_CRL>& list : trust.revocation_lists) {
    require_usable(list.get(), doubt_of_meaning(list.get()), trust);
    for (int i = 0; i < sk_X509_num(chain); ++i) {
      X509* certificate = sk_X509_value(chain, i);
      if (is_of(list.get(), X509_get_issuer_name(certificate))) {
        require_usable(list.get(), doubt_of_origin(list.get(), certificates), trust);
        require_unnamed(list.get(), certificate, trust);
      }
    }
  }
}

}  // namespace zozale
