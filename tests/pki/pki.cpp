// SPDX-License-Identifier: Apache-2.0
#include "pki.h"

#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace pki {
namespace {

long next_serial() {
  static long serial = 1000;
  return ++serial;
}

template <typename T>
T* made(T* thing) {
  if (thing == nullptr) {
    throw std::runtime_error("OpenSSL could not make what a test needs");
  }
  return thing;
}

EVP_PKEY* make_key(int rsa_bits) {
  return made(rsa_bits == 0 ? EVP_EC_gen("P-256")
                            : EVP_RSA_gen(static_cast<unsigned int>(rsa_bits)));
}

std::string drain(BIO* bio) {
  char* text = nullptr;
  const long len = BIO_get_mem_data(bio, &text);
  std::string bytes(text, static_cast<std::size_t>(len));
  BIO_free(bio);
  return bytes;
}

void add_extension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  if (value.empty()) {
    return;
  }
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = made(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// "OBJECT=DER": a critical extension of any kind, its value in hexadecimal.
void add_extension(X509_CRL* list, const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::string value = "critical,DER:" + text.substr(equals + 1);
  X509_EXTENSION* extension =
      made(X509V3_EXT_conf(nullptr, nullptr, text.substr(0, equals).c_str(), value.c_str()));
  X509_CRL_add_ext(list, extension, -1);
  X509_EXTENSION_free(extension);
}

void set_name(X509* certificate, const std::string& name) {
  X509_NAME* subject = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.data()),
                             static_cast<int>(name.size()), -1, 0);
}

void add_extensions(X509* certificate, X509* issuer, const Wish& wish) {
  add_extension(certificate, issuer, NID_basic_constraints,
                wish.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
  add_extension(certificate, issuer, NID_key_usage, wish.usage);
  add_extension(certificate, issuer, NID_ext_key_usage, wish.purposes);
}

unsigned int sign_flags(const Manner& manner) {
  unsigned int flags = CMS_BINARY | CMS_PARTIAL;
  flags |= manner.attached ? 0U : CMS_DETACHED;
  flags |= manner.with_certificates ? 0U : CMS_NOCERTS;
  flags |= manner.with_attributes ? 0U : CMS_NOATTR;
  return flags;
}

std::string encoded(CMS_ContentInfo* message, bool pem) {
  BIO* out = BIO_new(BIO_s_mem());
  pem ? PEM_write_bio_CMS_stream(out, message, nullptr, 0) : i2d_CMS_bio(out, message);
  CMS_ContentInfo_free(message);
  return drain(out);
}

}  // namespace

Wish authority(const std::string& name) {
  Wish wish;
  wish.name = name;
  wish.authority = true;
  wish.usage = "critical,keyCertSign,cRLSign";
  wish.purposes = "";
  wish.from = -1000 * kDay;
  wish.until = 1000 * kDay;
  return wish;
}

Identity::Identity(const Wish& wish) : Identity(wish, nullptr) {}

Identity Identity::issue(const Wish& wish) const {
  return Identity(wish, this);
}

Identity::Identity(const Wish& wish, const Identity* issuer)
    : key_(make_key(wish.rsa_bits), EVP_PKEY_free), certificate_(made(X509_new()), X509_free) {
  X509* certificate = certificate_.get();
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), next_serial());
  X509_gmtime_adj(X509_getm_notBefore(certificate), wish.from);
  X509_gmtime_adj(X509_getm_notAfter(certificate), wish.until);
  set_name(certificate, wish.name);
  const Identity& by = issuer == nullptr ? *this : *issuer;
  X509_set_issuer_name(certificate, X509_get_subject_name(by.certificate()));
  X509_set_pubkey(certificate, key_.get());
  add_extensions(certificate, by.certificate(), wish);
  if (X509_sign(certificate, by.key(), EVP_get_digestbyname(wish.digest.c_str())) == 0) {
    throw std::runtime_error("no certificate");
  }
}

std::string Identity::key_pem(const std::string& passphrase) const {
  BIO* out = BIO_new(BIO_s_mem());
  const bool plain = passphrase.empty();
  PEM_write_bio_PKCS8PrivateKey(out, key(), plain ? nullptr : EVP_aes_128_cbc(),
                                plain ? nullptr : passphrase.data(),
                                static_cast<int>(passphrase.size()), nullptr, nullptr);
  return drain(out);
}

std::string Identity::pem() const {
  BIO* out = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(out, certificate());
  return drain(out);
}

std::string Identity::revocation_list(const std::vector<Identity>& revoked, long from, long until,
                                      const std::string& extension) const {
  const std::unique_ptr<X509_CRL, void (*)(X509_CRL*)> list(X509_CRL_new(), X509_CRL_free);
  const std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> time(ASN1_TIME_new(), ASN1_TIME_free);
  X509_CRL_set_version(list.get(), 1);
  X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(certificate()));
  X509_CRL_set1_lastUpdate(list.get(), X509_gmtime_adj(time.get(), from));
  for (const Identity& identity : revoked) {
    X509_REVOKED* entry = X509_REVOKED_new();
    X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(identity.certificate()));
    X509_REVOKED_set_revocationDate(entry, time.get());
    X509_CRL_add0_revoked(list.get(), entry);
  }
  X509_CRL_set1_nextUpdate(list.get(), X509_gmtime_adj(time.get(), until));
  X509_CRL_sort(list.get());
  if (!extension.empty()) {
    add_extension(list.get(), extension);
  }
  X509_CRL_sign(list.get(), key(), EVP_sha256());
  BIO* out = BIO_new(BIO_s_mem());
  PEM_write_bio_X509_CRL(out, list.get());
  return drain(out);
}

std::string sign(const std::string& content, const std::vector<Identity>& signers,
                 const Manner& manner) {
  const unsigned int flags = sign_flags(manner);
  CMS_ContentInfo* message = made(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  for (const Identity& signer : signers) {
    made(CMS_add1_signer(message, signer.certificate(), signer.key(),
                         EVP_get_digestbyname(manner.digest.c_str()), flags));
  }
  for (const Identity& identity : manner.chain) {
    CMS_add1_cert(message, identity.certificate());
  }
  BIO* data = BIO_new_mem_buf(content.data(), static_cast<int>(content.size()));
  // There is nothing to complete without a signer.
  const int done = signers.empty() ? 1 : CMS_final(message, data, nullptr, flags);
  BIO_free(data);
  if (done != 1) {
    throw std::runtime_error("no signature");
  }
  return encoded(message, manner.pem);
}

std::string encrypt(const std::string& content, const Identity& reader) {
  STACK_OF(X509)* readers = sk_X509_new_null();
  sk_X509_push(readers, reader.certificate());
  BIO* data = BIO_new_mem_buf(content.data(), static_cast<int>(content.size()));
  CMS_ContentInfo* message = CMS_encrypt(readers, data, EVP_aes_128_cbc(), CMS_BINARY);
  BIO_free(data);
  sk_X509_free(readers);
  return encoded(made(message), false);
}

}  // namespace pki
