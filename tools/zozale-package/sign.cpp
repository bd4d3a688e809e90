// SPDX-License-Identifier: Apache-2.0
#include "sign.h"

#include <openssl/err.h>

#include "check.h"
#include "common/file.h"
#include "common/refused.h"
#include "common/text.h"
#include "signing_key.h"

namespace zozale {
namespace {

void require_fit(const SignPlan& plan, X509* certificate, EVP_PKEY* key) {
  if (X509_check_private_key(certificate, key) != 1) {
    ERR_clear_error();
    throw Error(kExitUsage, "the key " + in_quotes(plan.key) +
                                " is not the one of the certificate " + subject_of(certificate) +
                                " in " + in_quotes(plan.certificate));
  }
}

// A signature in the place of what it is made from would destroy it.
void require_other_file(const std::string& out, const SignPlan& plan) {
  for (const std::string* input :
       {&plan.package, &plan.key, &plan.certificate, &plan.chain, &plan.passphrase_file}) {
    if (!input->empty() && InputFile(*input).is_same_file(out)) {
      throw Error(kExitUsage, "the signature " + in_quotes(out) + " would replace the file " +
                                  in_quotes(*input) + " that it is made from; choose another name");
    }
  }
}

void require_done(bool done) {
  require_openssl(done, "sign");
}

// Signs a digest that is known already: the package need not be read for a second time.
void add_signer(CMS_ContentInfo* message, X509* certificate, EVP_PKEY* key, const Digest& digest) {
  CMS_SignerInfo* signer = CMS_add1_signer(message, certificate, key, EVP_sha512(),
                                           CMS_PARTIAL | CMS_BINARY | CMS_NOSMIMECAP);
  require_done(signer != nullptr);
  require_done(CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_contentType, V_ASN1_OBJECT,
                                           OBJ_nid2obj(NID_pkcs7_data), -1) == 1);
  require_done(CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING,
                                           digest.data(), static_cast<int>(digest.size())) == 1);
  // Adds the signing time.
  require_done(CMS_SignerInfo_sign(signer) == 1);
}

// One that is there already, such as the signer's own in a chain, is not added again.
void add_certificates(CMS_ContentInfo* message, const CertificateFile& file) {
  for (const OpenSslPtr<X509>& certificate : file.certificates) {
    ERR_clear_error();
    require_done(CMS_add1_cert(message, certificate.get()) == 1 ||
                 ERR_GET_REASON(ERR_peek_last_error()) == CMS_R_CERTIFICATE_ALREADY_PRESENT);
  }
  ERR_clear_error();
}

std::string to_der(CMS_ContentInfo* message) {
  unsigned char* bytes = nullptr;
  const int len = i2d_CMS_ContentInfo(message, &bytes);
  const OpenSslPtr<unsigned char> owner(bytes);
  require_done(len > 0);
  return {reinterpret_cast<char*>(bytes), static_cast<size_t>(len)};
}

std::string make_signature(const CertificateFile& certificates, const CertificateFile& chain,
                           EVP_PKEY* key, const Digest& digest) {
  ERR_clear_error();
  const OpenSslPtr<CMS_ContentInfo> message(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_DETACHED | CMS_BINARY));
  require_done(message != nullptr);
  add_signer(message.get(), certificates.certificates.front().get(), key, digest);
  add_certificates(message.get(), certificates);
  add_certificates(message.get(), chain);
  return to_der(message.get());
}

void require_readable(const std::string& signature, const SignPlan& plan) {
  if (signature.size() > kMaxSignatureSize) {
    const bool chain = !plan.chain.empty();
    throw Refused({"no device would read the signature: it is too large",
                   "at most " + human_size(kMaxSignatureSize), human_size(signature.size()),
                   "leave those certificates out of " +
                       std::string(chain ? "--chain " : "--cert ") +
                       in_quotes(chain ? plan.chain : plan.certificate) +
                       " that do not stand between the signer and the trusted one"});
  }
}

void write_signature(const std::string& path, const std::string& signature) {
  OutputFile file(path, OutputFile::Existing::kReplace);
  file.append(signature.data(), signature.size());
  file.commit();
}

}  // namespace

SignResult sign_package(const SignPlan& plan) {
  SignResult result;
  result.out = plan.out.empty() ? signature_path(plan.package) : plan.out;
  require_other_file(result.out, plan);
  const InputFile package(plan.package);
  const CertificateFile certificates = read_certificates(plan.certificate);
  const CertificateFile chain =
      plan.chain.empty() ? CertificateFile{} : read_certificates(plan.chain);
  const OpenSslPtr<EVP_PKEY> key =
      read_signing_key(plan.key, plan.passphrase_file, result.findings);
  require_fit(plan, certificates.certificates.front().get(), key.get());
  append(result.findings, check_package(package, nullptr));
  if (has_errors(result.findings)) {
    return result;
  }
  const Digest digest = hash_range(package, 0, package.size()).digest();
  const std::string signature = make_signature(certificates, chain, key.get(), digest);
  require_readable(signature, plan);
  result.signer = check_signature(signature, digest, certificates, CheckTime{});
  write_signature(result.out, signature);
  return result;
}

}  // namespace zozale
