// SPDX-License-Identifier: Apache-2.0
//
// zozale-package sign, run as a person runs it.
#include <pty.h>
#include <sched.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "common/signature.h"
#include "signing_test.h"

namespace package_test {
namespace {

namespace fs = std::filesystem;
using pki::Identity;

// Until then a terminal shows what is typed.
void wait_for_silence(int terminal) {
  termios modes = {};
  while (tcgetattr(terminal, &modes) == 0 && (modes.c_lflag & ECHO) != 0) {
    sched_yield();
  }
}

class SignTest : public SigningTest {
 protected:
  // Signs, expects the exit code and the text, and that no signature was made.
  void expect_refused(int code, const std::string& text,
                      const std::vector<std::string>& more = {}) const {
    const RunResult refused = sign(more);
    EXPECT_EQ(refused.exit_code, code);
    EXPECT_THAT(refused.err, HasSubstr(text));
    EXPECT_EQ(refused.out, "");
    EXPECT_FALSE(fs::exists(path("p.p7s")));
  }
};

TEST_F(SignTest, PutsASignatureBesideThePackage) {
  const std::string before = read_bytes(path("p"));
  const RunResult done = sign();
  EXPECT_EQ(done.exit_code, 0);
  EXPECT_EQ(done.err, "");
  EXPECT_THAT(done.out,
              StartsWith("signed \"p\" as CN=Release, whose certificate is valid until "));
  EXPECT_THAT(done.out, HasSubstr(": \"p.p7s\"\n"));
  EXPECT_TRUE(is_trusted());
  EXPECT_EQ(read_bytes(path("p")), before);
  EXPECT_THAT(files(), ElementsAre("cert.pem", "key.pem", "p", "p.p7s", "root.pem"));
}

TEST_F(SignTest, PutsItWhereItIsToldTo) {
  ASSERT_EQ(sign({"-o", "s"}).exit_code, 0);
  EXPECT_EQ(run({"check", "p", "--trust", "root.pem", "--signature", "s"}).exit_code, 0);
  EXPECT_FALSE(fs::exists(path("p.p7s")));
}

TEST_F(SignTest, ReplacesAnOlderSignature) {
  write("p.p7s", "an older one");
  ASSERT_EQ(sign().exit_code, 0);
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, CarriesTheChain) {
  const Identity middle = root_.issue(pki::authority("Middle"));
  write_signer(middle.issue(pki::Wish()));
  ASSERT_EQ(sign().exit_code, 0);
  EXPECT_FALSE(is_trusted());
  write("chain.pem", middle.pem());
  ASSERT_EQ(sign({"--chain", "chain.pem"}).exit_code, 0);
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, TakesTheChainFromTheCertificatesFileToo) {
  const Identity middle = root_.issue(pki::authority("Middle"));
  const Identity below = middle.issue(pki::Wish());
  write_signer(below);
  write("cert.pem", below.pem() + middle.pem());
  ASSERT_EQ(sign().exit_code, 0);
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, ACertificateMayBeGivenTwice) {
  const Identity middle = root_.issue(pki::authority("Middle"));
  const Identity below = middle.issue(pki::Wish());
  write_signer(below);
  write("cert.pem", below.pem() + middle.pem());
  write("chain.pem", below.pem() + middle.pem() + middle.pem());
  const RunResult done = sign({"--chain", "chain.pem"});
  EXPECT_EQ(done.exit_code, 0) << done.err;
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, ASignatureThatNoDeviceReadsIsNotMade) {
  std::string many;
  for (size_t bytes = 0; bytes <= zozale::kMaxSignatureSize; bytes += 250) {
    many += root_.issue(pki::authority("Middle")).pem();
  }
  write("many.pem", many);
  expect_refused(3, "leave those certificates out of --chain \"many.pem\" that do not stand ",
                 {"--chain", "many.pem"});
}

// Before a person is asked for a passphrase.
TEST_F(SignTest, TheChainIsReadBeforeTheKeyIsOpened) {
  write_signer(release_, "correct horse");
  write("chain.pem", "no certificate");
  expect_refused(1, "cannot use \"chain.pem\": it holds no certificate", {"--chain", "chain.pem"});
}

TEST_F(SignTest, SignsWithRsaToo) {
  pki::Wish wish;
  wish.rsa_bits = 2048;
  write_signer(root_.issue(wish));
  ASSERT_EQ(sign().exit_code, 0);
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, ABadPackageIsNotSigned) {
  std::string bytes = read_bytes(path("p"));
  bytes.back() ^= 1;
  write("p", bytes);
  expect_refused(3, "zozale-package: refused; nothing was signed\n");
}

TEST_F(SignTest, AKeyOfAnotherCertificateIsRefused) {
  write("key.pem", root_.key_pem());
  expect_refused(2, "the key \"key.pem\" is not the one of the certificate CN=Release");
}

TEST_F(SignTest, WhatNoDeviceTakesIsNotMade) {
  pki::Wish wish;
  wish.purposes = "serverAuth";
  write_signer(root_.issue(wish));
  expect_refused(3, "the certificate of CN=Release is not for signing packages");
  wish = pki::Wish();
  wish.until = -1;
  write_signer(root_.issue(wish));
  expect_refused(3, "the certificate of CN=Release has expired");
  wish = pki::Wish();
  wish.rsa_bits = 1024;
  write_signer(root_.issue(wish));
  expect_refused(3, "the certificate of CN=Release is too weak");
}

TEST_F(SignTest, TheSignatureReplacesNothingThatItIsMadeFrom) {
  for (const char* file : {"p", "key.pem", "cert.pem"}) {
    const std::string before = read_bytes(path(file));
    expect_refused(2, "would replace the file", {"-o", file});
    EXPECT_EQ(read_bytes(path(file)), before);
  }
}

TEST_F(SignTest, AnEncryptedKeyIsOpenedByAFile) {
  write_signer(release_, "correct horse");
  write("pass", "correct horse\nanother line\n");
  fs::permissions(path("pass"), fs::perms::owner_read);
  const RunResult done = sign({"--passphrase-file", "pass"});
  EXPECT_EQ(done.exit_code, 0);
  EXPECT_EQ(done.err, "");
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, AWrongPassphraseIsRefused) {
  write_signer(release_, "correct horse");
  write("pass", "wrong horse\n");
  expect_refused(1, "the passphrase does not open it", {"--passphrase-file", "pass"});
  write("pass", std::string(5000, 'x'));
  expect_refused(1, "the passphrase does not open it", {"--passphrase-file", "pass"});
  expect_refused(1, "cannot open \"none\"", {"--passphrase-file", "none"});
}

TEST_F(SignTest, NobodyIsAskedWithoutATerminal) {
  write_signer(release_, "correct horse");
  expect_refused(2, "it is encrypted; give --passphrase-file, or run this on a terminal");
}

TEST_F(SignTest, APersonIsAskedOnATerminal) {
  write_signer(release_, "correct horse");
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    if (chdir(folder().c_str()) == 0) {
      execl(PACKAGE_TOOL, "zozale-package", "sign", "p", "--key", "key.pem", "--cert", "cert.pem",
            nullptr);
    }
    _exit(127);
  }
  std::string said;
  char piece[256];
  bool answered = false;
  for (ssize_t len = 0; (len = ::read(terminal, piece, sizeof(piece))) > 0;) {
    said.append(piece, static_cast<size_t>(len));
    if (!answered && said.find("Passphrase of \"key.pem\": ") != std::string::npos) {
      wait_for_silence(terminal);
      answered = ::write(terminal, "correct horse\n", 14) == 14;
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << said;
  EXPECT_THAT(said, Not(HasSubstr("correct horse")));
  EXPECT_TRUE(is_trusted());
}

TEST_F(SignTest, AKeyThatOthersCanReadDrawsAWarning) {
  fs::permissions(path("key.pem"), fs::perms::group_read, fs::perm_options::add);
  const RunResult done = sign();
  EXPECT_EQ(done.exit_code, 0);
  EXPECT_EQ(done.err,
            "zozale-package: warning: key: \"key.pem\": others can read it or write to it; keep it "
            "to yourself: chmod 600\n");
}

TEST_F(SignTest, FilesThatAreNotWhatTheyShouldBe) {
  write("key.pem", release_.pem());
  expect_refused(1, "cannot use the key \"key.pem\": it is no private key in PEM");
  write("key.pem", "");
  expect_refused(1, "it is no private key in PEM");
  write_signer(release_);
  write("cert.pem", release_.key_pem());
  expect_refused(1, "cannot use \"cert.pem\": it holds no certificate");
  fs::remove(path("cert.pem"));
  expect_refused(1, "cannot open \"cert.pem\"");
  write_signer(release_);
  fs::remove(path("key.pem"));
  expect_refused(1, "cannot open \"key.pem\"");
  write_signer(release_);
  expect_refused(1, "cannot open \"none\"", {"--chain", "none"});
}

TEST_F(SignTest, AnEmptyNameOfAFileIsWrongUsage) {
  for (const char* option : {"--chain", "--passphrase-file", "--output"}) {
    expect_refused(2, std::string(option) + ": its value is empty", {option, ""});
  }
}

TEST_F(SignTest, AFullFolderLeavesNothing) {
  expect_refused(1, "cannot create", {"-o", "no-such-folder/s"});
}

}  // namespace
}  // namespace package_test
