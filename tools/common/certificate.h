// SPDX-License-Identifier: Apache-2.0
//
// X.509 certificates: files that hold some, and what stands in one.
#ifndef ZOZALE_TOOLS_COMMON_CERTIFICATE_H
#define ZOZALE_TOOLS_COMMON_CERTIFICATE_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "common/error.h"
#include "common/openssl.h"

namespace zozale {

struct CertificateFile {
  std::string path;
  std::vector<OpenSslPtr<X509>> certificates;  // in the file's order
  std::vector<OpenSslPtr<X509_CRL>> revocation_lists;
};

// The certificates as OpenSSL takes them; they must outlive it.
class CertificateStack {
 public:
  // Throws Error.
  explicit CertificateStack(const std::vector<OpenSslPtr<X509>>& certificates);
  STACK_OF(X509) * get() const { return stack_.get(); }

 private:
  OpenSslPtr<STACK_OF(X509)> stack_;
};

// A file of trusted certificates in which something cannot be used. Exit code kExitFailed.
class UnfitTrust : public Error {
 public:
  explicit UnfitTrust(const std::string& text) : Error(kExitFailed, text) {}
};

// Reads every certificate and revocation list of a PEM file; other things in it are passed over.
// Throws Error when the file cannot be read, holds no certificate, or holds anything damaged.
CertificateFile read_certificates(const std::string& path);

// "CN=Release,O=Example", in printable ASCII.
std::string name_text(const X509_NAME* name);
std::string subject_of(const X509* certificate);
std::string issuer_of(const X509* certificate);
// Hexadecimal.
std::string serial_of(const X509* certificate);

// "2026-11-21T12:00:00Z".
std::string utc_text(const tm& time);
// The same; "an unreadable time" for what is none.
std::string utc_text(const ASN1_TIME* time);

// What the certificate may be used for, such as "TLS Web Server Authentication, Code Signing";
// "anything" when it does not say.
std::string purposes_of(const X509* certificate);
// Whether an authority with it may issue certificates for signing packages: it says code signing or
// any purpose, or does not say.
bool may_issue_signers(const X509* certificate);
// Whether it says code signing, and is for digital signatures at all.
bool may_sign_packages(const X509* certificate);

}  // namespace zozale

#endif
