// SPDX-License-Identifier: Apache-2.0
//
// A test with a package, a signer's key and certificate, and the certificate that vouches for it.
#ifndef TESTS_PACKAGE_SIGNING_TEST_H
#define TESTS_PACKAGE_SIGNING_TEST_H

#include <string>

#include "support.h"
#include "tests/pki/pki.h"

namespace package_test {

// The files "p", "key.pem", "cert.pem" and "root.pem".
class SigningTest : public FolderTest {
 protected:
  SigningTest() {
    RawPackage package;
    package.head.upgrade_type = 1;
    package.partition("kernel", image_without_zero_byte(500)).layout();
    write("p", package.bytes());
    write("root.pem", root_.pem());
    write_signer(release_);
  }

  void write_signer(const pki::Identity& signer, const std::string& passphrase = "") const {
    namespace fs = std::filesystem;
    write("cert.pem", signer.pem());
    write("key.pem", signer.key_pem(passphrase));
    fs::permissions(path("key.pem"), fs::perms::owner_read | fs::perms::owner_write);
  }
  RunResult run(const std::vector<std::string>& arguments) const {
    return run_tool(folder(), arguments);
  }
  RunResult sign(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"sign", "p", "--key", "key.pem", "--cert", "cert.pem"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
  bool is_trusted() const { return run({"check", "p", "--trust", "root.pem"}).exit_code == 0; }

  const pki::Identity root_{pki::authority("Root")};
  const pki::Identity release_ = root_.issue(pki::Wish());
};

}  // namespace package_test

#endif
