// SPDX-License-Identifier: Apache-2.0
#include "signing_key.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "common/error.h"
#include "common/file.h"
#include "common/text.h"

namespace zozale {
namespace {

constexpr size_t kMaxFileSize = 64UL * 1024;

void warn_if_shared(const std::string& path, Findings& findings) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    add_warning(findings, "key", in_quotes(path),
                "others can read it or write to it; keep it to yourself: chmod 600");
  }
}

// What OpenSSL asks for while it reads the key.
struct Passphrase {
  std::string path;                 // of the key
  std::optional<std::string> text;  // nothing: to be asked for
  bool asked = false;
  bool missing = false;
};

std::optional<std::string> first_line_of(const std::string& file) {
  if (file.empty()) {
    return std::nullopt;
  }
  std::string text = read_text_file(file, kMaxFileSize);
  text.erase(std::find(text.begin(), text.end(), '\n'), text.end());
  return text;
}

int copy_passphrase(const std::string& text, char* buffer, int size) {
  if (text.size() > static_cast<size_t>(size)) {
    return -1;
  }
  return static_cast<int>(text.copy(buffer, static_cast<size_t>(size)));
}

int ask_passphrase(const std::string& path, char* buffer, int size) {
  const std::string question = "Passphrase of " + in_quotes(path) + ": ";
  if (EVP_read_pw_string_min(buffer, 0, size - 1, question.c_str(), 0) != 0) {
    return -1;
  }
  return static_cast<int>(strnlen(buffer, static_cast<size_t>(size)));
}

int give_passphrase(char* buffer, int size, int /*for_writing*/, void* context) {
  auto* passphrase = static_cast<Passphrase*>(context);
  passphrase->asked = true;
  if (passphrase->text) {
    return copy_passphrase(*passphrase->text, buffer, size);
  }
  if (isatty(STDIN_FILENO) != 1) {
    passphrase->missing = true;
    return -1;
  }
  return ask_passphrase(passphrase->path, buffer, size);
}

Error key_error(const std::string& path, const Passphrase& passphrase) {
  const std::string begin = "cannot use the key " + in_quotes(path) + ": ";
  const std::string reason = openssl_reason();
  if (passphrase.missing) {
    return {kExitUsage,
            begin + "it is encrypted; give --passphrase-file, or run this on a terminal"};
  }
  if (passphrase.asked) {
    return {kExitFailed, begin + "the passphrase does not open it: " + reason};
  }
  return {kExitFailed, begin + "it is no private key in PEM: " + reason};
}

}  // namespace

OpenSslPtr<EVP_PKEY> read_signing_key(const std::string& path, const std::string& passphrase_file,
                                      Findings& findings) {
  warn_if_shared(path, findings);
  if (!passphrase_file.empty()) {
    warn_if_shared(passphrase_file, findings);
  }
  std::string text = read_text_file(path, kMaxFileSize);
  Passphrase passphrase = {path, first_line_of(passphrase_file)};
  ERR_clear_error();
  OpenSslPtr<EVP_PKEY> key(
      PEM_read_bio_PrivateKey(reader_of(text).get(), nullptr, give_passphrase, &passphrase));
  OPENSSL_cleanse(text.data(), text.size());
  if (!key) {
    throw key_error(path, passphrase);
  }
  return key;
}

}  // namespace zozale
