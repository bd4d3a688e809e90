// SPDX-License-Identifier: Apache-2.0
//
// Owners of what OpenSSL allocates.
#ifndef ZOZALE_TOOLS_COMMON_OPENSSL_H
#define ZOZALE_TOOLS_COMMON_OPENSSL_H

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

namespace zozale {

struct OpenSslFree {
  void operator()(BIO* bio) const { BIO_free(bio); }
  void operator()(CMS_ContentInfo* message) const { CMS_ContentInfo_free(message); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EXTENDED_KEY_USAGE* usage) const { EXTENDED_KEY_USAGE_free(usage); }
  void operator()(ISSUING_DIST_POINT* point) const { ISSUING_DIST_POINT_free(point); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_CRL* list) const { X509_CRL_free(list); }
  void operator()(X509_STORE* store) const { X509_STORE_free(store); }
  void operator()(X509_STORE_CTX* context) const { X509_STORE_CTX_free(context); }
  void operator()(STACK_OF(X509) * certificates) const { sk_X509_free(certificates); }
  void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};

template <typename T>
using OpenSslPtr = std::unique_ptr<T, OpenSslFree>;

// Throws Error, "cannot <action>: <openssl_reason()>", unless it is done.
void require_openssl(bool done, const std::string& action);

// A BIO that reads the bytes, which must outlive it.
OpenSslPtr<BIO> reader_of(const std::string& bytes);

// What OpenSSL has to say about its last failure in this thread, such as "bad decrypt". Empties its
// queue of errors.
std::string openssl_reason();

}  // namespace zozale

#endif
