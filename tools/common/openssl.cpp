// SPDX-License-Identifier: Apache-2.0
#include "common/openssl.h"

#include <openssl/err.h>

#include "common/error.h"

namespace zozale {

OpenSslPtr<BIO> reader_of(const std::string& bytes) {
  OpenSslPtr<BIO> reader(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  require_openssl(reader != nullptr, "read bytes in memory");
  return reader;
}

void require_openssl(bool done, const std::string& action) {
  if (!done) {
    throw Error(kExitFailed, "cannot " + action + ": " + openssl_reason());
  }
}

std::string openssl_reason() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason == nullptr ? "OpenSSL gives no reason" : reason;
}

}  // namespace zozale
