// SPDX-License-Identifier: Apache-2.0
//
// The signature of a package, any bytes in its place.
#include <cstdint>
#include <string>

#include "common/check_time.h"
#include "common/refused.h"
#include "common/signature.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"

namespace {

constexpr const char* kTrustedPath = "/cache/trusted.pem";

// An authority, whose key exists no more, and its list of the one certificate that it has revoked.
constexpr const char* kTrusted =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBOzCB4aADAgECAgID6TAKBggqhkjOPQQDAjAUMRIwEAYDVQQDDAlBdXRob3Jp\n"
    "dHkwHhcNMjQwMjI1MTMxOTUxWhcNMjkwODE3MTMxOTUxWjAUMRIwEAYDVQQDDAlB\n"
    "dXRob3JpdHkwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAAT+Ex04GXeeN6+wzIYa\n"
    "d5HON5y/HHPvGUmmqwPeXRFkr298AdFOPmmWNOa8r5HHqtIZSDDF2ffgu2Vk485i\n"
    "ck5LoyMwITAPBgNVHRMBAf8EBTADAQH/MA4GA1UdDwEB/wQEAwIBBjAKBggqhkjO\n"
    "PQQDAgNJADBGAiEAnN6nVQMyCsTk7oZe9AcBvegGjbyb707JTiVCjEEQxi0CIQC8\n"
    "+igsAMJX9JCUX5QwzCMpJyUq93pr/WxzGSBEIdmbGg==\n"
    "-----END CERTIFICATE-----\n"
    "-----BEGIN X509 CRL-----\n"
    "MIGxMFoCAQEwCgYIKoZIzj0EAwIwFDESMBAGA1UEAwwJQXV0aG9yaXR5Fw0yNjEx\n"
    "MjAxMzE5NTVaFw0yNjExMjIxMzE5NTVaMBUwEwICA+0XDTI2MTEyMDEzMTk1NVow\n"
    "CgYIKoZIzj0EAwIDRwAwRAIgex0zzoHkMXFph7Ib5nSfifAaYfh0lLTMuEviRthb\n"
    "K6ECIDcD1shr8Ja/u6oMNIuimHjCNFaQhGgYkpFTFKMuZgpY\n"
    "-----END X509 CRL-----\n";

// The certificates in the corpus are valid then.
constexpr const char* kTime = "2026-11-22";

const zozale::CertificateFile& trusted() {
  static const zozale::CertificateFile file = [] {
    const std::string pem = kTrusted;
    fuzz::FuzzDevice::get().put(kTrustedPath, pem.data(), pem.size());
    return zozale::read_certificates(kTrustedPath);
  }();
  return file;
}

void require_printable(const std::string& text) {
  REQUIRE(!text.empty());
  for (const char c : text) {
    REQUIRE(c >= ' ' && c <= '~');
  }
}

void require_told(const zozale::Refused& refused) {
  const zozale::Fault& fault = refused.fault();
  for (const std::string& text : {fault.what, fault.expected, fault.found, fault.next}) {
    require_printable(text);
  }
  for (const std::string& text : refused.also()) {
    require_printable(text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > zozale::kMaxSignatureSize) {
    return 0;
  }
  zozale::Sha512 hash;
  hash.update("package", 7);
  const zozale::CheckTime time = *zozale::parse_check_time(kTime);
  try {
    const std::string signature(reinterpret_cast<const char*>(data), size);
    const zozale::Signer signer =
        zozale::check_signature(signature, hash.digest(), trusted(), time);
    // No other certificate than these was ever issued for signing packages and not revoked.
    REQUIRE(signer.subject == "CN=Release" || signer.subject == "CN=Below" ||
            signer.subject == "CN=Rsa");
    REQUIRE(signer.anchor == "CN=Authority");
  } catch (const zozale::Refused& refused) {
    require_told(refused);
  }
  return 0;
}
