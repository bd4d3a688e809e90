// SPDX-License-Identifier: Apache-2.0
//
// Whom a signature is taken from: chains, times, purposes, strengths, revocation, several signers.
#include "common/signature.h"
#include <set>

#include "common/refused.h"
#include "support.h"
#include "tests/pki/pki.h"

namespace package_test {
namespace {

using pki::authority;
using pki::Identity;
using pki::kDay;
using pki::Wish;
using zozale::CheckTime;

constexpr const char* kContent = "the bytes of a package";

Wish named(const std::string& name) {
  Wish wish;
  wish.name = name;
  return wish;
}

class SignatureTest : public FolderTest {
 protected:
  // The file of trusted certificates, and whatever else is to stand in it.
  void trust(const std::string& pem) { write("trust.pem", pem); }

  zozale::Signer check(const std::string& signature, const CheckTime& when = {}) const {
    return zozale::check_signature(signature, sha512(kContent),
                                   zozale::read_certificates(path("trust.pem")), when);
  }
  // "what | expected | found" of the refusal; the signer when it is taken.
  std::string refusal(const std::string& signature, const CheckTime& when = {}) const {
    try {
      return "taken: " + check(signature, when).subject;
    } catch (const zozale::Refused& refused) {
      EXPECT_EQ(refused.code(), zozale::kExitBadPackage);
      EXPECT_NE(refused.fault().next, "");
      const zozale::Fault& fault = refused.fault();
      return fault.what + " | " + fault.expected + " | " + fault.found;
    }
  }
  // What is said of a file of trusted certificates that cannot be used.
  std::string unfit(const std::string& signature) const {
    return error_of([&] { check(signature); });
  }
  std::string list_fault(const std::string& reason) const {
    return "1 cannot use the revocation list of CN=Root in \"" + path("trust.pem") +
           "\": " + reason;
  }
  static CheckTime at(long seconds_from_now) {
    return {CheckTime::Kind::kGiven, time(nullptr) + seconds_from_now};
  }

