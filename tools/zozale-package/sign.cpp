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
  if (!done) {
    throw Error(kExitFailed, "cannot sign: " + openssl_reason());
  }
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

void add_certificates(CMS_ContentInfo* message, const CertificateFile& file, size_t first) {
  for (size_t i = first; i < file.certificates.size(); ++i) {
    require_done(CMS_add1_cert(message, file.certificates[i].get()) == 1);
  }
}

std::string to_der(CMS_ContentInfo* message) {
  unsigned char* bytes = nullptr;
  const int len = i2d_CMS_ContentInfo(message, &bytes);
  const OpenSslPtr<unsigned char> owner(bytes);
  require_done(len > 0);
  return {reinterpret_cast<char*>(bytes), static_cast<size_t>(len)};
}

std::string make_signature(const SignPlan& plan, const CertificateFile& certificates, EVP_PKEY* key,
                           const Digest& digest) {
  ERR_clear_error();
  const OpenSslPtr<CMS_ContentInfo> message(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_DETACHED | CMS_BINARY));
  require_done(message != nullptr);
  add_signer(message.get(), certificates.certificates.front().get(), key, digest);
  add_certificates(message.get(), certificates, 1);
  if (!plan.chain.empty()) {
    add_certificates(message.get(), read_certificates(plan.chain), 0);
  }
  return to_der(message.get());
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
  const OpenSslPtr<EVP_PKEY> key =
      read_signing_key(plan.key, plan.passphrase_file, result.findings);
  require_fit(plan, certificates.certificates.front().get(), key.get());
  append(result.findings, check_package(package, nullptr));
  if (has_errors(result.findings)) {
    return result;
  }
  const Digest digest = hash_range(package, 0, package.size()).digest();
  const std::string signature = make_signature(plan, certificates, key.get(), digest);
  result.signer = check_signature(signature, digest, certificates, CheckTime{});
  write_signature(result.out, signature);
  return result;
}

}  // namespace zozale
