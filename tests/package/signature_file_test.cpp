// SPDX-License-Identifier: Apache-2.0
//
// Signature files and files of trusted certificates that are not what they should be.
#include "common/refused.h"
#include "common/signature.h"
#include "support.h"
#include "tests/pki/pki.h"

namespace package_test {
namespace {

using pki::Identity;
using zozale::read_certificates;

constexpr const char* kContent = "the bytes of a package";

class SignatureFileTest : public FolderTest {
 protected:
  SignatureFileTest() { write("trust.pem", release_.pem()); }

  // "what | found" of the refusal.
  std::string refusal(const std::string& file) const {
    try {
      zozale::check_signature(zozale::read_signature(file), sha512(kContent),
                              read_certificates(path("trust.pem")), {});
      return "taken";
    } catch (const zozale::Refused& refused) {
      EXPECT_EQ(refused.code(), zozale::kExitBadPackage);
      EXPECT_NE(refused.fault().expected, "");
      EXPECT_NE(refused.fault().next, "");
      return refused.fault().what + " | " + refused.fault().found;
    }
  }
  std::string refusal_of(const std::string& bytes) const { return refusal(write("p7s", bytes)); }

  const Identity release_{pki::Wish()};
  const std::string good_ = pki::sign(kContent, {release_});
};

TEST_F(SignatureFileTest, AGoodOneIsTaken) {
  EXPECT_EQ(refusal_of(good_), "taken");
}

TEST_F(SignatureFileTest, NoneIsAPackageThatIsNotSigned) {
  EXPECT_EQ(refusal(path("none")), "the package is not signed | no such file");
}

TEST_F(SignatureFileTest, AnEmptyOne) {
  EXPECT_EQ(refusal_of(""), "the file \"" + path("p7s") + "\" is no signature | 0 bytes");
}

TEST_F(SignatureFileTest, OneOf100Megabytes) {
  EXPECT_EQ(refusal(write_sparse("p7s", 100000000)),
            "the file \"" + path("p7s") + "\" is no signature | 95.3 MiB (100000000 bytes)");
}

TEST_F(SignatureFileTest, TheLimitIsToTheByte) {
  EXPECT_THAT(refusal(write_sparse("p7s", 65536)), StartsWith("the signature cannot be read | "));
  EXPECT_THAT(refusal(write_sparse("p7s", 65537)), HasSubstr("is no signature"));
}

TEST_F(SignatureFileTest, AFolder) {
  EXPECT_EQ(error_of([this] { zozale::read_signature(folder().string()); }),
            "1 cannot read \"" + folder().string() + "\": it is not a regular file");
}

TEST_F(SignatureFileTest, EveryTruncation) {
  const zozale::CertificateFile trust = read_certificates(path("trust.pem"));
  for (size_t len = 1; len < good_.size(); ++len) {
    ASSERT_THAT(error_of([&] {
                  zozale::check_signature(good_.substr(0, len), sha512(kContent), trust, {});
                }),
                StartsWith("3 the signature cannot be read; "))
        << len;
  }
}

TEST_F(SignatureFileTest, BytesBehindIt) {
  EXPECT_EQ(refusal_of(good_ + "x"), "bytes follow the signature in its file | 1 byte behind it");
}

TEST_F(SignatureFileTest, Noise) {
  EXPECT_THAT(refusal_of(pattern(3000, 1)), StartsWith("the signature cannot be read | 2.9 KiB"));
  EXPECT_THAT(refusal_of(std::string(3000, '\0')), StartsWith("the signature cannot be read"));
  EXPECT_THAT(refusal_of("not a signature\n"), StartsWith("the signature cannot be read"));
}

TEST_F(SignatureFileTest, Pem) {
  pki::Manner manner;
  manner.pem = true;
  EXPECT_EQ(refusal_of(pki::sign(kContent, {release_}, manner)),
            "the signature is written as PEM | a text that begins with \"-----BEGIN \"");
}

TEST_F(SignatureFileTest, AnAttachedSignature) {
  pki::Manner manner;
  manner.attached = true;
  EXPECT_EQ(refusal_of(pki::sign(kContent, {release_}, manner)),
            "the signature carries a content of its own | an attached signature");
}

TEST_F(SignatureFileTest, AnotherKindOfMessage) {
  pki::Wish wish;
  wish.rsa_bits = 2048;
  EXPECT_EQ(refusal_of(pki::encrypt(kContent, Identity(wish))),
            "the signature file holds another kind of CMS message | pkcs7-envelopedData");
}

TEST_F(SignatureFileTest, NoSigner) {
  EXPECT_EQ(refusal_of(pki::sign(kContent, {})), "nobody has signed | a signature without signers");
}

TEST_F(SignatureFileTest, NoSignedAttributes) {
  pki::Manner manner;
  manner.with_attributes = false;
  EXPECT_THAT(refusal_of(pki::sign(kContent, {release_}, manner)),
              StartsWith("the signature of CN=Release has no signed attributes | "));
}

TEST_F(SignatureFileTest, TheSignersCertificateMayStandAmongTheTrusted) {
  pki::Manner manner;
  manner.with_certificates = false;
  EXPECT_EQ(refusal_of(pki::sign(kContent, {release_}, manner)), "taken");
  EXPECT_EQ(refusal_of(pki::sign(kContent, {Identity(pki::Wish())}, manner)),
            "the certificate of the package's signer is missing | in neither");
}

TEST_F(SignatureFileTest, ASignersNameIsShownInPrintableCharactersOnly) {
  pki::Wish wish;
  wish.name = "M\x1b[31m\n\xc3\xa4";
  EXPECT_THAT(refusal_of(pki::sign(kContent, {Identity(wish)})),
              HasSubstr("CN=M\\1B[31m\\0A\\C3\\A4 is not trusted"));
}

TEST_F(SignatureFileTest, TrustedCertificatesThatAreMissing) {
  EXPECT_EQ(error_of([this] { read_certificates(path("none.pem")); }),
            "1 cannot open \"" + path("none.pem") + "\": No such file or directory");
}

TEST_F(SignatureFileTest, TrustedCertificatesThatAreNone) {
  const auto fault = [this](const std::string& bytes) {
    return error_of([&] { read_certificates(write("t", bytes)); });
  };
  EXPECT_THAT(fault(""), HasSubstr("it holds no certificate"));
  EXPECT_THAT(fault("certificate\n"), HasSubstr("it holds no certificate"));
  EXPECT_THAT(fault(release_.key_pem()), HasSubstr("it holds no certificate"));
  EXPECT_THAT(fault(std::string(2000000, 'x')), HasSubstr("at most"));
}

// One damaged certificate of many must not silently become one less.
TEST_F(SignatureFileTest, ADamagedCertificateAmongTheTrusted) {
  const std::string pem = release_.pem();
  const auto fault = [this](const std::string& bytes) {
    return error_of([&] { read_certificates(write("t", bytes)); });
  };
  std::string cut = pem;
  cut.erase(100, 4);
  EXPECT_THAT(fault(pem + cut), HasSubstr("a block \"CERTIFICATE\" is damaged"));
  EXPECT_THAT(fault(pem + pem.substr(0, pem.size() - 30)), HasSubstr("it is no PEM file in order"));
  std::string symbol = pem;
  symbol[100] = '!';
  EXPECT_THAT(fault(pem + symbol), HasSubstr("it is no PEM file in order"));
}

}  // namespace
}  // namespace package_test