  const Identity root_{authority("Root")};
};

TEST_F(SignatureTest, IsTakenFromWhomATrustedCertificateVouchesFor) {
  trust(root_.pem());
  const Identity release = root_.issue(named("Release"));
  const zozale::Signer signer = check(pki::sign(kContent, {release}));
  EXPECT_EQ(signer.subject, "CN=Release");
  EXPECT_EQ(signer.issuer, "CN=Root");
  EXPECT_EQ(signer.anchor, "CN=Root");
  ASSERT_TRUE(signer.signed_at);
  ASSERT_TRUE(signer.checked_at);
  EXPECT_EQ(signer.signed_at->size(), std::string("2026-11-21T12:00:00Z").size());
}

TEST_F(SignatureTest, ASignersOwnCertificateMayBeTheTrustedOne) {
  const Identity release = root_.issue(named("Release"));
  trust(release.pem());
  EXPECT_EQ(check(pki::sign(kContent, {release})).anchor, "CN=Release");
}

TEST_F(SignatureTest, ASelfSignedSignerMayBeTheTrustedOne) {
  const Identity alone(named("Alone"));
  trust(alone.pem());
  EXPECT_EQ(check(pki::sign(kContent, {alone})).anchor, "CN=Alone");
}

TEST_F(SignatureTest, AnIntermediateMayComeWithTheSignature) {
  trust(root_.pem());
  const Identity middle = root_.issue(authority("Middle"));
  const Identity release = middle.issue(named("Release"));
  pki::Manner manner;
  EXPECT_THAT(refusal(pki::sign(kContent, {release}, manner)),
              HasSubstr("CN=Release, issued by CN=Middle: unable to get local issuer"));
  manner.chain = {middle};
  EXPECT_EQ(check(pki::sign(kContent, {release}, manner)).anchor, "CN=Root");
}

TEST_F(SignatureTest, AnIntermediateMayBeTheTrustedOne) {
  const Identity middle = root_.issue(authority("Middle"));
  trust(middle.pem());
  EXPECT_EQ(check(pki::sign(kContent, {middle.issue(named("Release"))})).anchor, "CN=Middle");
}

TEST_F(SignatureTest, AnIntermediateWithoutTheRightToIssueVouchesForNobody) {
  trust(root_.pem());
  const Identity release = root_.issue(named("Release"));
  const Identity below = release.issue(named("Below"));
  pki::Manner manner;
  manner.chain = {release};
  EXPECT_THAT(refusal(pki::sign(kContent, {below}, manner)), Not(StartsWith("taken")));
}

TEST_F(SignatureTest, SeveralCertificatesMayBeTrusted) {
  const Identity other(authority("Other"));
  trust("# ours\n" + other.pem() + "text between\n" + root_.pem());
  EXPECT_EQ(check(pki::sign(kContent, {root_.issue(named("R"))})).anchor, "CN=Root");
  EXPECT_EQ(check(pki::sign(kContent, {other.issue(named("O"))})).anchor, "CN=Other");
}

TEST_F(SignatureTest, AStrangerIsRefusedWhateverHeCallsHimself) {
  trust(root_.pem());
  const Identity impostor(authority("Root"));
  const Identity release = impostor.issue(named("Release"));
  pki::Manner manner;
  manner.chain = {impostor};
  EXPECT_THAT(refusal(pki::sign(kContent, {release}, manner)), Not(StartsWith("taken")));
  EXPECT_THAT(refusal(pki::sign(kContent, {Identity(named("Mallory"))})),
              StartsWith("the package is signed by another: CN=Mallory is not trusted | a signer "
                         "whose certificate leads to one in \""));
}

TEST_F(SignatureTest, AnotherPackageIsRefused) {
  trust(root_.pem());
  EXPECT_EQ(refusal(pki::sign("other bytes", {root_.issue(named("Release"))})),
            "the package is not the one that CN=Release signed: it was altered, or the signature "
            "belongs to another one | a package with the SHA-512 " +
                zozale::hex(sha512("other bytes")) + " | " + zozale::hex(sha512(kContent)));
}

// Positions of the bytes that say nothing OpenSSL would need: the two version numbers, the list of
// the digests in use, which each signer's own repeats, and the name of the signature's algorithm,
// which the key tells, too.
std::set<size_t> idle_positions(const std::string& signature) {
  const std::string version("\x02\x01\x01");
  const std::string digest("\x60\x86\x48\x01\x65\x03\x04\x02\x03");
  const std::string algorithm("\x2A\x86\x48\xCE\x3D\x04\x03\x04");
  std::set<size_t> positions = {signature.find(version) + 2,
                                signature.find(version, signature.find(version) + 1) + 2};
  for (size_t i = 0; i < digest.size(); ++i) {
    positions.insert(signature.find(digest) + i);
  }
  for (size_t i = 0; i < algorithm.size(); ++i) {
    positions.insert(signature.rfind(algorithm) + i);
  }
  return positions;
}

TEST_F(SignatureTest, EveryByteThatMattersIsProtected) {
  const Identity release = root_.issue(named("Release"));
  trust(root_.pem() + release.pem());
  pki::Manner manner;
  manner.with_certificates = false;
  const std::string good = pki::sign(kContent, {release}, manner);
  ASSERT_THAT(refusal(good), StartsWith("taken"));
  std::set<size_t> taken;
  for (size_t i = 0; i < good.size(); ++i) {
    std::string damaged = good;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x01);
    if (refusal(damaged).rfind("taken", 0) == 0) {
      taken.insert(i);
    }
  }
  EXPECT_EQ(taken, idle_positions(good));
}

TEST_F(SignatureTest, AForgedSignatureHasATextOfItsOwn) {
  trust(root_.pem());
  const Identity release = root_.issue(named("Release"));
  std::string forged = pki::sign(kContent, {release});
  // Within the second number of the signature, which ends the file.
  forged[forged.size() - 5] = static_cast<char>(forged[forged.size() - 5] ^ 0x10);
  EXPECT_THAT(refusal(forged), StartsWith("the signature of CN=Release is forged or damaged | "));
}

TEST_F(SignatureTest, ExpiredCertificatesAreRefused) {
  trust(root_.pem());
  Wish wish = named("Old");
  wish.from = -10 * kDay;
  wish.until = -5 * kDay;
  const std::string signature = pki::sign(kContent, {root_.issue(wish)});
  EXPECT_THAT(refusal(signature), StartsWith("the certificate of CN=Old has expired | valid at "));
  EXPECT_THAT(refusal(signature), HasSubstr(", by the clock | valid until "));
  EXPECT_THAT(refusal(signature, at(-7 * kDay)), StartsWith("taken"));
  EXPECT_THAT(refusal(signature, at(-20 * kDay)),
              StartsWith("the certificate of CN=Old is not valid yet | valid at "));
  EXPECT_THAT(refusal(signature, {CheckTime::Kind::kSigning, 0}),
              HasSubstr(", by the signing time | valid until "));
  EXPECT_EQ(check(signature, {CheckTime::Kind::kNone, 0}).checked_at, std::nullopt);
}

TEST_F(SignatureTest, ACertificateIsValidFromItsFirstToItsLastSecond) {
  trust(root_.pem());
  Wish wish = named("Short");
  wish.from = -100;
  wish.until = 100;
  const Identity brief = root_.issue(wish);
  const std::string signature = pki::sign(kContent, {brief});
  tm parts = {};
  ASN1_TIME_to_tm(X509_get0_notBefore(brief.certificate()), &parts);
  const time_t first = timegm(&parts);
  ASN1_TIME_to_tm(X509_get0_notAfter(brief.certificate()), &parts);
  const time_t last = timegm(&parts);
  const auto given = [](time_t time) { return CheckTime{CheckTime::Kind::kGiven, time}; };
  EXPECT_THAT(refusal(signature, given(first - 1)), HasSubstr("is not valid yet"));
  EXPECT_THAT(refusal(signature, given(first)), StartsWith("taken"));
  EXPECT_THAT(refusal(signature, given(last - 1)), StartsWith("taken"));
  EXPECT_THAT(refusal(signature, given(last + 1)), HasSubstr("has expired"));
}

TEST_F(SignatureTest, AnExpiredAuthorityVouchesForNobody) {
  Wish wish = authority("Old root");
  wish.from = -10 * kDay;
  wish.until = -5 * kDay;
  const Identity old(wish);
  trust(old.pem());
  const std::string signature = pki::sign(kContent, {old.issue(named("Release"))});
  EXPECT_THAT(refusal(signature), StartsWith("the certificate of CN=Old root has expired"));
}

TEST_F(SignatureTest, TheSigningTimeStandsInForAClockThatIsWrong) {
  trust(root_.pem());
  const std::string signature = pki::sign(kContent, {root_.issue(named("Release"))});
  EXPECT_THAT(refusal(signature, at(1000 * kDay)), HasSubstr("has expired"));
  const zozale::Signer signer = check(signature, {CheckTime::Kind::kSigning, 0});
  EXPECT_EQ(signer.checked_at, signer.signed_at);
}

TEST_F(SignatureTest, OnlyCertificatesForSigningCodeSignPackages) {
  trust(root_.pem());
  Wish wish = named("Server");
  wish.purposes = "serverAuth";
  EXPECT_EQ(refusal(pki::sign(kContent, {root_.issue(wish)})),
            "the certificate of CN=Server is not for signing packages | the extended key usage "
            "Code Signing, and a key for digital signatures | TLS Web Server Authentication");
  wish.purposes = "emailProtection,clientAuth";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})),
              HasSubstr(" | E-mail Protection, TLS Web Client Authentication"));
  wish.purposes = "";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), HasSubstr(" | anything"));
  wish.purposes = "anyExtendedKeyUsage";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), Not(StartsWith("taken")));
  wish.purposes = "serverAuth,codeSigning";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), StartsWith("taken"));
  wish.usage = "critical,keyAgreement";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), HasSubstr("is not for signing"));
  wish.usage = "";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), StartsWith("taken"));
}

