// SPDX-License-Identifier: Apache-2.0
//
// install and verify with what is asked of a package: signer, version, platform.
#include "tests/pki/pki.h"
#include "tool_test.h"

namespace tool {
namespace {

using pki::Identity;
using pki::Wish;

constexpr const char* kSignature = "/cache/ovu_fota_ab/upgrade.package.p7s";
constexpr const char* kTrust = "/etc_ro/trust.pem";

std::string to_text(const sim::Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

class AuthenticityTest : public ToolTest {
 protected:
  AuthenticityTest() {
    package_.version = 5;
    package_.plat = 9;
    put_package(package_);
    device().write_file(kTrust, support::bytes(root_.pem()));
    put_signature(pki::sign(content(), {release_}));
  }

  std::string content() const { return to_text(package_.bytes()); }
  void put_signature(const std::string& bytes) {
    device().write_file(kSignature, support::bytes(bytes));
  }

  // Each command refuses with the exit code and the text; nothing on the device changes, nothing is
  // written or erased on the way, and the library, which would log, is not called.
  void expect_refused(const std::string& text, const Arguments& demands = {"--trust", kTrust},
                      int status = 3) {
    for (Arguments command :
         std::vector<Arguments>{{"install"}, {"install", "--dry-run"}, {"verify"}}) {
      command.insert(command.end(), demands.begin(), demands.end());
      device().clear_counts();
      const std::uint64_t before = erases();
      const Ended run = zozale_untouched(command);
      EXPECT_EQ(run.status, status) << run;
      EXPECT_TRUE(run.complains("zozale: " + text)) << run;
      EXPECT_TRUE(run.complains("expected: ")) << run;
      EXPECT_TRUE(run.complains("next:     ")) << run;
      EXPECT_EQ(erases(), before) << run;
      for (const sim::Op op : {sim::Op::block_erase, sim::Op::page_program, sim::Op::memerase,
                               sim::Op::write, sim::Op::stream_write, sim::Op::store_set}) {
        EXPECT_EQ(device().count(op), 0U) << sim::op_name(op) << run;
      }
    }
    EXPECT_FALSE(device().has_file("/cache/ovu_fota_ab/upi_ab.log"));
  }

  support::PackageFile package_ = support::system_package(kImageSize);
  const Identity root_{pki::authority("Root")};
  const Identity release_ = root_.issue(Wish());
};

TEST_F(AuthenticityTest, ASignedPackageIsInstalled) {
  const Ended run = zozale({"install", "--trust", kTrust});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(run.says("Signed by CN=Release, trusted by CN=Root.\n")) << run;
  EXPECT_TRUE(run.says("3 partitions written, 0 up to date")) << run;
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusBootable);
}

TEST_F(AuthenticityTest, ASecondRunFindsNothingLeft) {
  ASSERT_EQ(zozale({"install", "--trust", kTrust}).status, 0);
  const std::uint64_t before = erases_of_systems();

  const Ended run = zozale({"install", "--trust", kTrust});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Nothing was left to write")) << run;
  EXPECT_EQ(erases_of_systems(), before);
}

TEST_F(AuthenticityTest, ASignedPackageIsVerified) {
  const Ended run = zozale({"verify", "--trust", kTrust, "--json"});

  EXPECT_EQ(run.status, 0) << run;
  const nlohmann::json told = run.json();
  EXPECT_EQ(told["signature"]["subject"], "CN=Release");
  EXPECT_EQ(told["signature"]["issuer"], "CN=Root");
  EXPECT_EQ(told["signature"]["trusted_by"], "CN=Root");
  EXPECT_EQ(told["package"]["plat"], 9);
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "1");
}

TEST_F(AuthenticityTest, ADryRunChecksTheSignatureAndWritesNothing) {
  const Ended run = zozale_untouched({"install", "--dry-run", "--trust", kTrust});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Signed by CN=Release, trusted by CN=Root.\n")) << run;
  EXPECT_TRUE(run.says("Nothing was written: this was a dry run.\n")) << run;
}

TEST_F(AuthenticityTest, ASignatureIsOnlyLookedForWhenItIsAskedFor) {
  device().remove_file(kSignature);
  EXPECT_EQ(zozale({"verify"}).status, 0);
}

TEST_F(AuthenticityTest, TheSignatureMayLieElsewhere) {
  device().remove_file(kSignature);
  device().write_file("/cache/s", support::bytes(pki::sign(content(), {release_})));
  EXPECT_EQ(zozale({"verify", "--trust", kTrust, "--signature", "/cache/s"}).status, 0);
}

TEST_F(AuthenticityTest, AnUnsignedPackage) {
  device().remove_file(kSignature);
  expect_refused("the package is not signed\n  expected: its signature at " +
                 std::string(kSignature) + "\n");
}

TEST_F(AuthenticityTest, APackageThatIsSignedByAnother) {
  Wish mallory;
  mallory.name = "Mallory";
  put_signature(pki::sign(content(), {Identity(mallory)}));
  expect_refused("the package is signed by another: CN=Mallory is not trusted\n");
}

TEST_F(AuthenticityTest, AnAlteredPackage) {
  // The version is in the head, which no digest of the package covers.
  package_.version = 6;
  put_package(package_);
  expect_refused("the package is not the one that CN=Release signed: it was altered, ");
}

TEST_F(AuthenticityTest, APackageWithOneByteMore) {
  sim::Bytes longer = package_.bytes();
  longer.push_back(0xFF);
  put_package(longer);
  expect_refused("the package is not the one that CN=Release signed: it was altered, ");
}

TEST_F(AuthenticityTest, AnExpiredSigner) {
  Wish wish;
  wish.from = -10 * pki::kDay;
  wish.until = -5 * pki::kDay;
  put_signature(pki::sign(content(), {root_.issue(wish)}));
  expect_refused("the certificate of CN=Release has expired\n");
  EXPECT_EQ(zozale({"verify", "--trust", kTrust, "--no-check-time"}).status, 0);
}

TEST_F(AuthenticityTest, ASignerFromTheFuture) {
  expect_refused("the certificate of CN=Release is not valid yet\n",
                 {"--trust", kTrust, "--time", "2025-01-01"});
  EXPECT_EQ(zozale({"verify", "--trust", kTrust, "--time", "signing"}).status, 0);
}

TEST_F(AuthenticityTest, AServersCertificate) {
  Wish wish;
  wish.purposes = "serverAuth";
  put_signature(pki::sign(content(), {root_.issue(wish)}));
  expect_refused("the certificate of CN=Release is not for signing packages\n");
}

TEST_F(AuthenticityTest, AWeakDigest) {
  pki::Manner manner;
  manner.digest = "SHA1";
  put_signature(pki::sign(content(), {release_}, manner));
  expect_refused("the signature of CN=Release does not use SHA-512\n");
}

TEST_F(AuthenticityTest, ARevokedSigner) {
  device().write_file(kTrust, support::bytes(root_.pem() + root_.revocation_list({release_})));
  expect_refused("the certificate of CN=Release is revoked\n");
}

TEST_F(AuthenticityTest, SignatureFilesThatAreNone) {
  const std::string good = pki::sign(content(), {release_});
  put_signature("");
  expect_refused("the file \"" + std::string(kSignature) + "\" is no signature\n");
  put_signature(good.substr(0, good.size() / 2));
  expect_refused("the signature cannot be read\n");
  put_signature("-----BEGIN CMS-----\n");
  expect_refused("the signature is written as PEM\n");
  std::filesystem::resize_file(device().folder() / ("root" + std::string(kSignature)), 1000000);
  expect_refused("the file \"" + std::string(kSignature) + "\" is no signature\n");
  pki::Manner attached;
  attached.attached = true;
  put_signature(pki::sign("x", {release_}, attached));
  expect_refused("the signature carries a content of its own\n");
}

TEST_F(AuthenticityTest, TrustThatCannotBeUsedIsAFaultOfTheDevice) {
  expect_refused("cannot open \"/etc_ro/none.pem\": No such file or directory\n",
                 {"--trust", "/etc_ro/none.pem"}, 4);
  device().write_file(kTrust, support::bytes("no certificate"));
  expect_refused("cannot use \"/etc_ro/trust.pem\": it holds no certificate; ", {"--trust", kTrust},
                 4);
}

TEST_F(AuthenticityTest, ARevocationListThatCannotBeUsedIsAFaultOfTheDevice) {
  const Identity impostor{pki::authority("Root")};
  device().write_file(kTrust, support::bytes(root_.pem() + impostor.revocation_list({})));
  expect_refused(
      "cannot use the revocation list of CN=Root in \"/etc_ro/trust.pem\": its signature is not "
      "its issuer's\n",
      {"--trust", kTrust}, 4);
}

TEST_F(AuthenticityTest, AnOlderPackage) {
  expect_refused("the package is too old: its version is 5, at least 6 is wanted\n",
                 {"--min-version", "6"});
  expect_refused("the package is too old: its version is 5, at least 6 is wanted\n",
                 {"--min-version", "6", "--trust", kTrust});
  EXPECT_EQ(zozale({"verify", "--min-version", "5"}).status, 0);
}

TEST_F(AuthenticityTest, AnotherDevicesPackage) {
  expect_refused("the package is for another device: its platform is 9, 8 is wanted\n",
                 {"--plat", "8"});
  EXPECT_EQ(zozale({"verify", "--plat", "9"}).status, 0);
}

TEST_F(AuthenticityTest, AVersionThatIsNoNumberIsWrongUsage) {
  for (const Arguments& command :
       std::vector<Arguments>{{"install", "--min-version", "1.5.0"}, {"verify", "--plat", "x"}}) {
    const Ended run = zozale_untouched(command);
    EXPECT_EQ(run.status, 2) << run;
    EXPECT_TRUE(run.complains("is no whole number from -2147483648 to 2147483647")) << run;
  }
}

// A script whose variable was never set must not install what nobody signed.
TEST_F(AuthenticityTest, AnEmptyNameOfAFileIsWrongUsage) {
  device().remove_file(kSignature);
  for (const Arguments& command :
       std::vector<Arguments>{{"install", "--trust", ""},
                              {"install", "--trust="},
                              {"verify", "--trust", ""},
                              {"verify", "--trust", kTrust, "--signature", ""}}) {
    const Ended run = zozale_untouched(command);
    EXPECT_EQ(run.status, 2) << run;
    EXPECT_TRUE(run.complains("--trust: ") || run.complains("--signature: ")) << run;
  }
}

TEST_F(AuthenticityTest, ARefusalIsOneJsonDocument) {
  device().remove_file(kSignature);

  const nlohmann::json told = zozale_untouched({"install", "--trust", kTrust, "--json"}).json();

  EXPECT_EQ(told["exit"], 3);
  EXPECT_EQ(told["error"]["what"], "the package is not signed");
  EXPECT_EQ(told["error"]["found"], "no such file");
  EXPECT_FALSE(told.contains("signature"));
}

TEST_F(AuthenticityTest, WhatOthersCanWriteToDrawsAWarning) {
  namespace fs = std::filesystem;
  EXPECT_EQ(zozale({"verify", "--trust", kTrust}).err, "");
  fs::permissions(device().folder() / "root/cache/ovu_fota_ab", fs::perms::others_write,
                  fs::perm_options::add);

  const Ended run = zozale({"verify", "--trust", kTrust});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.err,
            "zozale: warning: others than its owner can write to /cache/ovu_fota_ab: they can "
            "exchange what is checked; take that right from them\n");
}

}  // namespace
}  // namespace tool
