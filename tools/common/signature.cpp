// SPDX-License-Identifier: Apache-2.0
#include "common/signature.h"

#include <openssl/err.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>

#include "common/file.h"
#include "common/refused.h"
#include "common/signed_message.h"
#include "common/text.h"
#include "common/trust.h"

namespace zozale {
namespace {

const char* const kFetchAgain = "fetch the package and its signature again";

[[noreturn]] void refuse(const std::string& what, const std::string& expected,
                         const std::string& found, const std::string& next) {
  throw Refused({what, expected, found, next});
}

// Of a signer whose certificate is known.
std::string who(const SignerEntry& entry) {
  return subject_of(entry.certificate());
}

void require_certificate(const SignerEntry& entry, const CertificateFile& trust) {
  if (entry.certificate() == nullptr) {
    refuse("the certificate of the package's signer is missing",
           "it in the signature, or in " + in_quotes(trust.path), "in neither",
           "sign the package with 'zozale-package sign', which puts it into the signature");
  }
}

void require_strong_digest(const SignerEntry& entry) {
  if (entry.digest_algorithm() != NID_sha512) {
    refuse("the signature of " + who(entry) + " does not use SHA-512", "SHA-512",
           entry.digest_name(), "sign the package anew with 'zozale-package sign'");
  }
}

void require_attributes(const SignerEntry& entry) {
  if (!entry.has_attributes()) {
    refuse("the signature of " + who(entry) + " has no signed attributes",
           "a content type of data and a digest among signed attributes", "none, or others",
           "sign the package anew with 'zozale-package sign'");
  }
}

void require_digest(const SignerEntry& entry, const Digest& package) {
  const std::string stated = entry.signed_digest();
  const std::string found = hex(package);
  if (stated != found) {
    refuse("the package is not the one that " + who(entry) +
               " signed: it was altered, or the signature belongs to another one",
           "a package with the SHA-512 " + stated, found, kFetchAgain);
  }
}

void require_intact(const SignerEntry& entry) {
  if (!entry.signature_holds()) {
    refuse("the signature of " + who(entry) + " is forged or damaged",
           "one that the key of this certificate made", openssl_reason(), kFetchAgain);
  }
}

void require_purpose(const SignerEntry& entry) {
  if (!may_sign_packages(entry.certificate())) {
    refuse("the certificate of " + who(entry) + " is not for signing packages",
           "the extended key usage Code Signing, and a key for digital signatures",
           purposes_of(entry.certificate()), "sign the package with a certificate made for it");
  }
}

// The time at which the certificates have to be valid; nothing when no time counts.
std::optional<time_t> time_to_check(const SignerEntry& entry, const CheckTime& when) {
  if (when.kind == CheckTime::Kind::kNone) {
    return std::nullopt;
  }
  if (when.kind != CheckTime::Kind::kSigning) {
    return when.kind == CheckTime::Kind::kClock ? ::time(nullptr) : when.time;
  }
  const std::optional<tm> stated = entry.signing_time();
  const std::optional<time_t> seconds = stated ? seconds_of(*stated) : std::nullopt;
  if (!seconds) {
    refuse("the signature of " + who(entry) + " does not tell when it was made",
           "a signing time, at which its certificate would be checked",
           stated ? utc_text(*stated) : "none", "sign the package with 'zozale-package sign'");
  }
  return seconds;
}

Signer describe(const SignerEntry& entry, const std::string& anchor,
                const std::optional<time_t>& checked_at) {
  const X509* certificate = entry.certificate();
  const std::optional<tm> signed_at = entry.signing_time();
  Signer signer;
  signer.subject = subject_of(certificate);
  signer.issuer = issuer_of(certificate);
  signer.serial = serial_of(certificate);
  signer.valid_from = utc_text(X509_get0_notBefore(certificate));
  signer.valid_until = utc_text(X509_get0_notAfter(certificate));
  signer.anchor = anchor;
  signer.signed_at = signed_at ? std::optional<std::string>(utc_text(*signed_at)) : std::nullopt;
  signer.checked_at = checked_at ? std::optional<std::string>(utc_text(*checked_at)) : std::nullopt;
  return signer;
}

Signer check_signer(const SignerEntry& entry, const SignedMessage& message, const Digest& package,
                    const CertificateFile& trust, const CheckTime& when) {
  require_certificate(entry, trust);
  require_strong_digest(entry);
  require_attributes(entry);
  require_digest(entry, package);
  require_intact(entry);
  const std::optional<time_t> time = time_to_check(entry, when);
  const std::string anchor =
      require_trusted(entry.certificate(), message.certificates(), trust, {when.kind, time});
  require_purpose(entry);
  return describe(entry, anchor, time);
}

}  // namespace

std::string signature_path(const std::string& package) {
  return package + ".p7s";
}

std::string read_signature(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 && errno == ENOENT) {
    refuse("the package is not signed", "its signature at " + printable(path), "no such file",
           "fetch the signature with the package, or sign it with 'zozale-package sign'");
  }
  const InputFile file(path);
  if (file.size() == 0 || file.size() > kMaxSignatureSize) {
    refuse("the file " + in_quotes(path) + " is no signature",
           "a CMS signature of at most " + human_size(kMaxSignatureSize), human_size(file.size()),
           kFetchAgain);
  }
  std::string bytes(static_cast<size_t>(file.size()), '\0');
  file.read_at(0, bytes.data(), bytes.size());
  return bytes;
}

Signer check_signature(const std::string& signature, const Digest& package,
                       const CertificateFile& trust, const CheckTime& when) {
  SignedMessage message(signature);
  message.find_certificates(trust);
  std::vector<Fault> faults;
  for (const SignerEntry& entry : message.signers()) {
    try {
      return check_signer(entry, message, package, trust, when);
    } catch (const Refused& refusal) {
      faults.push_back(refusal.fault());
    }
  }
  std::vector<std::string> also;
  std::transform(faults.begin() + 1, faults.end(), std::back_inserter(also),
                 [](const Fault& fault) { return fault.what; });
  throw Refused(faults.front(), also);
}

}  // namespace zozale