TEST_F(SignatureTest, AnAuthorityForAnotherPurposeIssuesNoSigners) {
  const auto refusal_below = [this](const std::string& purposes, bool trusted) {
    Wish wish = authority("Middle");
    wish.purposes = purposes;
    const Identity middle = root_.issue(wish);
    trust(root_.pem() + (trusted ? middle.pem() : ""));
    pki::Manner manner;
    manner.chain = {middle};
    return refusal(pki::sign(kContent, {middle.issue(named("Release"))}, manner));
  };
  for (const bool trusted : {false, true}) {
    EXPECT_EQ(refusal_below("serverAuth", trusted),
              "the authority CN=Middle may not issue certificates for signing packages | the "
              "extended key usage Code Signing, or none at all | TLS Web Server Authentication");
    EXPECT_EQ(refusal_below("serverAuth,codeSigning", trusted), "taken: CN=Release");
    EXPECT_EQ(refusal_below("anyExtendedKeyUsage", trusted), "taken: CN=Release");
  }
}

TEST_F(SignatureTest, ATrustedCertificateHasToBeForSigningToo) {
  Wish wish = named("Server");
  wish.purposes = "serverAuth";
  const Identity server(wish);
  trust(server.pem());
  EXPECT_THAT(refusal(pki::sign(kContent, {server})), HasSubstr("is not for signing packages"));
}

