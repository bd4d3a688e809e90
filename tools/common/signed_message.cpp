// SPDX-License-Identifier: Apache-2.0
#include "common/signed_message.h"

#include <openssl/err.h>

#include "common/refused.h"
#include "common/text.h"

namespace zozale {
namespace {

const char* const kWanted = "a detached CMS signature in DER, as 'zozale-package sign' writes it";

[[noreturn]] void refuse(const std::string& what, const std::string& found,
                         const std::string& next = "fetch the package and its signature again") {
  ERR_clear_error();
  throw Refused({what, kWanted, found, next});
}

void require_no_pem(const std::string& bytes) {
  if (bytes.compare(0, 11, "-----BEGIN ") == 0) {
    refuse("the signature is written as PEM", "a text that begins with \"-----BEGIN \"",
           "convert it: openssl cms -cmsout -inform PEM -in FILE -outform DER -out FILE.p7s");
  }
}

OpenSslPtr<CMS_ContentInfo> parse(const std::string& bytes) {
  require_no_pem(bytes);
  const auto* begin = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* at = begin;
  OpenSslPtr<CMS_ContentInfo> message(
      d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(bytes.size())));
  if (!message) {
    refuse("the signature cannot be read", human_size(bytes.size()) + " of something else");
  }
  if (at != begin + bytes.size()) {
    refuse("bytes follow the signature in its file",
           human_size(static_cast<uint64_t>(begin + bytes.size() - at)) + " behind it");
  }
  return message;
}

std::string type_name(const ASN1_OBJECT* type) {
  const char* name = OBJ_nid2ln(OBJ_obj2nid(type));
  return name == nullptr ? "another type" : name;
}

void require_detached_signature(CMS_ContentInfo* message) {
  if (OBJ_obj2nid(CMS_get0_type(message)) != NID_pkcs7_signed) {
    refuse("the signature file holds another kind of CMS message",
           type_name(CMS_get0_type(message)));
  }
  if (OBJ_obj2nid(CMS_get0_eContentType(message)) != NID_pkcs7_data) {
    refuse("the signature is one over another kind of content",
           type_name(CMS_get0_eContentType(message)));
  }
  if (CMS_is_detached(message) != 1) {
    refuse("the signature carries a content of its own", "an attached signature",
           "sign the package with 'zozale-package sign'");
  }
  if (sk_CMS_SignerInfo_num(CMS_get0_SignerInfos(message)) < 1) {
    refuse("nobody has signed", "a signature without signers");
  }
}

std::vector<OpenSslPtr<X509>> certificates_in(CMS_ContentInfo* message) {
  STACK_OF(X509)* stack = CMS_get1_certs(message);
  std::vector<OpenSslPtr<X509>> certificates;
  while (stack != nullptr && sk_X509_num(stack) > 0) {
    certificates.emplace_back(sk_X509_shift(stack));
  }
  sk_X509_free(stack);
  return certificates;
}

// Null unless there is exactly one attribute of the kind with one value of this type.
const ASN1_STRING* attribute(const CMS_SignerInfo* info, int nid, int type) {
  constexpr int kOnlyOne = -3;
  return static_cast<const ASN1_STRING*>(
      CMS_signed_get0_data_by_OBJ(info, OBJ_nid2obj(nid), kOnlyOne, type));
}

}  // namespace

X509* SignerEntry::certificate() const {
  X509* certificate = nullptr;
  CMS_SignerInfo_get0_algs(info_, nullptr, &certificate, nullptr, nullptr);
  return certificate;
}

int SignerEntry::digest_algorithm() const {
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(info_, nullptr, nullptr, &algorithm, nullptr);
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object);
}

std::string SignerEntry::digest_name() const {
  const char* name = OBJ_nid2ln(digest_algorithm());
  return name == nullptr ? "an unknown digest" : name;
}

bool SignerEntry::has_attributes() const {
  const auto* type =
      reinterpret_cast<const ASN1_OBJECT*>(attribute(info_, NID_pkcs9_contentType, V_ASN1_OBJECT));
  return type != nullptr && OBJ_obj2nid(type) == NID_pkcs7_data &&
         attribute(info_, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING) != nullptr;
}

std::string SignerEntry::signed_digest() const {
  const ASN1_STRING* digest = attribute(info_, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  return hex(ASN1_STRING_get0_data(digest), static_cast<size_t>(ASN1_STRING_length(digest)));
}

std::optional<tm> SignerEntry::signing_time() const {
  const ASN1_STRING* time = attribute(info_, NID_pkcs9_signingTime, V_ASN1_UTCTIME);
  if (time == nullptr) {
    time = attribute(info_, NID_pkcs9_signingTime, V_ASN1_GENERALIZEDTIME);
  }
  tm parts = {};
  const bool told = time != nullptr && ASN1_TIME_to_tm(time, &parts) == 1;
  ERR_clear_error();
  return told ? std::optional<tm>(parts) : std::nullopt;
}

bool SignerEntry::signature_holds() const {
  ERR_clear_error();
  return CMS_SignerInfo_verify(info_) == 1;
}

SignedMessage::SignedMessage(const std::string& bytes) : message_(parse(bytes)) {
  require_detached_signature(message_.get());
  certificates_ = certificates_in(message_.get());
}

void SignedMessage::find_certificates(const CertificateFile& file) {
  CMS_set1_signers_certs(message_.get(), CertificateStack(file.certificates).get(), 0);
  ERR_clear_error();
}

std::vector<SignerEntry> SignedMessage::signers() const {
  STACK_OF(CMS_SignerInfo)* infos = CMS_get0_SignerInfos(message_.get());
  std::vector<SignerEntry> signers;
  signers.reserve(static_cast<size_t>(sk_CMS_SignerInfo_num(infos)));
  for (int i = 0; i < sk_CMS_SignerInfo_num(infos); ++i) {
    signers.emplace_back(sk_CMS_SignerInfo_value(infos, i));
  }
  return signers;
}

}  // namespace zozale
