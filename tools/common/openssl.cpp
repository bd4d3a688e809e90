// SPDX-License-Identifier: Apache-2.0
#include "common/openssl.h"

#include <openssl/err.h>

namespace zozale {

OpenSslPtr<BIO> reader_of(const std::string& bytes) {
  return OpenSslPtr<BIO>(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::string openssl_reason() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason == nullptr ? "OpenSSL gives no reason" : reason;
}

}  // namespace zozale