TEST_F(SignatureTest, OnlySha512Signs) {
  trust(root_.pem());
  Wish wish = named("Release");
  wish.rsa_bits = 2048;  // EC has no signatures with MD5
  const Identity release = root_.issue(wish);
  pki::Manner manner;
  for (const char* digest : {"MD5", "SHA1", "SHA256", "SHA384"}) {
    manner.digest = digest;
    EXPECT_THAT(refusal(pki::sign(kContent, {release}, manner)),
                StartsWith("the signature of CN=Release does not use SHA-512 | SHA-512 | "))
        << digest;
  }
}

TEST_F(SignatureTest, WeakCertificatesAreRefused) {
  trust(root_.pem());
  Wish wish = named("Weak");
  wish.digest = "SHA1";
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})),
              StartsWith("the certificate of CN=Weak is too weak | "));
  wish.digest = "SHA256";
  wish.rsa_bits = 1024;
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})),
              StartsWith("the certificate of CN=Weak is too weak | "));
  wish.rsa_bits = 2048;
  EXPECT_THAT(refusal(pki::sign(kContent, {root_.issue(wish)})), StartsWith("taken"));
}

TEST_F(SignatureTest, OneGoodSignerOfSeveralIsEnough) {
  trust(root_.pem());
  const Identity good = root_.issue(named("Good"));
  const Identity stranger(named("Stranger"));
  EXPECT_EQ(refusal(pki::sign(kContent, {stranger, good})), "taken: CN=Good");
  EXPECT_EQ(refusal(pki::sign(kContent, {good, stranger})), "taken: CN=Good");
}

TEST_F(SignatureTest, SeveralBadSignersAreAllNamed) {
  trust(root_.pem());
  Wish wish = named("Old");
  wish.from = -10 * kDay;
  wish.until = -5 * kDay;
  const Identity old = root_.issue(wish);
  const Identity stranger(named("Stranger"));
  try {
    check(pki::sign(kContent, {stranger, old}));
    FAIL() << "taken";
  } catch (const zozale::Refused& refused) {
    const std::vector<std::string> all = {refused.fault().what, refused.also().at(0)};
    EXPECT_THAT(all, ::testing::UnorderedElementsAre(HasSubstr("signed by another: CN=Stranger"),
                                                     HasSubstr("CN=Old has expired")));
  }
}

// The good signer's certificate beside a signature of somebody else's lends it nothing.
TEST_F(SignatureTest, ABorrowedCertificateDoesNotHelp) {
  trust(root_.pem());
  pki::Manner manner;
  manner.chain = {root_.issue(named("Release"))};
  EXPECT_THAT(refusal(pki::sign(kContent, {Identity(named("Mallory"))}, manner)),
              HasSubstr("signed by another: CN=Mallory"));
}

TEST_F(SignatureTest, RevokedCertificatesAreRefused) {
  const Identity lost = root_.issue(named("Lost"));
  const Identity kept = root_.issue(named("Kept"));
  trust(root_.pem() + root_.revocation_list({lost}));
  EXPECT_THAT(refusal(pki::sign(kContent, {lost})),
              StartsWith("the certificate of CN=Lost is revoked | "));
  EXPECT_EQ(refusal(pki::sign(kContent, {kept})), "taken: CN=Kept");
}

// A list that lies in a device's image for years is still true.
TEST_F(SignatureTest, ARevocationListCountsWhateverItsDates) {
  const Identity lost = root_.issue(named("Lost"));
  const Identity kept = root_.issue(named("Kept"));
  for (const auto& [from, until] :
       {std::pair<long, long>{-9 * kDay, -8 * kDay}, std::pair<long, long>{8 * kDay, 9 * kDay}}) {
    trust(root_.pem() + root_.revocation_list({lost}, from, until));
    EXPECT_THAT(refusal(pki::sign(kContent, {lost})), HasSubstr("CN=Lost is revoked"));
    EXPECT_EQ(refusal(pki::sign(kContent, {kept})), "taken: CN=Kept");
  }
}

