// SPDX-License-Identifier: Apache-2.0
#include "common/certificate.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <cstring>

#include "common/error.h"
#include "common/file.h"
#include "common/text.h"

namespace zozale {
namespace {

constexpr size_t kMaxFileSize = 1024UL * 1024;

struct PemBlock {
  std::string type;  // such as "CERTIFICATE"
  std::string bytes;
};

Error damaged(const std::string& path, const std::string& what) {
  return {kExitFailed, "cannot read " + in_quotes(path) + ": " + what + ": " + openssl_reason()};
}

// Nothing at the end of the file.
std::optional<PemBlock> next_block(BIO* reader, const std::string& path) {
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* bytes = nullptr;
  long len = 0;
  ERR_clear_error();
  if (PEM_read_bio(reader, &name, &header, &bytes, &len) != 1) {
    if (ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE) {
      ERR_clear_error();
      return std::nullopt;
    }
    throw damaged(path, "it is no PEM file in order");
  }
  PemBlock block = {name, {reinterpret_cast<char*>(bytes), static_cast<size_t>(len)}};
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_clear_free(bytes, static_cast<size_t>(len));
  return block;
}

// Decodes the whole of a block.
template <typename T, typename Decode>
OpenSslPtr<T> decode(const PemBlock& block, const Decode& decoder, const std::string& path) {
  const auto* begin = reinterpret_cast<const unsigned char*>(block.bytes.data());
  const unsigned char* at = begin;
  OpenSslPtr<T> decoded(decoder(nullptr, &at, static_cast<long>(block.bytes.size())));
  if (!decoded || at != begin + block.bytes.size()) {
    throw damaged(path, "a block " + in_quotes(block.type) + " is damaged");
  }
  return decoded;
}

void take(const PemBlock& block, CertificateFile& file) {
  if (block.type == PEM_STRING_X509 || block.type == PEM_STRING_X509_OLD) {
    file.certificates.push_back(decode<X509>(block, d2i_X509, file.path));
  } else if (block.type == PEM_STRING_X509_CRL) {
    file.revocation_lists.push_back(decode<X509_CRL>(block, d2i_X509_CRL, file.path));
  }
}

std::string object_text(const ASN1_OBJECT* object) {
  std::array<char, 80> text{};
  OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 0);
  return printable(text.data());
}

}  // namespace

CertificateStack::CertificateStack(const std::vector<OpenSslPtr<X509>>& certificates)
    : stack_(sk_X509_new_null()) {
  require_openssl(stack_ != nullptr, "list certificates");
  for (const OpenSslPtr<X509>& certificate : certificates) {
    require_openssl(sk_X509_push(stack_.get(), certificate.get()) > 0, "list certificates");
  }
}

CertificateFile read_certificates(const std::string& path) {
  const std::string text = read_text_file(path, kMaxFileSize);
  const OpenSslPtr<BIO> reader = reader_of(text);
  CertificateFile file;
  file.path = path;
  while (const auto block = next_block(reader.get(), path)) {
    take(*block, file);
  }
  if (file.certificates.empty()) {
    throw Error(kExitFailed, "cannot use " + in_quotes(path) +
                                 ": it holds no certificate; PEM is needed, with lines "
                                 "\"-----BEGIN CERTIFICATE-----\"");
  }
  return file;
}

std::string name_text(const X509_NAME* name) {
  constexpr size_t kLongest = 200;
  const OpenSslPtr<BIO> writer(BIO_new(BIO_s_mem()));
  require_openssl(writer != nullptr, "show a certificate's name");
  X509_NAME_print_ex(writer.get(), name, 0, XN_FLAG_RFC2253);
  char* text = nullptr;
  const long len = BIO_get_mem_data(writer.get(), &text);
  std::string shown(text, len > 0 ? static_cast<size_t>(len) : 0);
  if (shown.size() > kLongest) {
    shown.replace(kLongest, std::string::npos, "...");
  }
  return shown.empty() ? "a certificate without a name" : shown;
}

std::string subject_of(const X509* certificate) {
  return name_text(X509_get_subject_name(certificate));
}

std::string issuer_of(const X509* certificate) {
  return name_text(X509_get_issuer_name(certificate));
}

std::string serial_of(const X509* certificate) {
  const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate);
  return hex(ASN1_STRING_get0_data(serial), static_cast<size_t>(ASN1_STRING_length(serial)));
}

std::string utc_text(const tm& time) {
  std::array<char, 40> text{};
  const size_t len = strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &time);
  return {text.data(), len};
}

std::string utc_text(const ASN1_TIME* time) {
  tm parts = {};
  return ASN1_TIME_to_tm(time, &parts) == 1 ? utc_text(parts) : "an unreadable time";
}

std::string purposes_of(const X509* certificate) {
  const OpenSslPtr<EXTENDED_KEY_USAGE> usage(static_cast<EXTENDED_KEY_USAGE*>(
      X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
  if (!usage) {
    return "anything";
  }
  std::string text;
  for (int i = 0; i < sk_ASN1_OBJECT_num(usage.get()); ++i) {
    text += (text.empty() ? "" : ", ") + object_text(sk_ASN1_OBJECT_value(usage.get(), i));
  }
  return text;
}

bool may_issue_signers(const X509* certificate) {
  auto* cached = const_cast<X509*>(certificate);
  const uint32_t flags = X509_get_extension_flags(cached);
  return (flags & EXFLAG_INVALID) == 0 &&
         ((flags & EXFLAG_XKUSAGE) == 0 ||
          (X509_get_extended_key_usage(cached) & (XKU_CODE_SIGN | XKU_ANYEKU)) != 0);
}

bool may_sign_packages(const X509* certificate) {
  // OpenSSL keeps what it found in the certificate inside it.
  auto* cached = const_cast<X509*>(certificate);
  const uint32_t flags = X509_get_extension_flags(cached);
  return (flags & EXFLAG_INVALID) == 0 && (flags & EXFLAG_XKUSAGE) != 0 &&
         (X509_get_extended_key_usage(cached) & XKU_CODE_SIGN) != 0 &&
         (X509_get_key_usage(cached) & KU_DIGITAL_SIGNATURE) != 0;
}

}  // namespace zozale
