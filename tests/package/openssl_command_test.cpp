// SPDX-License-Identifier: Apache-2.0
//
// Signatures of zozale-package before openssl, and the other way round.
#include <cstdlib>

#include "signing_test.h"

namespace package_test {
namespace {

class OpensslCommand : public SigningTest {
 protected:
  // Whether "openssl cms ..." succeeds in the folder.
  bool cms(const std::string& arguments) const {
    const std::string line =
        "cd '" + folder().string() + "' && openssl cms " + arguments + " 2>/dev/null";
    return system(line.c_str()) == 0;
  }
};

TEST_F(OpensslCommand, TakesASignature) {
  const std::string verify =
      "-verify -binary -inform DER -in p.p7s -content p -CAfile root.pem -purpose any -out read";
  ASSERT_EQ(sign().exit_code, 0);
  EXPECT_TRUE(cms(verify));
  EXPECT_EQ(read_bytes(path("read")), read_bytes(path("p")));
  write("p", read_bytes(path("p")) + "x");
  EXPECT_FALSE(cms(verify));
}

TEST_F(OpensslCommand, MakesASignature) {
  ASSERT_TRUE(cms(
      "-sign -binary -md sha512 -outform DER -signer cert.pem -inkey key.pem -in p -out p.p7s"));
  EXPECT_TRUE(is_trusted());
}

// For the time in which some devices trust the old authority and some the new one.
TEST_F(OpensslCommand, AddsASecondSigner) {
  const pki::Identity other(pki::authority("Other"));
  const pki::Identity second = other.issue(pki::Wish());
  write("other.pem", other.pem());
  write("cert2.pem", second.pem());
  write("key2.pem", second.key_pem());
  ASSERT_EQ(sign().exit_code, 0);
  ASSERT_TRUE(
      cms("-resign -binary -md sha512 -inform DER -in p.p7s -signer cert2.pem -inkey key2.pem "
          "-outform DER -out both.p7s"));
  for (const char* trusted : {"root.pem", "other.pem"}) {
    EXPECT_EQ(run({"check", "p", "--trust", trusted, "--signature", "both.p7s"}).exit_code, 0)
        << trusted;
  }
}

}  // namespace
}  // namespace package_test
