// SPDX-License-Identifier: Apache-2.0
//
// A detached CMS signature as it lies in its file: what it says, not whether that is true.
#ifndef ZOZALE_TOOLS_COMMON_SIGNED_MESSAGE_H
#define ZOZALE_TOOLS_COMMON_SIGNED_MESSAGE_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "common/certificate.h"

namespace zozale {

// One signer of a message, which must outlive this.
class SignerEntry {
 public:
  explicit SignerEntry(CMS_SignerInfo* info) : info_(info) {}

  // Null when it is not known.
  X509* certificate() const;
  // The NID of the digest over the content, and its name.
  int digest_algorithm() const;
  std::string digest_name() const;
  // Whether there are signed attributes, the content type data and one digest among them.
  bool has_attributes() const;
  // The signed digest of the content, hexadecimal.
  std::string signed_digest() const;
  std::optional<tm> signing_time() const;
  // Whether the certificate's key made the signature over the signed attributes.
  bool signature_holds() const;

 private:
  CMS_SignerInfo* info_;
};

class SignedMessage {
 public:
  // Throws Refused for bytes that are anything but one CMS SignedData in DER without
  // content and with a signer.
  explicit SignedMessage(const std::string& bytes);

  // Looks the signers' certificates up, first in `file`, then in the message.
  void find_certificates(const CertificateFile& file);
  std::vector<SignerEntry> signers() const;
  // Those in the message. Owned by it.
  const std::vector<OpenSslPtr<X509>>& certificates() const { return certificates_; }

 private:
  OpenSslPtr<CMS_ContentInfo> message_;
  std::vector<OpenSslPtr<X509>> certificates_;
};

}  // namespace zozale

#endif