// Also when the one that does not name it is newer, or is the only one that is valid.
TEST_F(SignatureTest, EveryListOfAnIssuerCounts) {
  const Identity lost = root_.issue(named("Lost"));
  const Identity kept = root_.issue(named("Kept"));
  const std::string older = root_.revocation_list({}, -9 * kDay, 9 * kDay);
  const std::string newer = root_.revocation_list({lost}, -3 * kDay, -2 * kDay);
  for (const std::string& lists : {older + newer, newer + older}) {
    trust(root_.pem() + lists);
    for (const auto kind :
         {CheckTime::Kind::kClock, CheckTime::Kind::kSigning, CheckTime::Kind::kNone}) {
      EXPECT_THAT(refusal(pki::sign(kContent, {lost}), {kind, 0}), HasSubstr("CN=Lost is revoked"));
      EXPECT_EQ(refusal(pki::sign(kContent, {kept}), {kind, 0}), "taken: CN=Kept");
    }
  }
}

TEST_F(SignatureTest, AListThatItsIssuerHasNotMadeIsAFaultOfTheFile) {
  const Identity impostor(authority("Root"));
  const Identity release = root_.issue(named("Release"));
  trust(root_.pem() + root_.revocation_list({}) + impostor.revocation_list({}));
  EXPECT_EQ(unfit(pki::sign(kContent, {release})), list_fault("its signature is not its issuer's"));
}

// Its signature cannot be checked, and passing it over would revive what it names.
TEST_F(SignatureTest, AListWhoseIssuerIsUnknownIsAFaultOfTheFile) {
  const Identity middle = root_.issue(authority("Middle"));
  trust(middle.pem() + root_.revocation_list({middle}));
  EXPECT_EQ(unfit(pki::sign(kContent, {middle.issue(named("Release"))})),
            list_fault("there is no certificate of its issuer"));
}

TEST_F(SignatureTest, AListOfAnIssuerThatMayMakeNoneIsAFaultOfTheFile) {
  Wish wish = authority("Root");
  wish.usage = "critical,keyCertSign";
  const Identity root(wish);
  trust(root.pem() + root.revocation_list({}));
  EXPECT_EQ(unfit(pki::sign(kContent, {root.issue(named("Release"))})),
            list_fault("its issuer's certificate lacks the key usage CRL Sign"));
}

TEST_F(SignatureTest, AListThatMeansSomethingElseIsAFaultOfTheFile) {
  const std::string signature = pki::sign(kContent, {root_.issue(named("Release"))});
  trust(root_.pem() + root_.revocation_list({}, -kDay, kDay, "1.2.3.4=05:00"));
  EXPECT_EQ(unfit(signature), list_fault("it has a critical extension that is not understood"));
  // An issuing distribution point, [4] TRUE: an indirect list; [2] TRUE: one of authorities alone.
  trust(root_.pem() + root_.revocation_list({}, -kDay, kDay, "2.5.29.28=30:03:84:01:FF"));
  EXPECT_EQ(unfit(signature), list_fault("it is an indirect list"));
  trust(root_.pem() + root_.revocation_list({}, -kDay, kDay, "2.5.29.28=30:03:82:01:FF"));
  EXPECT_EQ(refusal(signature), "taken: CN=Release");
}

// An authority that has changed its key has a certificate and a list for each.
TEST_F(SignatureTest, AnIssuerMayHaveTwoKeys) {
  const Identity renewed(authority("Root"));
  const Identity lost = root_.issue(named("Lost"));
  trust(root_.pem() + renewed.pem() + root_.revocation_list({}) + renewed.revocation_list({lost}));
  EXPECT_THAT(refusal(pki::sign(kContent, {lost})), HasSubstr("CN=Lost is revoked"));
  EXPECT_EQ(refusal(pki::sign(kContent, {root_.issue(named("Old"))})), "taken: CN=Old");
}

TEST_F(SignatureTest, AnIssuerWithoutAListHasRevokedNothing) {
  const Identity other(authority("Other"));
  const Identity lost = root_.issue(named("Lost"));
  trust(root_.pem() + other.pem() + root_.revocation_list({lost}));
  EXPECT_EQ(refusal(pki::sign(kContent, {other.issue(named("Release"))})), "taken: CN=Release");
}

TEST_F(SignatureTest, ARevokedIntermediateVouchesForNobody) {
  const Identity middle = root_.issue(authority("Middle"));
  trust(root_.pem() + root_.revocation_list({middle}));
  pki::Manner manner;
  manner.chain = {middle};
  EXPECT_THAT(refusal(pki::sign(kContent, {middle.issue(named("Release"))}, manner)),
              StartsWith("the certificate of CN=Middle is revoked"));
}

}  // namespace
}  // namespace package_test
