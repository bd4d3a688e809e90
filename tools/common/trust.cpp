// SPDX-License-Identifier: Apache-2.0
#include "common/trust.h"

#include "common/refused.h"
#include "common/revocation.h"
#include "common/text.h"

namespace zozale {
namespace {

// 112 bits: RSA from 2048, EC from 224, digests from SHA-224.
constexpr int kSecurityLevel = 2;
constexpr int kLongestChain = 8;

const char* const kAction = "check a certificate";

OpenSslPtr<X509_STORE> store_of(const CertificateFile& trust) {
  OpenSslPtr<X509_STORE> store(X509_STORE_new());
  require_openssl(store != nullptr, kAction);
  for (const OpenSslPtr<X509>& certificate : trust.certificates) {
    require_openssl(X509_STORE_add_cert(store.get(), certificate.get()) == 1, kAction);
  }
  return store;
}

void set_rules(X509_STORE_CTX* context, const std::optional<time_t>& time) {
  X509_VERIFY_PARAM* rules = X509_STORE_CTX_get0_param(context);
  require_openssl(X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN) == 1, kAction);
  X509_VERIFY_PARAM_set_auth_level(rules, kSecurityLevel);
  X509_VERIFY_PARAM_set_depth(rules, kLongestChain);
  if (time) {
    X509_VERIFY_PARAM_set_time(rules, *time);
  } else {
    require_openssl(X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_NO_CHECK_TIME) == 1, kAction);
  }
}

std::string time_source(const TimeToCheck& when) {
  switch (when.kind) {
    case CheckTime::Kind::kClock:
      return "the clock";
    case CheckTime::Kind::kGiven:
      return "--time";
    default:
      return "the signing time";
  }
}

Fault time_fault(const X509* culprit, const TimeToCheck& when, bool expired) {
  const std::string now = utc_text(when.time.value_or(0)) + ", by " + time_source(when);
  if (expired) {
    return {"the certificate of " + subject_of(culprit) + " has expired", "valid at " + now,
            "valid until " + utc_text(X509_get0_notAfter(culprit)),
            "sign the package with a certificate that is valid; see --time if the clock is wrong"};
  }
  return {"the certificate of " + subject_of(culprit) + " is not valid yet", "valid at " + now,
          "valid from " + utc_text(X509_get0_notBefore(culprit)),
          "set the clock; see --time if it cannot be set"};
}

Fault stranger_fault(const X509* signer, const X509* culprit, const CertificateFile& trust,
                     const std::string& reason) {
  return {"the package is signed by another: " + subject_of(signer) + " is not trusted",
          "a signer whose certificate leads to one in " + in_quotes(trust.path),
          subject_of(culprit) + ", issued by " + issuer_of(culprit) + ": " + reason,
          "fetch the package from who is trusted; or, if this one is to be trusted, add its "
          "issuer's certificate to the file"};
}

Fault weakness_fault(const X509* culprit, const std::string& reason) {
  return {"the certificate of " + subject_of(culprit) + " is too weak",
          "RSA from 2048 bits or EC from 224, signed with SHA-256 or better", reason,
          "make the certificate anew and sign the package with it"};
}

Fault fault_of(X509_STORE_CTX* context, const X509* signer, const CertificateFile& trust,
               const TimeToCheck& when) {
  const int error = X509_STORE_CTX_get_error(context);
  const X509* culprit = X509_STORE_CTX_get_current_cert(context);
  culprit = culprit == nullptr ? signer : culprit;
  const std::string reason = X509_verify_cert_error_string(error);
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return time_fault(culprit, when, error == X509_V_ERR_CERT_HAS_EXPIRED);
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return stranger_fault(signer, culprit, trust, reason);
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return weakness_fault(culprit, reason);
    default:
      return {"the certificate of " + subject_of(culprit) + " does not hold",
              "a chain of certificates in order", reason,
              "make the certificates anew, then sign the package with them"};
  }
}

// The signer's own certificate has to say more.
void require_fit_authorities(STACK_OF(X509) * chain) {
  for (int i = 1; i < sk_X509_num(chain); ++i) {
    const X509* authority = sk_X509_value(chain, i);
    if (!may_issue_signers(authority)) {
      throw Refused({"the authority " + subject_of(authority) +
                         " may not issue certificates for signing packages",
                     "the extended key usage Code Signing, or none at all", purposes_of(authority),
                     "sign the package with a certificate of an authority that is made for it"});
    }
  }
}

}  // namespace

std::string require_trusted(X509* certificate, const std::vector<OpenSslPtr<X509>>& carried,
                            const CertificateFile& trust, const TimeToCheck& when) {
  const OpenSslPtr<X509_STORE> store = store_of(trust);
  const CertificateStack between(carried);
  const OpenSslPtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
  require_openssl(context != nullptr, kAction);
  require_openssl(X509_STORE_CTX_init(context.get(), store.get(), certificate, between.get()) == 1,
                  kAction);
  set_rules(context.get(), when.time);
  if (X509_verify_cert(context.get()) != 1) {
    throw Refused(fault_of(context.get(), certificate, trust, when));
  }
  STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(context.get());
  require_fit_authorities(chain);
  require_not_revoked(chain, trust);
  return subject_of(sk_X509_value(chain, sk_X509_num(chain) - 1));
}

}  // namespace zozale
