// SPDX-License-Identifier: Apache-2.0
//
// Keys, certificates, revocation lists and CMS signatures, good ones and bad ones, made with
// OpenSSL alone and not with the code under test.
#ifndef TESTS_PKI_PKI_H
#define TESTS_PKI_PKI_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace pki {

constexpr long kDay = 86400;

// What a certificate shall be. Times are seconds from now.
struct Wish {
  std::string name = "Release";
  std::string purposes = "codeSigning";  // extendedKeyUsage; empty: the extension is left out
  std::string usage = "critical,digitalSignature";  // keyUsage; empty likewise
  bool authority = false;                           // may issue others
  long from = -kDay;
  long until = 365 * kDay;
  int rsa_bits = 0;  // 0: a key on the curve P-256
  std::string digest = "SHA256";
};
// One that may issue certificates and revocation lists, for any purpose.
Wish authority(const std::string& name);

// A key and its certificate.
class Identity {
 public:
  // Vouches for itself.
  explicit Identity(const Wish& wish);
  Identity issue(const Wish& wish) const;

  // Encrypted when there is a passphrase.
  std::string key_pem(const std::string& passphrase = "") const;
  std::string pem() const;
  // The list of what this identity has revoked. The extension is critical: "OBJECT=DER", the value
  // in hexadecimal.
  std::string revocation_list(const std::vector<Identity>& revoked, long from = -kDay,
                              long until = kDay, const std::string& extension = "") const;

  EVP_PKEY* key() const { return key_.get(); }
  X509* certificate() const { return certificate_.get(); }

 private:
  Identity(const Wish& wish, const Identity* issuer);

  std::shared_ptr<EVP_PKEY> key_;
  std::shared_ptr<X509> certificate_;
};

struct Manner {
  std::string digest = "SHA512";
  bool attached = false;
  bool with_certificates = true;
  bool with_attributes = true;
  bool pem = false;
  std::vector<Identity> chain = {};
};
// A CMS signature over the content, one signer each. DER unless the manner says PEM.
std::string sign(const std::string& content, const std::vector<Identity>& signers,
                 const Manner& manner = {});

// A CMS message of another kind.
std::string encrypt(const std::string& content, const Identity& reader);

}  // namespace pki

#endif
